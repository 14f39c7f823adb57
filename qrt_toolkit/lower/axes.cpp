#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <numeric>
#include <utility>

#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/model/layers.h"
#include "qrt_toolkit/lower/lowering.h"
#include "qrt_toolkit/shapes/tie.h"

// What a lowering does to one axis: parts of it, elements in any order, and products with a
// constant matrix.

namespace marlo::toolkit {
namespace {

constexpr int64_t kMostEntry = 32767;  // of a slice or reshape in a description
constexpr size_t kMostPieces = 64;     // more become a matrix product
constexpr int64_t kMostProducts = 1LL << 33;

int64_t count(const Extents& sizes) { return count_of(sizes).value_or(0); }

/// The sizes in front of an axis, its own, and those behind it, each multiplied.
struct Sides {
  int64_t before;
  int64_t size;
  int64_t behind;
};

Sides sides_of(const Extents& sizes, size_t axis) {
  const auto at = sizes.begin() + static_cast<std::ptrdiff_t>(axis);
  return {count(Extents(sizes.begin(), at)), *at, count(Extents(at + 1, sizes.end()))};
}

/// Elements that one slice takes, or one element several times; nothing of the input where `first`
/// is negative.
struct Run {
  AxisPart part;
  bool repeated = false;
};

std::vector<Run> runs_of(const std::vector<int64_t>& elements) {
  std::vector<Run> runs;
  for (const int64_t element : elements) {
    if (!runs.empty()) {
      Run& run = runs.back();
      AxisPart& part = run.part;
      const bool outside = element < 0 && part.first < 0;
      const bool second = part.count == 1 && element >= part.first && part.first >= 0;
      if (second && element - part.first <= kMostEntry) {
        run.repeated = element == part.first;
        part.step = run.repeated ? 1 : element - part.first;
        ++part.count;
        continue;
      }
      const int64_t next = run.repeated ? part.first : part.first + part.count * part.step;
      if (outside || (part.first >= 0 && part.count > 1 && element == next)) {
        ++part.count;
        continue;
      }
    }
    runs.push_back({{element, 1, 1}, false});
  }
  return runs;
}

/// The matrix that takes these elements; rows of zeros for those that are negative.
Numbers selection(const std::vector<int64_t>& elements, int64_t in) {
  Numbers matrix(ElementType::float32, {static_cast<int64_t>(elements.size()), in});
  for (size_t i = 0; i < elements.size(); ++i) {
    if (elements[i] < 0) continue;
    matrix.reals()[i * static_cast<size_t>(in) + static_cast<size_t>(elements[i])] = 1;
  }
  return matrix;
}

}  // namespace

size_t Lowering::permuted(size_t layer, const std::vector<size_t>& axes) {
  if (std::is_sorted(axes.begin(), axes.end())) return layer;
  auto info = std::make_shared<runtime::TensorTransposeInfo>();
  for (const size_t axis : axes) info->axes.push_back(static_cast<uint16_t>(axis));
  return plan_.add(std::move(info), "Transform_MainMemory_Permute_Fallback", {layer});
}

size_t Lowering::joined(const std::vector<size_t>& layers, size_t axis) {
  if (layers.size() == 1) return layers[0];
  auto info = std::make_shared<runtime::ConcatenateInfo>();
  info->dim = narrow_u16(static_cast<int64_t>(axis), "axis");
  return plan_.add(std::move(info), "Concatenate_MainMemory_Fallback", layers);
}

bool Lowering::slices_anywhere() const {
  return size_use_ == SizeUse::open && plan_.has("StridedSlice_Fallback_Float_M1");
}

// An end that is the axis's own, or stands so far in front of it, is the same on any size.
size_t Lowering::sliced_axes(size_t layer, const std::vector<AxisPart>& parts) {
  const Extents sizes = sizes_of_layer(layer);
  auto info = std::make_shared<runtime::StridedSliceInfo>();
  for (size_t axis = 0; axis < parts.size(); ++axis) {
    const AxisPart& part = parts[axis];
    const int64_t size = sizes[axis];
    if (part.count < 1) throw NodeFault{"", "a part without elements has no kernel"};
    if (part.first == 0 && part.step == 1 && part.count == size) continue;
    const int64_t behind = part.first + part.count * part.step;
    info->axes.push_back(static_cast<int32_t>(axis));
    info->starts.push_back(
        static_cast<int32_t>(part.first_from_end ? part.first - size : part.first));
    info->ends.push_back(behind >= size
                             ? std::numeric_limits<int32_t>::max()
                             : static_cast<int32_t>(part.behind_from_end ? behind - size : behind));
    info->steps.push_back(static_cast<int32_t>(part.step));
  }
  return plan_.add(std::move(info), "StridedSlice_Fallback_Float_M1", {layer});
}

size_t Lowering::sliced(size_t layer, const std::vector<AxisPart>& parts) {
  if (slices_anywhere()) return sliced_axes(layer, parts);
  std::vector<AxisPart> planes = parts;
  Extents sizes = sizes_of_layer(layer);
  while (planes.size() < 3) {
    planes.insert(planes.begin() + 1, AxisPart{0, 1, 1});
    sizes.insert(sizes.begin() + 1, 1);
  }
  auto info = std::make_shared<runtime::TensorSliceInfo>();
  Extents taken;
  for (const AxisPart& part : planes) {
    if (part.count < 1) throw NodeFault{"", "a part without elements has no kernel"};
    info->slice_dims.push_back(narrow_i16(part.first, "starts"));
    info->slice_dims.push_back(narrow_i16(part.first + part.count * part.step, "ends"));
    info->slice_dims.push_back(narrow_i16(part.step, "steps"));
  }
  return plan_.add(std::move(info), "Slice_Fallback_CHW_Float_M1", {reshaped(layer, sizes)});
}

size_t Lowering::part_of(size_t layer, size_t axis, const AxisPart& part) {
  const Extents sizes = sizes_of_layer(layer);
  if (part.first == 0 && part.step == 1 && part.count == sizes[axis]) return layer;
  Extents result = sizes;
  result[axis] = part.count;
  if (sizes.size() <= 3 || slices_anywhere()) {
    std::vector<AxisPart> parts;
    for (const int64_t size : sizes) parts.push_back({0, size, 1});
    parts[axis] = part;
    return reshaped(sliced(layer, parts), result);
  }
  const Sides sides = sides_of(sizes, axis);
  const size_t box = reshaped(layer, {sides.before, sides.size, sides.behind});
  return reshaped(sliced(box, {{0, sides.before, 1}, part, {0, sides.behind, 1}}), result);
}

size_t Lowering::sized_like_another(runtime::ResizeLikeInfo info) {
  const size_t other = tied_input(*node_);
  for (const int64_t axis : node_->integers(kTiedAxes)) {
    info.axes.push_back(static_cast<int32_t>(axis_of_input(0, axis)));
  }
  for (const int64_t axis : node_->integers(kTiedFrom)) {
    info.like_axes.push_back(static_cast<int32_t>(axis_of_input(other, axis)));
  }
  return plan_.add(std::make_shared<runtime::ResizeLikeInfo>(std::move(info)),
                   "ResizeLike_Fallback_Float_M1", {input(0), input(other)});
}

size_t Lowering::repeated(size_t layer, size_t axis, int64_t times) {
  if (times == 1) return layer;
  Numbers ones(ElementType::float32, {times, 1});
  std::fill(ones.reals().begin(), ones.reals().end(), 1.0);
  return along_axis(layer, axis, ones);
}

size_t Lowering::expanded(size_t layer, const Extents& sizes) {
  Extents own = sizes_of_layer(layer);
  own.insert(own.begin(), sizes.size() - std::min(own.size(), sizes.size()), 1);
  if (broadcast_of(own, sizes) != sizes) {
    throw NodeFault{"", "a tensor of " + text_of(own) + " can't become " + text_of(sizes)};
  }
  layer = reshaped(layer, own);
  // A few copies one behind the other say nothing of the other axes' sizes.
  constexpr int64_t kMostCopies = 16;
  for (size_t axis = 0; axis < sizes.size() && size_use_ == SizeUse::open; ++axis) {
    if (own[axis] == sizes[axis] || sizes[axis] > kMostCopies) continue;
    layer = joined(std::vector<size_t>(static_cast<size_t>(sizes[axis]), layer), axis);
    own[axis] = sizes[axis];
  }
  if (own != sizes && plan_.has("BroadcastTo_Fallback_Float_M1")) {
    auto info = std::make_shared<runtime::BroadcastToInfo>();
    info->dims.assign(sizes.begin(), sizes.end());
    return plan_.add(std::move(info), "BroadcastTo_Fallback_Float_M1", {layer});
  }
  for (size_t axis = 0; axis < sizes.size(); ++axis) {
    if (own[axis] != sizes[axis]) layer = repeated(layer, axis, sizes[axis]);
  }
  return layer;
}

size_t Lowering::taken(size_t layer, size_t axis, const std::vector<int64_t>& elements,
                       double outside) {
  const Extents sizes = sizes_of_layer(layer);
  const int64_t in = sizes[axis];
  const bool beyond =
      std::any_of(elements.begin(), elements.end(), [&](int64_t i) { return i >= in; });
  if (beyond || elements.empty()) throw NodeFault{"", "elements that aren't there are asked for"};
  const std::vector<Run> runs = runs_of(elements);
  if (runs.size() > 1 &&
      std::none_of(elements.begin(), elements.end(), [](int64_t i) { return i < 0; }) &&
      plan_.has("Gather_Fallback_Float_M1")) {
    auto info = std::make_shared<runtime::GatherInfo>();
    info->axis = static_cast<int32_t>(axis);
    info->index_dims = {static_cast<uint32_t>(elements.size())};
    info->indices.assign(elements.begin(), elements.end());
    return plan_.add(std::move(info), "Gather_Fallback_Float_M1", {layer});
  }
  if (runs.size() > kMostPieces) {
    Numbers shift(ElementType::float32, {static_cast<int64_t>(elements.size())});
    for (size_t i = 0; i < elements.size(); ++i) {
      if (elements[i] < 0) shift.reals()[i] = outside;
    }
    return along_axis(layer, axis, selection(elements, in), &shift);
  }
  std::vector<size_t> pieces;
  for (const Run& run : runs) {
    const AxisPart& part = run.part;
    if (part.first >= 0 && !run.repeated) {
      pieces.push_back(part_of(layer, axis, part));
      continue;
    }
    const int64_t first = std::max<int64_t>(0, part.first);
    size_t one = part_of(layer, axis, {first, 1, 1});
    if (part.first < 0) {
      Numbers number(ElementType::float32, {});
      number.reals()[0] = outside;
      one = constants_like(one, number);
    }
    pieces.push_back(repeated(one, axis, part.count));
  }
  return joined(pieces, axis);
}

// A convolution of 1 x 1 whose channels are the axis.
size_t Lowering::along_axis(size_t layer, size_t axis, const Numbers& matrix, const Numbers* shift,
                            int64_t groups) {
  Extents sizes = sizes_of_layer(layer);
  const Sides sides = sides_of(sizes, axis);
  const int64_t out = matrix.shape[0];
  auto info = std::make_shared<runtime::Conv2dInfo>();
  info->in_channels = narrow_u16(sides.size, "size of an axis");
  info->out_channels = narrow_u16(out, "size of an axis");
  info->groups = narrow_u16(groups, "groups");
  info->kernel_x = info->kernel_y = 1;
  info->weight = blob_of(matrix);
  info->if_bias = shift != nullptr;
  if (shift != nullptr) info->bias = blob_of(*shift);
  const int64_t products = count(matrix.shape) * sides.before * sides.behind;
  if (products > kMostProducts) {
    throw NodeFault{"",
                    "as a matrix product it would take " + std::to_string(products) + " products"};
  }
  const bool moves = sides.before != 1;
  const bool last = sides.behind == 1;
  size_t planes = layer;
  if (moves && last) {
    planes = permuted(reshaped(layer, {sides.before, sides.size}), {1, 0});
    planes = reshaped(planes, {sides.size, 1, sides.before});
  } else if (moves) {
    planes = permuted(reshaped(layer, {sides.before, sides.size, sides.behind}), {1, 0, 2});
    planes = reshaped(planes, {sides.size, sides.before, sides.behind});
  } else {
    const bool picture = sizes.size() == 3 && axis == 0;
    planes = reshaped(layer, picture ? sizes : Extents{sides.size, 1, sides.behind});
  }
  size_t result =
      plan_.add(std::move(info), "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", {planes});
  plan_.layer(result).products = static_cast<uint64_t>(products);
  if (moves && last) {
    result = permuted(reshaped(result, {out, sides.before}), {1, 0});
  } else if (moves) {
    result = permuted(result, {1, 0, 2});
  }
  sizes[axis] = out;
  return reshaped(result, sizes);
}

// Descriptions in JSON hold no infinite number: it is the logarithm of zero.
size_t Lowering::infinite_tensor(const Numbers& numbers, const Extents& sizes) {
  const auto mapped = [&](double (*change)(double)) {
    Numbers result(ElementType::float32, numbers.shape);
    for (size_t i = 0; i < result.reals().size(); ++i) {
      result.reals()[i] = change(numbers.real(i));
    }
    return result;
  };
  const auto logarithm = [&](const Numbers& kept) {
    return function(runtime::ElementFunction::Log, "Log", constant_tensor(kept, sizes));
  };
  const Numbers finite = mapped([](double x) { return std::isfinite(x) ? x : 0.0; });
  // Of nothing less than zero there is no logarithm either.
  const Numbers low = mapped([](double x) {
    return std::isnan(x) ? -1.0 : std::isinf(x) && x < 0 ? 0.0 : 1.0;
  });
  const Numbers high = mapped([](double x) { return std::isinf(x) && x > 0 ? 0.0 : 1.0; });
  const size_t below = binary(runtime::BinaryFunction::Add, logarithm(low), finite);
  return binary(runtime::BinaryFunction::Sub, below, logarithm(high));
}

// A single one, made of an element of the first input, which a transposed convolution multiplies
// with the constant.
size_t Lowering::constant_tensor(const Numbers& numbers, const Extents& sizes) {
  if (has_second_set() && !is_finite(numbers)) return infinite_tensor(numbers, sizes);
  if (has_second_set()) {
    auto constant = std::make_shared<runtime::ConstantInfo>();
    constant->dims.assign(sizes.begin(), sizes.end());
    constant->values = floats_of(numbers);
    return plan_.add(std::move(constant), "Constant_Fallback_Float_M1", {});
  }
  if (graph_.inputs.empty()) {
    throw NodeFault{"", "it is a constant, which no layer makes"};
  }
  if (!one_) {
    Extents box = sizes_of_layer(0);
    size_t input = 0;
    if (box.size() > 3) {
      box = {count(box)};
      input = reshaped(0, box);
    }
    const size_t element = sliced(input, std::vector<AxisPart>(box.size(), {0, 1, 1}));
    Numbers number(ElementType::float32, {});
    number.reals()[0] = 1;
    one_ = constants_like(reshaped(element, {1, 1, 1}), number);
  }
  Extents planes = sizes;
  while (planes.size() > 3) {
    planes[1] *= planes[0];
    planes.erase(planes.begin());
  }
  while (planes.size() < 3) planes.insert(planes.begin(), 1);
  auto info = std::make_shared<runtime::ConvTranspose2dInfo>();
  info->in_channels = 1;
  info->out_channels = narrow_u16(planes[0], "size of a constant");
  info->kernel_y = narrow_u16(planes[1], "size of a constant");
  info->kernel_x = narrow_u16(planes[2], "size of a constant");
  info->stride_x = info->stride_y = info->dilation_x = info->dilation_y = info->groups = 1;
  info->padding_l = info->padding_r = narrow_i16(planes[2] - 1, "size of a constant");
  info->padding_t = info->padding_b = narrow_i16(planes[1] - 1, "size of a constant");
  info->if_bias = false;
  info->weight = blob_of(numbers);
  const char* kernel = "ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1";
  return reshaped(plan_.add(std::move(info), kernel, {*one_}), sizes);
}

}  // namespace marlo::toolkit
