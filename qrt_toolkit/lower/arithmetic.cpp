#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>
#include <utility>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_toolkit/lower/groups.h"
#include "qrt_toolkit/operators/strided.h"

// Activations, and sums and products of tensors with each other and with constants.

namespace marlo::toolkit {
namespace {

Numbers scalar(double number) {
  Numbers result(ElementType::float32, {});
  result.reals()[0] = number;
  return result;
}

template <const char* const& kernel>
void lower_activation(Lowering& lowering) {
  lowering.result(lowering.activated(kernel, lowering.input(0)));
}

constexpr const char* kReLU = "ReLU_Fallback_Float_M1";
constexpr const char* kSigmoid = "Sigmoid_Fallback_Float_M1";
constexpr const char* kTanH = "TanH_Fallback_Float_M1";
constexpr const char* kHSwish = "HSwish_Fallback_Float_M1";

/// Slopes below zero: x above it, slope * x below, from rectifiers and weights.
size_t with_slopes(Lowering& lowering, size_t x, const Numbers& slope) {
  Numbers negative = slope;
  for (double& number : negative.reals()) number = -number;
  const size_t above = lowering.activated(kReLU, x);
  const size_t mirrored = lowering.negative(x);
  const size_t below = lowering.affine(lowering.activated(kReLU, mirrored), negative, scalar(0));
  return lowering.combined(0, above, below);
}

// The documented description holds the slope as a half.
void lower_leaky_relu(Lowering& lowering) {
  const double alpha = lowering.node().real("alpha", 0.01);
  const size_t x = lowering.input(0);
  if (!is_half(alpha) && lowering.plan().has("LeakyReLU_Fallback_Float_M1")) {
    return lowering.result(
        lowering.function(runtime::ElementFunction::LeakyReLU, "LeakyReLU", x, alpha));
  }
  lowering.result(is_half(alpha)
                      ? lowering.activated("Leaky_Fallback_Float_M1", x, static_cast<float>(alpha))
                      : with_slopes(lowering, x, scalar(alpha)));
}

void lower_prelu(Lowering& lowering) {
  if (lowering.is_tensor(1)) {
    return lowering.result(lowering.binary(runtime::BinaryFunction::PReLU));
  }
  const SharedNumbers given = lowering.required_constant(1);
  if (lowering.node().integer("channel_slope", 0) != 0 && given->count() != 1) {
    // Slopes belong to the second axis, which is the first one behind a batch.
    Numbers per_channel = *given;
    per_channel.shape.assign(lowering.input_sizes(0).size(), 1);
    per_channel.shape.at(lowering.axis_of_input(0, 1)) = given->count();
    return lowering.result(with_slopes(lowering, lowering.input(0), per_channel));
  }
  lowering.result(with_slopes(lowering, lowering.input(0), *lowering.aligned_constant(1)));
}

/// min(max(x, low), high), where a bound beyond all numbers is none.
size_t clipped(Lowering& lowering, size_t x, double low, double high) {
  constexpr double kMost = std::numeric_limits<float>::max();
  if (low == 0 && high == 6) return lowering.activated("ReLU6_Fallback_Float_M1", x);
  if (low == 0 && high >= kMost) return lowering.activated(kReLU, x);
  if (low <= -kMost && high >= kMost) return x;
  if (lowering.has_second_set() && (std::isinf(low) || std::isinf(high))) {
    if (low > -kMost) x = lowering.binary(runtime::BinaryFunction::Max, x, scalar(low));
    if (high < kMost) x = lowering.binary(runtime::BinaryFunction::Min, x, scalar(high));
    return x;
  }
  if (lowering.has_second_set()) {
    return lowering.function(runtime::ElementFunction::Clip, "Clip", x, low, high);
  }
  if (low == 0) {
    x = lowering.activated(kReLU, x);
  } else if (low > -kMost) {
    x = lowering.combined(4, x, lowering.constants_like(x, scalar(low)));
  }
  if (high < kMost) x = lowering.combined(5, x, lowering.constants_like(x, scalar(high)));
  return x;
}

void lower_clip(Lowering& lowering) {
  constexpr double kMost = std::numeric_limits<float>::max();
  const auto bound = [&](size_t place, double otherwise) {
    if (!lowering.node().has_input(place)) return otherwise;
    return lowering.required_number(place);
  };
  lowering.result(clipped(lowering, lowering.input(0), bound(1, -kMost), bound(2, kMost)));
}

void lower_hard_sigmoid(Lowering& lowering) {
  const double alpha = lowering.node().real("alpha", 0.2);
  const double beta = lowering.node().real("beta", 0.5);
  const bool own = static_cast<float>(alpha) == 1.0f / 6 && beta == 0.5;
  if (own) {
    return lowering.result(lowering.activated("HSigmoid_Fallback_Float_M1", lowering.input(0)));
  }
  if (lowering.plan().has("HardSigmoid_Fallback_Float_M1")) {
    return lowering.result(lowering.function(runtime::ElementFunction::HardSigmoid, "HardSigmoid",
                                             lowering.input(0), alpha, beta));
  }
  const size_t line = lowering.affine(lowering.input(0), scalar(alpha), scalar(beta));
  lowering.result(clipped(lowering, line, 0, 1));
}

void lower_swish(Lowering& lowering) {
  const double alpha = lowering.node().real("alpha", 1);
  const size_t x = lowering.input(0);
  if (lowering.has_second_set()) {
    return lowering.result(
        alpha == 1 ? lowering.function(runtime::ElementFunction::SiLU, "SiLU", x)
                   : lowering.function(runtime::ElementFunction::Swish, "Swish", x, alpha));
  }
  const size_t line = alpha == 1 ? x : lowering.affine(x, scalar(alpha), scalar(0));
  lowering.result(lowering.combined(2, x, lowering.activated(kSigmoid, line)));
}

void lower_negative(Lowering& lowering) { lowering.result(lowering.negative(lowering.input(0))); }

void lower_absolute(Lowering& lowering) { lowering.result(lowering.absolute(lowering.input(0))); }

void lower_reciprocal(Lowering& lowering) {
  const size_t x = lowering.input(0);
  if (lowering.has_second_set()) {
    return lowering.result(
        lowering.function(runtime::ElementFunction::Reciprocal, "Reciprocal", x));
  }
  lowering.result(lowering.combined(3, lowering.constants_like(x, scalar(1)), x));
}

void lower_softsign(Lowering& lowering) {
  const size_t x = lowering.input(0);
  if (lowering.has_second_set()) {
    return lowering.result(lowering.function(runtime::ElementFunction::Softsign, "Softsign", x));
  }
  const size_t divisor = lowering.affine(lowering.absolute(x), scalar(1), scalar(1));
  lowering.result(lowering.combined(3, x, divisor));
}

/// The constant where the mask is one, and zero elsewhere.
Numbers chosen_of(const Numbers& constant, const Numbers& mask, const Extents& box) {
  Numbers result(ElementType::float32, box);
  for_each_row<3>(
      box,
      {strides_of(box), broadcast_strides(constant.shape, box), broadcast_strides(mask.shape, box)},
      [&](const auto& at, int64_t count, const auto& steps) {
        for (int64_t i = 0; i < count; ++i) {
          if (mask.real(static_cast<size_t>(at[2] + i * steps[2])) == 0) continue;
          result.reals()[static_cast<size_t>(at[0] + i)] =
              constant.real(static_cast<size_t>(at[1] + i * steps[1]));
        }
      });
  return result;
}

/// What a side of Where is, as layers make it.
size_t side_of(Lowering& lowering, size_t place) {
  const SharedNumbers constant = lowering.aligned_constant(place);
  if (constant == nullptr) return lowering.input(place);
  return lowering.constant_tensor(*constant,
                                  constant->shape.empty() ? Extents{1} : constant->shape);
}

/// Where a tensor of zeros and ones chooses. Each side is nothing where the other one is chosen,
/// whatever it holds there: no number times zero might be none.
void lower_open_where(Lowering& lowering) {
  using runtime::BinaryFunction;
  const auto chosen_by = [&](size_t mask, size_t place) {
    const SharedNumbers constant = lowering.aligned_constant(place);
    return constant == nullptr
               ? lowering.binary(BinaryFunction::Select, mask, lowering.input(place))
               : lowering.binary(BinaryFunction::Select, mask, *constant);
  };
  const size_t mask = lowering.input(0);
  const size_t other = lowering.function(runtime::ElementFunction::Not, "Not", mask);
  const size_t first = chosen_by(mask, 1);
  lowering.result(lowering.binary(BinaryFunction::Add, first, chosen_by(other, 2)));
}

/// The same by masks that are constants; a finite constant is put in where it is chosen.
void lower_known_where(Lowering& lowering, const Numbers (&masks)[2]) {
  using runtime::BinaryFunction;
  const auto chosen = [&](size_t own) {
    return lowering.binary(BinaryFunction::Select, side_of(lowering, own + 1), masks[own], true);
  };
  for (const size_t own : {size_t{0}, size_t{1}}) {
    const SharedNumbers other = lowering.aligned_constant(2 - own);
    if (other == nullptr || !is_finite(*other)) continue;
    const Extents box = broadcast_of(other->shape, masks[own].shape);
    return lowering.result(
        lowering.binary(BinaryFunction::Add, chosen(own), chosen_of(*other, masks[1 - own], box)));
  }
  const size_t first = chosen(0);
  lowering.result(lowering.binary(BinaryFunction::Add, first, chosen(1)));
}

/// Where a constant chooses: each side by a mask of zeros and ones, which documented kernels multiply
/// it with.
void lower_where(Lowering& lowering) {
  const SharedNumbers chosen = lowering.aligned_constant(0);
  if (chosen == nullptr) return lower_open_where(lowering);
  Numbers masks[2] = {Numbers(ElementType::float32, chosen->shape),
                      Numbers(ElementType::float32, chosen->shape)};
  for (size_t i = 0; i < masks[0].reals().size(); ++i) {
    masks[chosen->integer(i) != 0 ? 0 : 1].reals()[i] = 1;
  }
  if (lowering.has_second_set()) return lower_known_where(lowering, masks);
  const Extents sizes = lowering.output_sizes();
  const auto side = [&](size_t place) { return lowering.expanded(lowering.input(place), sizes); };
  for (const size_t own : {size_t{0}, size_t{1}}) {
    const SharedNumbers other = lowering.aligned_constant(2 - own);
    if (other == nullptr) continue;
    // A constant is put in where it is chosen, so that it may be infinite.
    const Extents box = broadcast_of(other->shape, chosen->shape);
    return lowering.result(
        lowering.affine(side(own + 1), masks[own], chosen_of(*other, masks[1 - own], box)));
  }
  lowering.result(lowering.combined(0, lowering.affine(side(1), masks[0], scalar(0)),
                                    lowering.affine(side(2), masks[1], scalar(0))));
}

Numbers mapped(Numbers numbers, double (*function)(double)) {
  for (double& number : numbers.reals()) number = function(number);
  return numbers;
}

/// What `with_constant` computes: of the documented operations, those that the second set has.
runtime::BinaryFunction function_of(uint16_t operation) {
  using F = runtime::BinaryFunction;
  constexpr F kFunctions[] = {F::Add, F::Sub, F::Mul, F::Div, F::Max, F::Min};
  return kFunctions[operation];
}

/// Whether a constant is one for each channel of planes, which convolutions take in blocks as well.
bool is_of_channels(const Numbers& constant, const Extents& sizes) {
  return sizes.size() == 3 && constant.shape.size() == 3 && constant.shape[0] == sizes[0] &&
         constant.count() == sizes[0];
}

/// A single number is a line's slope or shift.
size_t with_number(Lowering& lowering, uint16_t operation, size_t x, double number,
                   bool constant_first) {
  double slope = operation == 2 ? number : 1;
  if (operation == 1 && constant_first) slope = -1;
  double shift = operation == 2 ? 0 : number;
  if (operation == 1 && !constant_first) shift = -number;
  return lowering.function(runtime::ElementFunction::ScaleShift, "ScaleShift", x, slope, shift);
}

/// A tensor and a constant: the constant becomes weights.
size_t with_constant(Lowering& lowering, uint16_t operation, size_t x, const Numbers& constant,
                     bool constant_first) {
  const Extents sizes = lowering.sizes_of_layer(x);
  if (lowering.has_second_set() && (operation > 2 || !is_of_channels(constant, sizes))) {
    if (operation <= 2 && constant.count() == 1 && is_finite(constant) &&
        constant.shape.size() <= sizes.size()) {
      return with_number(lowering, operation, x, constant.real(0), constant_first);
    }
    return lowering.binary(function_of(operation), x, constant, constant_first);
  }
  const Extents both = broadcast_of(constant.shape, sizes);
  if (both != sizes) x = lowering.expanded(x, both);
  switch (operation) {
    case 0:
      return lowering.affine(x, scalar(1), constant);
    case 1:
      if (constant_first) return lowering.affine(x, scalar(-1), constant);
      return lowering.affine(x, scalar(1), mapped(constant, [](double c) { return -c; }));
    case 2:
      return lowering.affine(x, constant, scalar(0));
    case 3:
      if (constant_first) {
        return lowering.combined(3, lowering.constants_like(x, constant), x);
      }
      // A quotient is rounded once, a product with the rounded reciprocal twice.
      return lowering.combined(3, x, lowering.constants_like(x, constant));
    default:
      return lowering.combined(operation, x, lowering.constants_like(x, constant));
  }
}

void lower_two(Lowering& lowering, uint16_t operation) {
  const SharedNumbers a = lowering.aligned_constant(0);
  const SharedNumbers b = lowering.aligned_constant(1);
  if (a != nullptr) {
    lowering.result(with_constant(lowering, operation, lowering.input(1), *a, true));
  } else if (b != nullptr) {
    lowering.result(with_constant(lowering, operation, lowering.input(0), *b, false));
  } else {
    lowering.result(lowering.combined(operation, lowering.input(0), lowering.input(1)));
  }
}

void lower_sub(Lowering& lowering) { lower_two(lowering, 1); }
void lower_div(Lowering& lowering) { lower_two(lowering, 3); }

/// Any number of inputs, one after the other.
size_t lower_many(Lowering& lowering, uint16_t operation) {
  const size_t count = lowering.node().inputs.size();
  size_t first = 0;
  while (first < count && !lowering.is_tensor(first)) ++first;
  size_t result = lowering.input(first);
  for (size_t i = 0; i < count; ++i) {
    if (i == first) continue;
    const SharedNumbers constant = lowering.aligned_constant(i);
    result = constant != nullptr ? with_constant(lowering, operation, result, *constant, false)
                                 : lowering.combined(operation, result, lowering.input(i));
  }
  return result;
}

template <uint16_t operation>
void lower_symmetric(Lowering& lowering) {
  lowering.result(lower_many(lowering, operation));
}

void lower_mean(Lowering& lowering) {
  const auto count = static_cast<double>(lowering.node().inputs.size());
  lowering.result(with_constant(lowering, 3, lower_many(lowering, 0), scalar(count), false));
}

void lower_pow(Lowering& lowering) {
  const SharedNumbers exponent = lowering.constant(1);
  const bool is_one = exponent != nullptr && exponent->count() == 1 && is_finite(*exponent);
  if (!is_one) return lowering.result(lowering.binary(runtime::BinaryFunction::Pow));
  constexpr double kMostFactors = 8;
  const double power = exponent->real(0);
  const bool few = std::abs(power) <= kMostFactors && power == std::floor(power);
  const int whole = few ? static_cast<int>(std::abs(power)) : 0;
  if (whole < 1) {
    if (power == 0.5) {
      return lowering.result(
          lowering.function(runtime::ElementFunction::Sqrt, "Sqrt", lowering.input(0)));
    }
    return lowering.result(
        lowering.function(runtime::ElementFunction::Pow, "Pow", lowering.input(0), power));
  }
  const size_t x = lowering.input(0);
  size_t result = x;
  for (int i = 1; i < whole; ++i) result = lowering.combined(2, result, x);
  if (power < 0) result = with_constant(lowering, 3, result, scalar(1), true);
  lowering.result(result);
}

void lower_batch_normalization(Lowering& lowering) {
  const auto list = [&](size_t place) { return lowering.required_constant(place)->reals(); };
  const double epsilon = lowering.node().real("epsilon", 1e-5);
  const auto [gamma, beta, mean, variance] = std::tuple(list(1), list(2), list(3), list(4));
  Extents shape(lowering.input_sizes(0).size(), 1);
  shape[0] = static_cast<int64_t>(gamma.size());
  Numbers scale(ElementType::float32, shape);
  Numbers shift(ElementType::float32, shape);
  for (size_t c = 0; c < gamma.size(); ++c) {
    scale.reals()[c] = gamma[c] / std::sqrt(variance.at(c) + epsilon);
    shift.reals()[c] = beta.at(c) - mean.at(c) * scale.reals()[c];
  }
  lowering.result(lowering.affine(lowering.input(0), scale, shift));
}

}  // namespace

size_t Lowering::constants_like(size_t layer, const Numbers& numbers) {
  return affine(layer, scalar(0), numbers);
}

size_t Lowering::combined(uint16_t operation, size_t a, size_t b) {
  if (plan_.shape(a).dims == plan_.shape(b).dims && operation <= 3) {
    auto info = std::make_shared<runtime::ElementWiseOperatorInfo>();
    info->op_type = operation;
    return plan_.add(std::move(info), "Elementwise_Fallback_Float_M1", {a, b});
  }
  // Of no number at all the documented kernel makes the other one, and of infinity a large one.
  if (operation > 3 && has_second_set()) return binary(function_of(operation), a, b);
  auto info = std::make_shared<runtime::BroadcastOperatorInfo>();
  info->op_type = operation;
  return plan_.add(std::move(info), "BroadcastOperator_Fallback_Float_M1", {a, b});
}

size_t Lowering::negative(size_t layer) {
  if (has_second_set()) return function(runtime::ElementFunction::Neg, "Neg", layer);
  return affine(layer, scalar(-1), scalar(0));
}

size_t Lowering::absolute(size_t layer) {
  if (has_second_set()) return function(runtime::ElementFunction::Abs, "Abs", layer);
  return combined(4, layer, negative(layer));
}

size_t Lowering::activated(const char* kernel, size_t layer, float alpha, float beta) {
  constexpr uint16_t kRectifier = 2;
  constexpr uint16_t kTangent = 5;
  auto info = std::make_shared<runtime::ActivationInfo>();
  // A label, for checks: kernels of other functions say that it isn't theirs, and nothing behind a
  // rectifier is below zero.
  if (std::string_view(kernel) == kReLU) info->activation_type = kRectifier;
  if (std::string_view(kernel) == kTanH) info->activation_type = kTangent;
  info->activation_alpha = alpha;
  info->activation_beta = beta;
  return plan_.add(std::move(info), kernel, {layer});
}

SharedNumbers Lowering::aligned_constant(size_t place) const {
  SharedNumbers numbers = constant(place);
  if (numbers == nullptr || node_->outputs.empty()) return numbers;
  const ValueId output = node_->outputs[0];
  const auto batch = batch_[static_cast<size_t>(output)];
  const auto& shape = facts_of(output).shape;
  if (!batch || !shape || numbers->shape.size() + *batch < shape->size()) return numbers;
  Numbers aligned = *numbers;
  const size_t axis = *batch + numbers->shape.size() - shape->size();
  if (aligned.shape[axis] != 1) {
    throw NodeFault{"input " + std::to_string(place), "a constant that differs along the batch"};
  }
  aligned.shape.erase(aligned.shape.begin() + static_cast<std::ptrdiff_t>(axis));
  return std::make_shared<const Numbers>(std::move(aligned));
}

std::span<const LoweringRow> arithmetic_lowerings() {
  static constexpr LoweringRow kRows[] = {
      {"Abs", lower_absolute},
      {"Add", lower_symmetric<0>},
      {"BatchNormalization", lower_batch_normalization, "constant statistics"},
      {"Clip", lower_clip, "constant bounds"},
      {"Div", lower_div},
      {"HardSigmoid", lower_hard_sigmoid},
      {"HardSwish", lower_activation<kHSwish>},
      {"LeakyRelu", lower_leaky_relu},
      {"Max", lower_symmetric<4>},
      {"Mean", lower_mean},
      {"Min", lower_symmetric<5>},
      {"Mul", lower_symmetric<2>},
      {"Neg", lower_negative},
      {"PRelu", lower_prelu},
      {"Pow", lower_pow},
      {"Reciprocal", lower_reciprocal},
      {"Relu", lower_activation<kReLU>},
      {"Sigmoid", lower_activation<kSigmoid>},
      {"Softsign", lower_softsign},
      {"Sub", lower_sub},
      {"Sum", lower_symmetric<0>},
      {"Swish", lower_swish},
      {"Tanh", lower_activation<kTanH>},
      {"Where", lower_where},
  };
  return kRows;
}

}  // namespace marlo::toolkit
