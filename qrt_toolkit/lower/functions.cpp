#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <string>
#include <utility>

#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/model/layers.h"
#include "qrt_toolkit/lower/groups.h"

// Operators that the second set of kernels computes as they are: functions of every number, of two
// tensors, normalizations, and products of two tensors.

namespace marlo::toolkit {
namespace {

using runtime::AxisReduction;
using runtime::BinaryFunction;
using runtime::ElementFunction;

constexpr const char* kBinary = "Binary_Fallback_Float_M1";

/// A function of every number. The kernel has the name of the function.
struct FunctionOf {
  std::string_view op;
  ElementFunction function;
  const char* kernel;
  const char* alpha = nullptr;  ///< the attribute that is its first parameter
  double alpha_otherwise = 1;
  const char* beta = nullptr;  ///< and its second
  double beta_otherwise = 0;
};

constexpr FunctionOf kFunctions[] = {
    {"Acos", ElementFunction::Acos, "Acos"},
    {"Acosh", ElementFunction::Acosh, "Acosh"},
    {"Asin", ElementFunction::Asin, "Asin"},
    {"Asinh", ElementFunction::Asinh, "Asinh"},
    {"Atan", ElementFunction::Atan, "Atan"},
    {"Atanh", ElementFunction::Atanh, "Atanh"},
    {"Ceil", ElementFunction::Ceil, "Ceil"},
    {"Celu", ElementFunction::Celu, "Celu", "alpha", 1},
    {"Cos", ElementFunction::Cos, "Cos"},
    {"Cosh", ElementFunction::Cosh, "Cosh"},
    {"Elu", ElementFunction::Elu, "Elu", "alpha", 1},
    {"Erf", ElementFunction::Erf, "Erf"},
    {"Exp", ElementFunction::Exp, "Exp"},
    {"Floor", ElementFunction::Floor, "Floor"},
    {"IsNaN", ElementFunction::IsNaN, "IsNaN"},
    {"Log", ElementFunction::Log, "Log"},
    {"Mish", ElementFunction::Mish, "Mish"},
    {"Not", ElementFunction::Not, "Not"},
    {"Round", ElementFunction::Round, "Round"},
    {"Selu", ElementFunction::Selu, "Selu", "alpha", 1.67326319217681884765625, "gamma",
     1.05070102214813232421875},
    {"Shrink", ElementFunction::Shrink, "Shrink", "lambd", 0.5, "bias", 0},
    {"Sign", ElementFunction::Sign, "Sign"},
    {"Sin", ElementFunction::Sin, "Sin"},
    {"Sinh", ElementFunction::Sinh, "Sinh"},
    {"Softplus", ElementFunction::Softplus, "Softplus"},
    {"Sqrt", ElementFunction::Sqrt, "Sqrt"},
    {"Tan", ElementFunction::Tan, "Tan"},
    {"ThresholdedRelu", ElementFunction::ThresholdedReLU, "ThresholdedReLU", "alpha", 1},
};

void lower_function(Lowering& lowering) {
  const Node& node = lowering.node();
  const auto* row = std::find_if(std::begin(kFunctions), std::end(kFunctions),
                                 [&](const FunctionOf& one) { return one.op == node.op; });
  const double alpha = row->alpha == nullptr ? 1 : node.real(row->alpha, row->alpha_otherwise);
  const double beta = row->beta == nullptr ? 0 : node.real(row->beta, row->beta_otherwise);
  lowering.result(lowering.function(row->function, row->kernel, lowering.input(0), alpha, beta));
}

/// x (1 + tanh(c x + 0.044715 c x^3)) / 2 by documented kernels.
size_t plain_gelu(Lowering& lowering, size_t x) {
  const double slope = std::sqrt(2 / std::acos(-1.0));
  const auto scalar = [](double number) {
    Numbers one(ElementType::float32, {});
    one.reals()[0] = number;
    return one;
  };
  const size_t cube = lowering.combined(2, lowering.combined(2, x, x), x);
  const size_t line = lowering.affine(x, scalar(slope), scalar(0));
  const size_t bent = lowering.affine(cube, scalar(0.044715 * slope), scalar(0));
  const size_t gate =
      lowering.activated("TanH_Fallback_Float_M1", lowering.combined(0, line, bent));
  return lowering.combined(2, x, lowering.affine(gate, scalar(0.5), scalar(0.5)));
}

void lower_gelu(Lowering& lowering) {
  const bool tanh = lowering.node().text("approximate", "none") == "tanh";
  if (tanh && !lowering.has_second_set()) {
    return lowering.result(plain_gelu(lowering, lowering.input(0)));
  }
  lowering.result(lowering.function(tanh ? ElementFunction::GELUTanh : ElementFunction::GELU,
                                    tanh ? "GELUTanh" : "GELU", lowering.input(0)));
}

// A truth is 1 or 0, and whole numbers are those of float32.
void lower_cast(Lowering& lowering) {
  const ElementType from = lowering.input_type(0);
  const ElementType to = lowering.output_type();
  const size_t x = lowering.input(0);
  if (is_real(to) || to == from || from == ElementType::boolean) return lowering.result(x);
  if (to == ElementType::boolean) {
    const size_t zero = lowering.function(ElementFunction::Not, "Not", x);
    return lowering.result(lowering.function(ElementFunction::Not, "Not", zero));
  }
  if (to != ElementType::int32 && to != ElementType::int64) {
    throw NodeFault{"to", std::string("numbers that aren't known don't wrap to ") + name_of(to)};
  }
  if (!is_real(from)) return lowering.result(x);
  // Towards zero.
  const size_t whole = lowering.function(ElementFunction::Floor, "Floor", lowering.absolute(x));
  lowering.result(lowering.binary(BinaryFunction::Mul, whole,
                                  lowering.function(ElementFunction::Sign, "Sign", x)));
}

/// Two tensors, of which one may be a constant.
template <BinaryFunction function>
void lower_binary(Lowering& lowering) {
  lowering.result(lowering.binary(function));
}

void lower_is_infinite(Lowering& lowering) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const bool negative = lowering.node().integer("detect_negative", 1) != 0;
  const bool positive = lowering.node().integer("detect_positive", 1) != 0;
  const size_t x = lowering.input(0);
  Numbers bound(ElementType::float32, {});
  bound.reals()[0] = positive ? kInfinity : -kInfinity;
  // Nothing is like no number.
  if (!negative && !positive) bound.reals()[0] = std::numeric_limits<double>::quiet_NaN();
  lowering.result(lowering.binary(BinaryFunction::Equal,
                                  negative && positive ? lowering.absolute(x) : x, bound));
}

// The remainder has the sign of the dividend with fmod, and of the divisor without.
void lower_mod(Lowering& lowering) {
  if (lowering.node().integer("fmod", 0) == 0) {
    throw NodeFault{"fmod", "a remainder with the sign of the divisor has no kernel"};
  }
  lowering.result(lowering.binary(BinaryFunction::Mod));
}

/// The numbers of an input one by one, as many as `count`: a single number stands for all, and one of
/// `groups` for each in its group.
Numbers as_many(const Lowering& lowering, size_t place, int64_t count, int64_t groups) {
  const Numbers numbers = *lowering.required_constant(place);
  Numbers result(ElementType::float32, {count});
  if (numbers.count() != 1 && numbers.count() != groups) {
    throw NodeFault{"input " + std::to_string(place), "expected one number, or one for each of " +
                                                          std::to_string(groups) + ", found " +
                                                          std::to_string(numbers.count())};
  }
  for (size_t i = 0; i < result.reals().size(); ++i) {
    const auto group = static_cast<int64_t>(i) * groups / count;
    result.reals()[i] = numbers.real(numbers.count() == 1 ? 0 : static_cast<size_t>(group));
  }
  return result;
}

template <class Info>
void set_scales(const Lowering& lowering, Info& info, int64_t count, int64_t groups) {
  info.scale = blob_of(as_many(lowering, 1, count, groups));
  if (lowering.node().has_input(2)) {
    info.shift = blob_of(as_many(lowering, 2, count, groups));
  }
  info.eps = as_float(lowering.node().real("epsilon", 1e-5));
}

/// The mean of each line that is normalized, and 1 over its deviation.
void lower_moments(Lowering& lowering, size_t axis) {
  std::vector<size_t> axes(lowering.input_sizes(0).size() - axis);
  std::iota(axes.begin(), axes.end(), axis);
  const auto mean = [&](size_t layer) {
    return lowering.reduced(AxisReduction::Mean, layer, axes);
  };
  const size_t x = lowering.input(0);
  const size_t centre = mean(x);
  lowering.result(centre, 1);
  const size_t apart = lowering.binary(BinaryFunction::Sub, x, centre);
  const size_t variance = mean(lowering.function(ElementFunction::Square, "Square", apart));
  const double epsilon = lowering.node().real("epsilon", 1e-5);
  const size_t sum =
      lowering.function(ElementFunction::ScaleShift, "ScaleShift", variance, 1, epsilon);
  const size_t deviation = lowering.function(ElementFunction::Sqrt, "Sqrt", sum);
  lowering.result(lowering.function(ElementFunction::Reciprocal, "Reciprocal", deviation), 2);
}

/// Of as many numbers as a line of several axes has, those of other axes are in another order.
void check_line(const Lowering& lowering, size_t place, const Extents& line) {
  if (!lowering.node().has_input(place)) return;
  const Extents found = lowering.required_constant(place)->shape;
  Extents aligned = found;
  while (aligned.size() > line.size() && aligned[0] == 1) aligned.erase(aligned.begin());
  while (aligned.size() < line.size()) aligned.insert(aligned.begin(), 1);
  if (aligned == line || count_of(found) == 1) return;
  throw NodeFault{
      "input " + std::to_string(place),
      "expected one number, or those of " + text_of(line) + ", found " + text_of(found)};
}

void lower_layer_normalization(Lowering& lowering) {
  const size_t axis = lowering.axis_of_input(0, lowering.node().integer("axis", -1));
  if (lowering.is_read(1) || lowering.is_read(2)) lower_moments(lowering, axis);
  const Extents sizes = lowering.input_sizes(0);
  const Extents line(sizes.begin() + static_cast<std::ptrdiff_t>(axis), sizes.end());
  check_line(lowering, 1, line);
  check_line(lowering, 2, line);
  auto info = std::make_shared<runtime::LayerNormInfo>();
  info->axis = static_cast<int32_t>(axis);
  const int64_t numbers = count_of(line).value_or(0);
  set_scales(lowering, *info, numbers, numbers);
  lowering.result(
      lowering.plan().add(std::move(info), "LayerNorm_Fallback_Float_M1", {lowering.input(0)}));
}

/// x over the power of a sum of squares of the channels around.
void lower_local_response(Lowering& lowering) {
  const Node& node = lowering.node();
  const size_t x = lowering.input(0);
  const int64_t channels = lowering.input_sizes(0).at(0);
  const int64_t width = node.integer("size", 0);
  if (width < 1) {
    throw NodeFault{"size",
                    "expected a positive number of channels, found " + std::to_string(width)};
  }
  Numbers band(ElementType::float32, {channels, channels});
  for (int64_t c = 0; c < channels; ++c) {
    const int64_t last = std::min(channels - 1, c + width / 2);
    for (int64_t k = std::max<int64_t>(0, c - (width - 1) / 2); k <= last; ++k) {
      band.reals()[static_cast<size_t>(c * channels + k)] = 1;
    }
  }
  const size_t squares = lowering.function(ElementFunction::Square, "Square", x);
  const size_t sums = lowering.along_axis(squares, 0, band);
  const size_t base = lowering.function(ElementFunction::ScaleShift, "ScaleShift", sums,
                                        node.real("alpha", 1e-4) / static_cast<double>(width),
                                        node.real("bias", 1));
  const size_t power =
      lowering.function(ElementFunction::Pow, "Pow", base, node.real("beta", 0.75));
  lowering.result(lowering.combined(3, x, power));
}

void lower_group_normalization(Lowering& lowering) {
  const int64_t channels = lowering.input_sizes(0).at(0);
  const bool single = lowering.node().op == "InstanceNormalization";
  const int64_t groups = single ? channels : lowering.node().integer("num_groups", 1);
  if (groups < 1 || channels % groups != 0) {
    throw NodeFault{"num_groups", "expected a divisor of " + std::to_string(channels) +
                                      " channels, found " + std::to_string(groups)};
  }
  auto info = std::make_shared<runtime::GroupNormInfo>();
  info->groups = static_cast<uint32_t>(groups);
  const bool per_group = lowering.node().integer("per_group", 0) != 0;
  set_scales(lowering, *info, channels, per_group ? groups : channels);
  lowering.result(
      lowering.plan().add(std::move(info), "GroupNorm_Fallback_Float_M1", {lowering.input(0)}));
}

}  // namespace

