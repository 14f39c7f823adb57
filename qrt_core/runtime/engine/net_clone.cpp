#include <unordered_map>

#include "qrt_core/runtime/engine/kernel_copy.h"
#include "qrt_core/runtime/engine/net.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {

using utility::Assert;
using utility::Error;

IKernelCopy::~IKernelCopy() = default;

namespace {

/// Copies of kernels for one context. Layers that share a kernel share its
/// copy.
class KernelCopies {
 public:
  explicit KernelCopies(const std::shared_ptr<Context>& context) : context_(context) {}

  std::shared_ptr<IKernel> of(const std::shared_ptr<IKernel>& kernel) {
    if (kernel == nullptr) return nullptr;
    std::shared_ptr<IKernel>& copy = copies_[kernel.get()];
    if (copy != nullptr) return copy;
    const auto* const original = dynamic_cast<const IKernelCopy*>(kernel.get());
    Assert(original != nullptr, "kernel %s can't be copied: it doesn't implement IKernelCopy",
           kernel->GetKernelName().c_str());
    copy = original->copy_for(context_);
    return copy;
  }

  std::map<uint32_t, std::shared_ptr<IKernel>> of(
      const std::map<uint32_t, std::shared_ptr<IKernel>>& converters) {
    std::map<uint32_t, std::shared_ptr<IKernel>> copies;
    for (const auto& [position, converter] : converters) copies[position] = of(converter);
    return copies;
  }

 private:
  const std::shared_ptr<Context>& context_;
  std::unordered_map<const IKernel*, std::shared_ptr<IKernel>> copies_;
};

}  // namespace

std::shared_ptr<Net> Net::clone(const std::shared_ptr<Context>& context) const {
  Assert(context != nullptr && context->cpu != nullptr,
         "a network needs a context with a CPU device");
  KernelCopies copies(context);
  std::vector<std::shared_ptr<Layer>> all;
  all.reserve(layers.size());
  for (uint32_t index = 0; index < layers.size(); ++index) {
    Assert(layers[index] != nullptr, "layer %u of the network is a null pointer", index);
    auto layer = std::make_shared<Layer>(*layers[index]);
    try {
      layer->input_converters = copies.of(layer->input_converters);
      layer->kernel = copies.of(layer->kernel);
      layer->output_converters = copies.of(layer->output_converters);
    } catch (Error& failure) {
      utility::LayerFault place;
      place.layer = index;
      place.id = layer->id;
      place.kind = layer->name;
      failure.in_layer(std::move(place));
      throw;
    }
    all.push_back(std::move(layer));
  }
  return std::make_shared<Net>(all, input_map);
}

}  // namespace marlo::runtime
