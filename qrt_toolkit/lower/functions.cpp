#include <algorithm>
#include <functional>
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
constexpr const char* kAxisSoftmax = "AxisSoftmax_Fallback_Float_M1";

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

void lower_gelu(Lowering& lowering) {
  const bool tanh = lowering.node().text("approximate", "none") == "tanh";
  lowering.result(lowering.function(tanh ? ElementFunction::GELUTanh : ElementFunction::GELU,
                                    tanh ? "GELUTanh" : "GELU", lowering.input(0)));
}

/// Two tensors, of which one may be a constant.
template <BinaryFunction function>
void lower_binary(Lowering& lowering) {
  lowering.result(lowering.binary(function));
}

// The remainder has the sign of the dividend with fmod, and of the divisor without.
void lower_mod(Lowering& lowering) {
  if (lowering.node().integer("fmod", 0) == 0) {
    throw NodeFault{"fmod", "a remainder with the sign of the divisor has no kernel"};
  }
  lowering.result(lowering.binary(BinaryFunction::Mod));
}

/// Numbers one by one behind the batch, as many as `count`; a single number stands for all.
Numbers as_many(const Numbers& numbers, int64_t count) {
  Numbers result(ElementType::float32, {count});
  if (numbers.count() != 1 && numbers.count() != count) {
    throw NodeFault{"inputs",
                    "scale and shift must have one number for each of " + std::to_string(count)};
  }
  for (size_t i = 0; i < result.reals().size(); ++i) {
    result.reals()[i] = numbers.real(numbers.count() == 1 ? 0 : i);
  }
  return result;
}

template <class Info>
void set_scales(const Lowering& lowering, Info& info, int64_t count) {
  info.scale = blob_of(as_many(*lowering.required_constant(1), count));
  if (lowering.node().has_input(2)) {
    info.shift = blob_of(as_many(*lowering.required_constant(2), count));
  }
  info.eps = static_cast<float>(lowering.node().real("epsilon", 1e-5));
}

/// The mean of each line that is normalized, and 1 over its deviation.
void lower_moments(Lowering& lowering, size_t axis) {
  const auto mean = [&](size_t layer) {
    auto info = std::make_shared<runtime::AxisReductionInfo>();
    info->function = static_cast<uint32_t>(AxisReduction::Mean);
    for (size_t i = axis; i < lowering.input_sizes(0).size(); ++i) {
      info->axes.push_back(static_cast<int32_t>(i));
    }
    return lowering.plan().add(std::move(info), "AxisReduction_Fallback_Float_M1", {layer});
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

void lower_layer_normalization(Lowering& lowering) {
  const size_t axis = lowering.axis_of_input(0, lowering.node().integer("axis", -1));
  if (lowering.is_read(1) || lowering.is_read(2)) lower_moments(lowering, axis);
  const Extents sizes = lowering.input_sizes(0);
  const Extents line(sizes.begin() + static_cast<std::ptrdiff_t>(axis), sizes.end());
  auto info = std::make_shared<runtime::LayerNormInfo>();
  info->axis = static_cast<int32_t>(axis);
  set_scales(lowering, *info, count_of(line).value_or(0));
  lowering.result(
      lowering.plan().add(std::move(info), "LayerNorm_Fallback_Float_M1", {lowering.input(0)}));
}

void lower_group_normalization(Lowering& lowering) {
  const int64_t channels = lowering.input_sizes(0).at(0);
  const bool single = lowering.node().op == "InstanceNormalization";
  const int64_t groups = single ? channels : lowering.node().integer("num_groups", 1);
  if (lowering.node().integer("per_group", 0) != 0) {
    throw NodeFault{"opset", "scales of groups have no kernel", "export the model with opset 21"};
  }
  if (groups < 1 || channels % groups != 0) throw NodeFault{"num_groups", "it divides no channels"};
  auto info = std::make_shared<runtime::GroupNormInfo>();
  info->groups = static_cast<uint32_t>(groups);
  set_scales(lowering, *info, channels);
  lowering.result(
      lowering.plan().add(std::move(info), "GroupNorm_Fallback_Float_M1", {lowering.input(0)}));
}

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

constexpr LoweringRow kRows[] = {
    {"Acos", lower_function},
    {"Acosh", lower_function},
    {"And", lower_binary<BinaryFunction::And>},
    {"Asin", lower_function},
    {"Asinh", lower_function},
    {"Atan", lower_function},
    {"Atanh", lower_function},
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
    {"GroupNormalization", lower_group_normalization, "constant scales of channels"},
    {"InstanceNormalization", lower_group_normalization, "constant scales"},
    {"IsNaN", lower_function},
    {"LayerNormalization", lower_layer_normalization, "constant scales"},
    {"Less", lower_binary<BinaryFunction::Less>},
    {"LessOrEqual", lower_binary<BinaryFunction::LessOrEqual>},
    {"Log", lower_function},
    {"LogSoftmax", lower_log_softmax},
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
    {"Softmax", lower_softmax},
    {"Softplus", lower_function},
    {"Sqrt", lower_function},
    {"Tan", lower_function},
    {"ThresholdedRelu", lower_function},
    {"Xor", lower_binary<BinaryFunction::Xor>},
};

}  // namespace

size_t Lowering::function(ElementFunction function, const char* name, size_t layer, double alpha,
                          double beta) {
  auto info = std::make_shared<runtime::ElementFunctionInfo>();
  info->function = static_cast<uint32_t>(function);
  info->alpha = static_cast<float>(alpha);
  info->beta = static_cast<float>(beta);
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
  auto info = std::make_shared<runtime::BinaryFunctionInfo>();
  info->function = static_cast<uint32_t>(function);
  info->has_constant = true;
  info->constant_is_first = constant_first;
  info->constant_dims.assign(constant.shape.begin(), constant.shape.end());
  if (info->constant_dims.empty()) info->constant_dims = {1};
  info->constant = floats_of(constant);
  return plan_.add(std::move(info), kBinary, {layer});
}

std::span<const LoweringRow> function_lowerings() { return kRows; }

}  // namespace marlo::toolkit
