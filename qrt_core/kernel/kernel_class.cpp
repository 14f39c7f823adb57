#include "qrt_core/kernel/kernel_class.h"

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/runtime/tensor/hollow_tensors.h"
#include "qrt_core/runtime/tensor/tensor.h"
#include "qrt_core/utility/log.h"

namespace marlo::kernel {

using utility::Assert;

const std::shared_ptr<runtime::DeviceCPU>& Pass::shared_device() const {
  const bool has_device = context_ != nullptr && context_->cpu != nullptr;
  if (!has_device) Assert(false, "%s: the context has no CPU device", kernel_);
  return context_->cpu;
}

std::shared_ptr<runtime::TensorCPU> Pass::create(runtime::TensorShape shape) const {
  return device().CreateTensor(std::move(shape), nullptr);
}

bool is_configurable(ConfigTest test, int verdict) {
  switch (test) {
    case ConfigTest::accepted:
      return verdict == runtime::KERNEL_OK;
    case ConfigTest::inverted:
      return verdict != runtime::KERNEL_OK;
    case ConfigTest::ignored:
      return true;
    default:
      return verdict != runtime::KERNEL_REFUSED;
  }
}

const runtime::Context& context_or_none(const std::shared_ptr<runtime::Context>& context) {
  static const runtime::Context none;
  return context != nullptr ? *context : none;
}

void require_inputs(const char* kernel, const runtime::IKernel::Tensors& inputs, size_t least) {
  if (inputs.size() < least) {
    Assert(false, "%s: expected at least %zu input%s, found %zu", kernel, least,
           least == 1 ? "" : "s", inputs.size());
  }
  for (size_t i = 0; i < inputs.size(); ++i) {
    if (inputs[i] == nullptr) Assert(false, "%s: input %zu is null", kernel, i);
  }
}

runtime::Misfit general_refusal(const char* kernel, const runtime::LayerInfo* info) {
  return {"", std::string("a layer that ") + kernel + " takes", class_of(info)};
}

runtime::Misfit general_input_refusal(const char* kernel, const KernelFamily::Shapes& inputs) {
  return {"inputs", std::string("inputs that ") + kernel + " takes", runtime::ShapesText(inputs)};
}

runtime::IKernel::Tensors hollow_tensors(const KernelFamily::Shapes& shapes) {
  static runtime::DeviceCPU device({}, nullptr, nullptr, nullptr);
  return runtime::HollowTensors(shapes, device);
}

}  // namespace marlo::kernel
