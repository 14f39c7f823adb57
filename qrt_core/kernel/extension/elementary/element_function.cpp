#include "qrt_core/kernel/extension/elementary/element_function.h"

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/elementwise_info.h"

namespace marlo::kernel {

using runtime::ElementFunction;
using runtime::ElementFunctionInfo;

int ElementFunctionKernel::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits ElementFunctionKernel::refusals(const LayerInfo* info,
                                                      const InferenceParam* param) const {
  Expectations expected;
  const bool is_clip = row_.description == FunctionDescription::function &&
                       row_.function == ElementFunction::Clip &&
                       dynamic_cast<const runtime::ClipInfo*>(info) != nullptr;
  if (is_clip) {
    expected.expect(param == nullptr, "", "no inference parameter", "one");
  } else if (row_.description == FunctionDescription::activation) {
    expected.describe<runtime::ActivationInfo>(info, param);
  } else if (const auto* layer = expected.describe<ElementFunctionInfo>(info, param)) {
    const auto own = static_cast<uint32_t>(row_.function);
    expected.expect(layer->function == own, "function", std::to_string(own),
                    std::to_string(layer->function));
  }
  return std::move(expected).unmet();
}

KernelFamily::Misfits ElementFunctionKernel::differences(const LayerInfo& info,
                                                         const Shapes&) const {
  if (row_.description != FunctionDescription::activation) return {};
  return label_differences(row_.name, row_.label, info);
}

bool ElementFunctionKernel::Configure(const LayerInfo* info, const InferenceParam*,
                                      const Context&) {
  if (const auto* function = dynamic_cast<const ElementFunctionInfo*>(info)) {
    parameters_[0] = function->alpha;
    parameters_[1] = function->beta;
  } else if (const auto* clip = dynamic_cast<const runtime::ClipInfo*>(info)) {
    parameters_[0] = clip->minimum_value;
    parameters_[1] = clip->maximum_value;
  }
  return true;
}

int ElementFunctionKernel::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_float(tensors));
}

KernelFamily::Misfits ElementFunctionKernel::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.one_float(inputs);
  return std::move(expected).unmet();
}

int ElementFunctionKernel::Forward(const Tensors& inputs, Tensors& outputs,
                                   const Pass& pass) const {
  const runtime::TensorCPU& input = float_input(row_.name, inputs);
  std::shared_ptr<runtime::Tensor> output = inputs[0];
  if (row_.input_use == runtime::InputUse::reads) output = pass.create(input.shape);
  row_.core(static_cast<const float*>(input.RawPointer()),
            static_cast<float*>(static_cast<runtime::TensorCPU&>(*output).RawPointer()),
            runtime::ElementCount(input.shape), parameters_);
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
