#include "qrt_core/kernel/basic/activation.h"

#include <algorithm>
#include <cstring>

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

}  // namespace

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
