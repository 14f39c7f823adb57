#include <functional>
#include <utility>

#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/model/layers.h"
#include "qrt_toolkit/lower/groups.h"

// Of the numbers along an axis: how much larger each is than the others, and which is the largest.

namespace marlo::toolkit {
namespace {

using runtime::AxisReduction;
using runtime::BinaryFunction;

constexpr const char* kAxisSoftmax = "AxisSoftmax_Fallback_Float_M1";

/// A layer along one axis of the input; of the axes from it on, made one, where older files meant
/// that.
size_t along(Lowering& lowering, const std::function<size_t(size_t layer, size_t axis)>& add) {
  const Extents sizes = lowering.input_sizes(0);
  const size_t axis = lowering.axis_of_input(0, lowering.node().integer("axis", -1));
  const size_t layer = lowering.input(0);
  if (lowering.node().integer("to_end", 0) == 0 || axis + 1 >= sizes.size())
    return add(layer, axis);
  const auto middle = sizes.begin() + static_cast<std::ptrdiff_t>(axis);
  const int64_t lines = count_of(Extents(sizes.begin(), middle)).value_or(0);
  const int64_t size = count_of(Extents(middle, sizes.end())).value_or(0);
  return add(lowering.reshaped(layer, {lines, size}), 1);
}

void lower_softmax(Lowering& lowering) {
  Plan& plan = lowering.plan();
  // The documented kernel doesn't take out the largest number, and gives NaN from 89 on.
  const char* const kernel = plan.has(kAxisSoftmax) ? kAxisSoftmax : "Softmax_Fallback_Float_M1";
  lowering.result(along(lowering, [&](size_t layer, size_t axis) {
    auto info = std::make_shared<runtime::SoftmaxInfo>();
    info->dim = narrow_u16(static_cast<int64_t>(axis + 1), "axis");
    return plan.add(std::move(info), kernel, {layer});
  }));
}

void lower_log_softmax(Lowering& lowering) {
  lowering.result(along(lowering, [&](size_t layer, size_t axis) {
    auto info = std::make_shared<runtime::AxisSoftmaxInfo>();
    info->axis = static_cast<int32_t>(axis);
    info->logarithm = true;
    return lowering.plan().add(std::move(info), kAxisSoftmax, {layer});
  }));
}

/// Ranks of the largest numbers of each line, by their places, the others being 0; and the best rank.
struct Ranked {
  size_t ranks;
  size_t best;
};

Ranked ranked(Lowering& lowering, AxisReduction largest, size_t layer, size_t axis, bool last) {
  const Extents sizes = lowering.sizes_of_layer(layer);
  Extents line(sizes.size() - axis, 1);
  line[0] = sizes[axis];
  Numbers rank(ElementType::float32, line);
  for (int64_t i = 0; i < line[0]; ++i) {
    rank.reals()[static_cast<size_t>(i)] = static_cast<double>(last ? i + 1 : line[0] - i);
  }
  const size_t most = lowering.reduced(largest, layer, {axis});
  const size_t is_most = lowering.binary(BinaryFunction::Equal, layer, most);
  const size_t ranks = lowering.binary(BinaryFunction::Mul, is_most, rank);
  return {ranks, lowering.reduced(AxisReduction::Max, ranks, {axis})};
}

template <AxisReduction largest>
void lower_place(Lowering& lowering) {
  const size_t axis = lowering.axis_of_input(0, lowering.node().integer("axis", 0));
  const bool last = lowering.node().integer("select_last_index", 0) != 0;
  const auto size = static_cast<double>(lowering.input_sizes(0)[axis]);
  const size_t best = ranked(lowering, largest, lowering.input(0), axis, last).best;
  lowering.result(lowering.function(runtime::ElementFunction::ScaleShift, "ScaleShift", best,
                                    last ? 1 : -1, last ? -1 : size));
}

void lower_hardmax(Lowering& lowering) {
  lowering.result(along(lowering, [&](size_t layer, size_t axis) {
    const Ranked lines = ranked(lowering, AxisReduction::Max, layer, axis, false);
    return lowering.binary(BinaryFunction::Equal, lines.ranks, lines.best);
  }));
}

}  // namespace

std::span<const LoweringRow> softmax_lowerings() {
  static constexpr LoweringRow kRows[] = {
      {"ArgMax", lower_place<AxisReduction::Max>, "a line with NaN has no place"},
      {"ArgMin", lower_place<AxisReduction::Min>, "a line with NaN has no place"},
      {"Hardmax", lower_hardmax},
      {"LogSoftmax", lower_log_softmax},
      {"Softmax", lower_softmax},
  };
  return kRows;
}

}  // namespace marlo::toolkit