size_t Lowering::function(ElementFunction function, const char* name, size_t layer, double alpha,
                          double beta) {
  auto info = std::make_shared<runtime::ElementFunctionInfo>();
  info->function = static_cast<uint32_t>(function);
  info->alpha = as_float(alpha);
  info->beta = as_float(beta);
  return plan_.add(std::move(info), std::string(name) + "_Fallback_Float_M1", {layer});
}

size_t Lowering::binary(BinaryFunction function) {
  if (const SharedNumbers first = aligned_constant(0)) {
    return binary(function, input(1), *first, true);
  }
  if (const SharedNumbers second = aligned_constant(1)) return binary(function, input(0), *second);
  return binary(function, input(0), input(1));
}

size_t Lowering::binary(BinaryFunction function, size_t a, size_t b) {
  auto info = std::make_shared<runtime::BinaryFunctionInfo>();
  info->function = static_cast<uint32_t>(function);
  return plan_.add(std::move(info), kBinary, {a, b});
}

size_t Lowering::binary(BinaryFunction function, size_t layer, const Numbers& constant,
                        bool constant_first) {
  if (!is_finite(constant)) {
    const Extents sizes = constant.shape.empty() ? Extents{1} : constant.shape;
    const size_t other = constant_tensor(constant, sizes);
    return constant_first ? binary(function, other, layer) : binary(function, layer, other);
  }
  auto info = std::make_shared<runtime::BinaryFunctionInfo>();
  info->function = static_cast<uint32_t>(function);
  info->has_constant = true;
  info->constant_is_first = constant_first;
  info->constant_dims.assign(constant.shape.begin(), constant.shape.end());
  if (info->constant_dims.empty()) info->constant_dims = {1};
  info->constant = floats_of(constant);
  return plan_.add(std::move(info), kBinary, {layer});
}

