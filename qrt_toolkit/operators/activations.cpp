#include <cmath>
#include <limits>

#include "qrt_toolkit/operators/groups.h"
#include "qrt_toolkit/operators/inference.h"
#include "qrt_toolkit/operators/strided.h"

// Functions of one number with constants of their own.

namespace marlo::toolkit {
namespace {

template <class Function>
Results each(const Operands& inputs, Function&& function) {
  Numbers result = inputs[0];
  for (double& number : result.reals()) number = function(number);
  return {std::move(result)};
}

Results leaky_relu(const Node& node, const Operands& inputs) {
  const double alpha = node.real("alpha", 0.01);
  return each(inputs, [&](double x) { return x < 0 ? alpha * x : x; });
}

Results elu(const Node& node, const Operands& inputs) {
  const double alpha = node.real("alpha", 1);
  return each(inputs, [&](double x) { return x < 0 ? alpha * std::expm1(x) : x; });
}

Results celu(const Node& node, const Operands& inputs) {
  const double alpha = node.real("alpha", 1);
  return each(inputs, [&](double x) { return x < 0 ? alpha * std::expm1(x / alpha) : x; });
}

Results selu(const Node& node, const Operands& inputs) {
  const double alpha = node.real("alpha", 1.67326319217681884765625);
  const double gamma = node.real("gamma", 1.05070102214813232421875);
  return each(inputs, [&](double x) { return gamma * (x > 0 ? x : alpha * std::expm1(x)); });
}

Results hard_sigmoid(const Node& node, const Operands& inputs) {
  const double alpha = node.real("alpha", 0.2);
  const double beta = node.real("beta", 0.5);
  return each(inputs, [&](double x) { return std::fmax(0, std::fmin(1, alpha * x + beta)); });
}

Results thresholded_relu(const Node& node, const Operands& inputs) {
  const double alpha = node.real("alpha", 1);
  return each(inputs, [&](double x) { return x > alpha ? x : 0.0; });
}

Results shrink(const Node& node, const Operands& inputs) {
  const double bias = node.real("bias", 0);
  const double lambda = node.real("lambd", 0.5);
  return each(inputs, [&](double x) { return x < -lambda ? x + bias : x > lambda ? x - bias : 0; });
}

Results swish(const Node& node, const Operands& inputs) {
  const double alpha = node.real("alpha", 1);
  return each(inputs, [&](double x) { return x / (1 + std::exp(-alpha * x)); });
}

Results gelu(const Node& node, const Operands& inputs) {
  const std::string form = node.text("approximate", "none");
  if (form == "tanh") {
    return each(inputs, [](double x) {
      return 0.5 * x * (1 + std::tanh(std::sqrt(M_2_PI) * (x + 0.044715 * x * x * x)));
    });
  }
  if (form != "none") throw NodeFault{"approximate", "expected \"none\" or \"tanh\""};
  return each(inputs, [](double x) { return 0.5 * x * (1 + std::erf(x * M_SQRT1_2)); });
}

Results is_inf(const Node& node, const Operands& inputs) {
  const bool positive = node.integer("detect_positive", 1) != 0;
  const bool negative = node.integer("detect_negative", 1) != 0;
  Numbers result(ElementType::boolean, inputs[0].shape);
  const Numbers::Reals& numbers = inputs[0].reals();
  for (size_t i = 0; i < numbers.size(); ++i) {
    result.integers()[i] = std::isinf(numbers[i]) && (numbers[i] > 0 ? positive : negative);
  }
  return {std::move(result)};
}

void infer_answer(ShapeStep& step) { step.set(0, ElementType::boolean, step.input(0).shape); }

template <class T>
T bound(const Operands& inputs, size_t place, T otherwise) {
  if (!inputs.has(place)) return otherwise;
  if (inputs[place].count() != 1)
    throw NodeFault{"input " + std::to_string(place), "expected one number"};
  return static_cast<T>(
      std::visit([](const auto& v) { return static_cast<T>(v[0]); }, inputs[place].data));
}

// The upper bound holds where it is below the lower one.
Results clip(const Node&, const Operands& inputs) {
  Numbers result = inputs[0];
  std::visit(
      [&](auto& numbers) {
        using T = typename std::decay_t<decltype(numbers)>::value_type;
        const T low = bound(inputs, 1, std::numeric_limits<T>::lowest());
        const T high = bound(inputs, 2, std::numeric_limits<T>::max());
        for (T& x : numbers) {
          if (x < low) x = low;
          if (x > high) x = high;
        }
      },
      result.data);
  return {std::move(result)};
}

/// The shape by which a slope is broadcast: of one axis it is one per channel in the oldest form.
Extents slope_shape(const Node& node, const Extents& slope, size_t rank) {
  if (node.integer("channel_slope", 0) == 0 || slope.size() != 1 || rank < 2) return slope;
  Extents shape(rank - 1, 1);
  shape[0] = slope[0];
  return shape;
}

Results prelu(const Node& node, const Operands& inputs) {
  Numbers result = inputs[0];
  const Extents slope = slope_shape(node, inputs[1].shape, result.shape.size());
  if (broadcast_of(result.shape, slope) != result.shape) {
    throw NodeFault{"input 1", "slopes of shape " + text_of(inputs[1].shape) +
                                   " don't fit an input of " + text_of(result.shape)};
  }
  const Extents own = strides_of(result.shape);
  for_each_row<2>(result.shape, {own, broadcast_strides(slope, result.shape)},
                  [&](const auto& at, int64_t count, const auto& steps) {
                    std::visit(
                        [&](auto& numbers, const auto& slopes) {
                          using T = typename std::decay_t<decltype(numbers)>::value_type;
                          for (int64_t i = 0; i < count; ++i) {
                            T& x = numbers[static_cast<size_t>(at[0] + i * steps[0])];
                            const auto factor = slopes[static_cast<size_t>(at[1] + i * steps[1])];
                            if (x < 0) x = static_cast<T>(x * static_cast<T>(factor));
                          }
                        },
                        result.data, inputs[1].data);
                  });
  return {std::move(result)};
}

}  // namespace

std::span<const Operator> activation_operators() {
  static constexpr Operator kRows[] = {
      {"Celu", 12, celu, infer_same},
      {"Clip", 6, clip, infer_same},
      {"Elu", 6, elu, infer_same},
      {"Gelu", 20, gelu, infer_same},
      {"HardSigmoid", 6, hard_sigmoid, infer_same},
      {"IsInf", 10, is_inf, infer_answer},
      {"LeakyRelu", 6, leaky_relu, infer_same},
      {"PRelu", 6, prelu, infer_same},
      {"Selu", 6, selu, infer_same},
      {"Shrink", 9, shrink, infer_same},
      {"Swish", 24, swish, infer_same},
      {"ThresholdedRelu", 10, thresholded_relu, infer_same},
  };
  return kRows;
}

}  // namespace marlo::toolkit
