#include "qrt_core/kernel/basic/activation.h"

#include <algorithm>
#include <cstring>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/base64.h"
#include "qrt_core/runtime/model/elementwise_info.h"

namespace marlo::kernel {

using runtime::ActivationInfo;
using runtime::Base64Decode;

namespace {

// A text of less than a float gives what it has; the missing bytes are zero.
float first_float(const std::string& text) {
  const std::string bytes = Base64Decode(text);
  float number = 0.0f;
  std::memcpy(&number, bytes.data(), std::min(sizeof number, bytes.size()));
  return number;
}

constexpr uint16_t kRectifier = activation::kRectifierLabel;
constexpr uint16_t kLeaky = 4;
constexpr uint16_t kTangent = activation::kTangentLabel;

std::string in_words(uint16_t type) {
  std::string number = std::to_string(type);
  switch (type) {
    case kRectifier:
      return number + ", the rectifier";
    case kLeaky:
      return number + ", the leaky rectifier";
    case kTangent:
      return number + ", tanh";
    default:
      return number;
  }
}

// Of the function that a row computes; 0 for one without a known code.
uint16_t type_of(const ActivationRow& row) {
  if (row.scalar == activation::relu_scalar) return kRectifier;
  if (row.scalar == activation::leaky_scalar) return kLeaky;
  return row.scalar == activation::tanh_scalar ? kTangent : 0;
}

// 0 is what files say that don't know; a code without a known function may be any other function.
bool contradict(uint16_t layer, uint16_t kernel) {
  const bool is_known = layer == kRectifier || layer == kLeaky || layer == kTangent;
  return layer != 0 && layer != kernel && (is_known || kernel != 0);
}

}  // namespace

KernelFamily::Misfits label_differences(const char* kernel, uint16_t own,
                                        const runtime::LayerInfo& info) {
  Expectations expected;
  const auto* layer = expected.describe<ActivationInfo>(&info, nullptr);
  if (layer == nullptr) return std::move(expected).unmet();
  const std::string words =
      own == 0 ? std::string("the code of what ") + kernel + " computes" : in_words(own);
  expected.expect(!contradict(layer->activation_type, own), "activation_type", words,
                  in_words(layer->activation_type));
  return std::move(expected).unmet();
}

int Activation::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  if (row_.check == ActivationCheck::nothing) return KernelFamily::CheckConfig(info, param);
  const bool accepted = param == nullptr && dynamic_cast<const ActivationInfo*>(info) != nullptr;
  return accepted ? runtime::KERNEL_OK : runtime::KERNEL_REFUSED;
}

bool Activation::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  if (row_.parameters == ActivationParameters::none) return true;
  const auto* activation = dynamic_cast<const ActivationInfo*>(info);
  if (activation == nullptr) return false;
  if (row_.parameters == ActivationParameters::slope) {
    if (activation->weight.empty()) return false;
    parameters_[0] = first_float(activation->weight);
    return true;
  }
  parameters_[0] = activation->activation_alpha;
  if (row_.parameters == ActivationParameters::alpha_and_beta) {
    parameters_[1] = activation->activation_beta;
  }
  return true;
}

KernelFamily::Misfits Activation::refusals(const LayerInfo* info,
                                           const InferenceParam* param) const {
  const bool any_description = row_.check == ActivationCheck::nothing;
  Expectations expected;
  if (any_description && row_.parameters == ActivationParameters::none) {
    expected.expect(info != nullptr || param != nullptr, "", "a description", class_of(info));
    return std::move(expected).unmet();
  }
  const auto* layer = expected.describe<ActivationInfo>(info, any_description ? nullptr : param);
  if (layer != nullptr && row_.parameters == ActivationParameters::slope) {
    expected.expect(!layer->weight.empty(), "weight", "1 slope", "none");
  }
  return std::move(expected).unmet();
}

KernelFamily::Misfits Activation::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.one_float(inputs);
  return std::move(expected).unmet();
}

KernelFamily::Misfits Activation::differences(const LayerInfo& info, const Shapes&) const {
  Misfits found = label_differences(row_.name, type_of(row_), info);
  const auto* layer = dynamic_cast<const ActivationInfo*>(&info);
  if (layer == nullptr || row_.parameters != ActivationParameters::slope) return found;
  const uint64_t slopes =
      std::max<uint64_t>(numbers_in(layer->weight), static_cast<uint16_t>(layer->num_parameters));
  if (slopes > 1) {
    found.push_back(
        {"num_parameters, weight", "1 slope, which all channels share", counted(slopes, "slope")});
  }
  return found;
}

int Activation::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_float(tensors));
}

int Activation::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  runtime::TensorCPU& input = float_input(row_.name, inputs);
  const float* from = static_cast<const float*>(input.RawPointer());
  float* to = static_cast<float*>(input.RawPointer());
  if (row_.output == ActivationOutput::input_tensor) {
    outputs = inputs;
  } else {
    auto output = pass.create(input.shape);
    to = static_cast<float*>(output->RawPointer());
    outputs.clear();
    outputs.push_back(std::move(output));
  }

  const size_t count = runtime::ElementCount(input.shape);
  const size_t in_blocks = row_.vector == nullptr ? 0 : count - count % row_.block;
  if (in_blocks != 0) row_.vector(from, to, in_blocks, parameters_);
  if (in_blocks != count) {
    row_.scalar(from + in_blocks, to + in_blocks, count - in_blocks, parameters_);
  }
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
