#include <algorithm>
#include <numeric>
#include <utility>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_toolkit/lower/groups.h"

// One number out of many, along some axes.

namespace marlo::toolkit {
namespace {

/// The axes that a node reduces, counted without the batch, in rising order. The batch is one:
/// nothing is left to reduce there.
std::vector<size_t> reduced_axes(const Lowering& lowering) {
  const Node& node = lowering.node();
  const size_t rank = lowering.input_rank(0);
  Numbers::Integers axes;
  if (node.has_input(1)) axes = lowering.required_constant(1)->integers();
  if (axes.empty()) {
    if (node.integer("noop_with_empty_axes", 0) != 0) return {};
    axes.resize(rank);
    std::iota(axes.begin(), axes.end(), int64_t{0});
  }
  std::vector<size_t> places;
  for (const int64_t axis : axes) {
    if (lowering.batch_of_input(0) == axis_from_front(axis, rank, "axes")) continue;
    places.push_back(lowering.axis_of_input(0, axis));
  }
  std::sort(places.begin(), places.end());
  places.erase(std::unique(places.begin(), places.end()), places.end());
  return places;
}

enum class Sum : uint16_t { plain = 0, mean = 1 };

size_t summed(Lowering& lowering, size_t layer, Sum kind) {
  auto info = std::make_shared<runtime::TensorArithmeticInfo>();
  info->arith_type = static_cast<uint16_t>(kind);
  for (const size_t axis : reduced_axes(lowering)) {
    if (axis < lowering.sizes_of_layer(layer).size()) {
      info->dim.push_back(static_cast<int16_t>(axis + 1));
    }
  }
  if (info->dim.empty()) return layer;
  return lowering.plan().add(std::move(info), "TensorArithmetic_Fallback_M1", {layer});
}

/// Whether a node reduces rows and columns of planes: a global average, which has kernels in blocks.
bool reduces_planes(const Lowering& lowering) {
  return lowering.input_sizes(0).size() == 3 && reduced_axes(lowering) == std::vector<size_t>{1, 2};
}

template <Sum kind>
void lower_sum(Lowering& lowering) {
  if (kind == Sum::mean && reduces_planes(lowering)) {
    return lowering.result(lowering.averages_of_planes(lowering.planes(0)));
  }
  lowering.result(summed(lowering, lowering.input(0), kind));
}

void lower_l1(Lowering& lowering) {
  lowering.result(summed(lowering, lowering.absolute(lowering.input(0)), Sum::plain));
}

void lower_sum_of_squares(Lowering& lowering) {
  const size_t x = lowering.input(0);
  lowering.result(summed(lowering, lowering.combined(2, x, x), Sum::plain));
}

/// The tensor as [kept, reduced].
size_t with_reduced_last(Lowering& lowering, size_t layer) {
  const Extents sizes = lowering.sizes_of_layer(layer);
  const auto reduced = reduced_axes(lowering);
  std::vector<size_t> order;
  int64_t kept = 1;
  for (size_t axis = 0; axis < sizes.size(); ++axis) {
    if (std::find(reduced.begin(), reduced.end(), axis) != reduced.end()) continue;
    order.push_back(axis);
    kept *= sizes[axis];
  }
  for (const size_t axis : reduced) {
    if (axis < sizes.size()) order.push_back(axis);
  }
  const int64_t all = count_of(sizes).value_or(0);
  return lowering.reshaped(lowering.permuted(layer, order),
                           {kept, 1, all / std::max<int64_t>(1, kept)});
}

/// The largest of each line, by a window as long as the line.
size_t largest(Lowering& lowering, size_t layer) {
  const size_t lines = with_reduced_last(lowering, layer);
  auto info = std::make_shared<runtime::MaxPool2dInfo>();
  info->kernel_y = info->stride_x = info->stride_y = info->dilation_x = info->dilation_y = 1;
  info->kernel_x = narrow_u16(lowering.sizes_of_layer(lines)[2], "size");
  return lowering.plan().add(std::move(info), "Pooling2D_Max_Fallback_Float_M1", {lines});
}

/// Element times element: halves of the line are multiplied until one is left.
void lower_product(Lowering& lowering) {
  size_t lines = with_reduced_last(lowering, lowering.input(0));
  for (int64_t size = lowering.sizes_of_layer(lines)[2]; size > 1; size = (size + 1) / 2) {
    const int64_t half = size / 2;
    const size_t product = lowering.combined(2, lowering.part_of(lines, 2, {0, half, 1}),
                                             lowering.part_of(lines, 2, {half, half, 1}));
    lines = size % 2 == 0
                ? product
                : lowering.joined({product, lowering.part_of(lines, 2, {size - 1, 1, 1})}, 2);
  }
  lowering.result(lines);
}

/// Sums of all that stand before: a product with a triangle of ones.
void lower_cumulative_sum(Lowering& lowering) {
  const int64_t given = lowering.required_constant(1)->integer(0);
  const size_t axis = lowering.axis_of_input(0, given);
  const int64_t size = lowering.input_sizes(0)[axis];
  const bool reverse = lowering.node().integer("reverse", 0) != 0;
  const bool exclusive = lowering.node().integer("exclusive", 0) != 0;
  Numbers triangle(ElementType::float32, {size, size});
  for (int64_t to = 0; to < size; ++to) {
    for (int64_t from = 0; from < size; ++from) {
      const bool before = reverse ? from > to : from < to;
      if (before || (from == to && !exclusive)) {
        triangle.reals()[static_cast<size_t>(to * size + from)] = 1;
      }
    }
  }
  lowering.result(lowering.along_axis(lowering.input(0), axis, triangle));
}

template <runtime::AxisReduction function>
void lower_function(Lowering& lowering) {
  std::vector<size_t> axes;
  Extents sizes = lowering.input_sizes(0);
  for (const size_t axis : reduced_axes(lowering)) {
    if (axis < sizes.size()) axes.push_back(axis);
  }
  size_t layer = lowering.input(0);
  if (axes.empty()) {
    // Over a batch of one alone: each number is its own line, behind a new axis.
    axes.push_back(sizes.size());
    sizes.push_back(1);
    layer = lowering.reshaped(layer, sizes);
  }
  lowering.result(lowering.reduced(function, layer, axes));
}

// Windows leave out infinite numbers and those that are none.
void lower_max(Lowering& lowering) {
  if (lowering.has_second_set()) return lower_function<runtime::AxisReduction::Max>(lowering);
  lowering.result(largest(lowering, lowering.input(0)));
}

void lower_min(Lowering& lowering) {
  if (lowering.has_second_set()) return lower_function<runtime::AxisReduction::Min>(lowering);
  const size_t mirrored = lowering.negative(lowering.input(0));
  lowering.result(lowering.negative(largest(lowering, mirrored)));
}

}  // namespace

size_t Lowering::reduced(runtime::AxisReduction function, size_t layer,
                         const std::vector<size_t>& axes) {
  auto info = std::make_shared<runtime::AxisReductionInfo>();
  info->function = static_cast<uint32_t>(function);
  for (const size_t axis : axes) info->axes.push_back(static_cast<int32_t>(axis));
  return plan_.add(std::move(info), "AxisReduction_Fallback_Float_M1", {layer});
}

std::span<const LoweringRow> reduction_lowerings() {
  static constexpr LoweringRow kRows[] = {
      {"CumSum", lower_cumulative_sum, "a constant axis"},
      {"ReduceL1", lower_l1, "constant axes"},
      {"ReduceL2", lower_function<runtime::AxisReduction::L2>, "constant axes"},
      {"ReduceLogSum", lower_function<runtime::AxisReduction::LogSum>, "constant axes"},
      {"ReduceLogSumExp", lower_function<runtime::AxisReduction::LogSumExp>, "constant axes"},
      {"ReduceMax", lower_max, "constant axes"},
      {"ReduceMean", lower_sum<Sum::mean>, "constant axes"},
      {"ReduceMin", lower_min, "constant axes"},
      {"ReduceProd", lower_product, "constant axes"},
      {"ReduceSum", lower_sum<Sum::plain>, "constant axes"},
      {"ReduceSumSquare", lower_sum_of_squares, "constant axes"},
  };
  return kRows;
}

}  // namespace marlo::toolkit