std::span<const LoweringRow> function_lowerings() {
  static constexpr LoweringRow kRows[] = {
      {"Acos", lower_function},
      {"Acosh", lower_function},
      {"And", lower_binary<BinaryFunction::And>},
      {"Asin", lower_function},
      {"Asinh", lower_function},
      {"Atan", lower_function},
      {"Atanh", lower_function},
      {"Cast", lower_cast, "to float, bool, int32 and int64"},
      {"CastLike", lower_cast, "to float, bool, int32 and int64"},
      {"Ceil", lower_function},
      {"Celu", lower_function},
      {"Cos", lower_function},
      {"Cosh", lower_function},
      {"Elu", lower_function},
      {"Equal", lower_binary<BinaryFunction::Equal>},
      {"Erf", lower_function},
      {"Exp", lower_function},
      {"Floor", lower_function},
      {"Gelu", lower_gelu},
      {"Greater", lower_binary<BinaryFunction::Greater>},
      {"GreaterOrEqual", lower_binary<BinaryFunction::GreaterOrEqual>},
      {"GroupNormalization", lower_group_normalization, "constant scales"},
      {"InstanceNormalization", lower_group_normalization, "constant scales"},
      {"IsInf", lower_is_infinite},
      {"IsNaN", lower_function},
      {"LRN", lower_local_response},
      {"LayerNormalization", lower_layer_normalization, "constant scales"},
      {"Less", lower_binary<BinaryFunction::Less>},
      {"LessOrEqual", lower_binary<BinaryFunction::LessOrEqual>},
      {"Log", lower_function},
      {"Mish", lower_function},
      {"Mod", lower_mod, "fmod"},
      {"Not", lower_function},
      {"Or", lower_binary<BinaryFunction::Or>},
      {"Round", lower_function},
      {"Selu", lower_function},
      {"Shrink", lower_function},
      {"Sign", lower_function},
      {"Sin", lower_function},
      {"Sinh", lower_function},
      {"Softplus", lower_function},
      {"Sqrt", lower_function},
      {"Tan", lower_function},
      {"ThresholdedRelu", lower_function},
      {"Xor", lower_binary<BinaryFunction::Xor>},
  };
  return kRows;
}

}  // namespace marlo::toolkit
