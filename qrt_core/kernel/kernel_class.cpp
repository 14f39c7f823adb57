#include "qrt_core/kernel/kernel_class.h"

#include <typeinfo>

#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/runtime/model/type_name.h"
#include "qrt_core/runtime/tensor/tensor.h"
#include "qrt_core/utility/log.h"

namespace marlo::kernel {

using utility::Assert;

namespace {

// "FLOAT32 CHW [1, 28, 28]"
std::string in_words(const runtime::TensorShape& shape) {
  const char* type = runtime::PrintedName(shape.data_type);
  const char* layout = runtime::PrintedName(shape.layout);
  std::string text = type == nullptr ? "unknown type" : type;
  text += " ";
  text += layout == nullptr ? "layout " + std::to_string(static_cast<uint32_t>(shape.layout))
                            : std::string(layout);
  const char* separator = " [";
  for (const uint32_t size : shape.dims) {
    text += separator + std::to_string(size);
    separator = ", ";
  }
  return text + (shape.dims.empty() ? " []" : "]");
}

// "ReLUInfo" of marlo::runtime::ReLUInfo
std::string class_name(const runtime::LayerInfo& info) {
  const std::string name = runtime::demangled(typeid(info).name());
  const size_t colon = name.rfind(':');
  return colon == std::string::npos ? name : name.substr(colon + 1);
}

}  // namespace

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
  return {"", std::string("a layer that ") + kernel + " takes",
          info == nullptr ? "no description" : class_name(*info)};
}

runtime::Misfit general_input_refusal(const char* kernel, const KernelFamily::Shapes& inputs) {
  std::string found;
  for (const runtime::TensorShape& shape : inputs) {
    found += (found.empty() ? "" : " and ") + in_words(shape);
  }
  return {"inputs", std::string("inputs that ") + kernel + " takes",
          found.empty() ? "nothing" : found};
}

runtime::IKernel::Tensors hollow_tensors(const KernelFamily::Shapes& shapes) {
  static runtime::DeviceCPU device({}, nullptr, nullptr, nullptr);
  static char nothing[64];
  runtime::IKernel::Tensors tensors;
  for (const runtime::TensorShape& shape : shapes) {
    tensors.push_back(device.CreateTensorExternal(shape, nothing));
  }
  return tensors;
}

}  // namespace marlo::kernel
