#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "qrt_toolkit/operators/groups.h"
#include "qrt_toolkit/operators/inference.h"

// Numbers as whole multiples of a scale, and back. Layers don't compute with them: weights that are
// kept so become float constants.

namespace marlo::toolkit {
namespace {

/// Which scale belongs to each element: one for all, one for each along an axis, or one for each block
/// of that axis.
struct Scales {
  int64_t inner = 1;        ///< elements behind the axis
  int64_t size = 1;         ///< of the axis
  int64_t block = 1;        ///< neighbours along the axis that share a scale
  int64_t blocks = 1;       ///< of the axis
  bool one = false;         ///< for all
  bool is_blocked = false;  ///< scales have all axes of the tensor

  size_t of(int64_t element) const {
    if (one) return 0;
    const int64_t place = element / inner % size / block;
    return static_cast<size_t>(
        is_blocked ? (element / (inner * size) * blocks + place) * inner + element % inner : place);
  }
};

Scales scales_of(const Node& node, const Extents& shape, const Extents& scale) {
  Scales scales;
  scales.one = count_of(scale) == 1;
  if (scales.one) return scales;
  const size_t axis = axis_from_front(node.integer("axis", 1), shape.size());
  scales.size = shape[axis];
  scales.inner = strides_of(shape)[axis];
  const int64_t block = node.integer("block_size", 0);
  if (scale.size() == 1) {
    if (scale[0] != scales.size) {
      throw NodeFault{"input 1", "expected one scale, or one for each of " +
                                     std::to_string(scales.size) + ", found " +
                                     std::to_string(scale[0])};
    }
    return scales;
  }
  scales.is_blocked = true;
  scales.block = block;
  bool fits = scale.size() == shape.size() && block > 0;
  for (size_t i = 0; fits && i < shape.size(); ++i) {
    if (i == axis) scales.blocks = (shape[i] - 1) / block + 1;
    fits = scale[i] == (i == axis ? scales.blocks : shape[i]);
  }
  if (!fits) {
    throw NodeFault{"input 1", "scales of " + text_of(scale) + " don't fit a tensor of " +
                                   text_of(shape) + " in blocks of " + std::to_string(block)};
  }
  return scales;
}

/// The zero points, one per scale; zeros where none are given.
std::vector<double> zero_points(const Operands& inputs) {
  std::vector<double> zeros(static_cast<size_t>(inputs[1].count()), 0.0);
  if (!inputs.has(2)) return zeros;
  if (inputs[2].count() != inputs[1].count()) {
    throw NodeFault{"input 2", "expected as many zero points as scales"};
  }
  for (size_t i = 0; i < zeros.size(); ++i) zeros[i] = inputs[2].real(i);
  return zeros;
}

Results dequantize(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  const Scales scales = scales_of(node, x.shape, inputs[1].shape);
  const std::vector<double> zeros = zero_points(inputs);
  Numbers result(inputs[1].type, x.shape);
  for (int64_t i = 0; i < x.count(); ++i) {
    const size_t scale = scales.of(i);
    const double whole = x.real(static_cast<size_t>(i)) - zeros[scale];
    result.reals()[static_cast<size_t>(i)] = round_to(result.type, whole * inputs[1].real(scale));
  }
  return {std::move(result)};
}

void infer_dequantize(ShapeStep& step) { step.set(0, step.input(1).type, step.input(0).shape); }

/// What a node makes: what it says, or what its zero points are.
ElementType quantized_type(const Node& node, ElementType zero_point) {
  if (node.has("output_dtype")) {
    return static_cast<ElementType>(node.integer("output_dtype", 0));
  }
  return zero_point == ElementType::undefined ? ElementType::uint8 : zero_point;
}

/// The smallest and the largest number of a narrow integer type.
std::pair<double, double> bounds_of(ElementType type) {
  const bool is_signed = type == ElementType::int8 || type == ElementType::int16;
  const bool is_known = is_signed || type == ElementType::uint8 || type == ElementType::uint16;
  if (!is_known) throw NodeFault{"output", std::string(name_of(type)) + " isn't supported"};
  const double count = std::ldexp(1.0, static_cast<int>(size_of(type)) * 8);
  return is_signed ? std::pair(-count / 2, count / 2 - 1) : std::pair(0.0, count - 1);
}

Results quantize(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  const Scales scales = scales_of(node, x.shape, inputs[1].shape);
  const std::vector<double> zeros = zero_points(inputs);
  const ElementType type =
      quantized_type(node, inputs.has(2) ? inputs[2].type : ElementType::undefined);
  const auto [least, most] = bounds_of(type);
  Numbers result(type, x.shape);
  for (int64_t i = 0; i < x.count(); ++i) {
    const size_t scale = scales.of(i);
    // To the nearest, ties to even, of a quotient in the numbers' own precision.
    const double number = round_to(x.type, x.real(static_cast<size_t>(i)));
    const double quotient = round_to(x.type, number / round_to(x.type, inputs[1].real(scale)));
    const double whole = std::nearbyint(quotient);
    const double held = std::clamp(whole + zeros[scale], least, most);
    result.integers()[static_cast<size_t>(i)] = std::isnan(held) ? 0 : static_cast<int64_t>(held);
  }
  return {std::move(result)};
}

void infer_quantize(ShapeStep& step) {
  const ElementType zero_point = step.has(2) ? step.input(2).type : ElementType::undefined;
  step.set(0, quantized_type(step.node, zero_point), step.input(0).shape);
}

}  // namespace

std::span<const Operator> quantization_operators() {
  static constexpr Operator kRows[] = {
      {"DequantizeLinear", 10, dequantize, infer_dequantize,
       "weights: all that it reads is constant"},
      {"QuantizeLinear", 10, quantize, infer_quantize, "weights: all that it reads is constant"},
  };
  return kRows;
}

}  // namespace marlo::toolkit
