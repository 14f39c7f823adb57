#include <algorithm>
#include <vector>

#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_core/utility/check_model_internal.h"

namespace marlo::utility {
namespace {

using runtime::IKernel;
using runtime::InputUse;

constexpr char kInputName[] = "Input";

InputUse use_of(const IKernel* kernel) {
  const auto* facts = dynamic_cast<const runtime::IKernelFacts*>(kernel);
  return facts != nullptr ? facts->input_use() : InputUse::reads;
}

const IKernel* converter_at(const std::map<uint32_t, std::shared_ptr<IKernel>>& converters,
                            uint32_t position) {
  const auto found = converters.find(position);
  return found != converters.end() ? found->second.get() : nullptr;
}

/// Whose memory a result is: that of the layer which made it, however often it was passed on.
struct Memory {
  uint32_t maker = 0;
  bool is_callers = false;
};

/// Follows results through kernels that pass them on.
class MemoryWalk {
 public:
  MemoryWalk(const std::vector<CheckedLayer>& layers, const std::vector<uint32_t>& outputs,
             FindingList& findings)
      : layers_(layers), outputs_(outputs), findings_(findings), results_(layers.size()) {}

  void run() {
    for (uint32_t p = 0; p < layers_.size(); ++p) {
      results_[p] = {p, false};
      const CheckedLayer& checked = layers_[p];
      if (checked.layer == nullptr || checked.layer->kernel == nullptr) continue;
      const runtime::Layer& layer = *checked.layer;
      Memory memory{p, false};
      if (layer.name == kInputName) {
        memory.is_callers = true;
      } else if (layer.inputs.empty()) {
        continue;
      } else {
        memory = results_[layer.inputs[0].first];
        follow(p, converter_at(layer.input_converters, 0), memory);
      }
      follow(p, layer.kernel.get(), memory);
      follow(p, converter_at(layer.output_converters, 0), memory);
      results_[p] = memory;
    }
  }

 private:
  // One kernel on `memory`, which is then its result's. No kernel hands a tensor on as it is.
  void follow(uint32_t position, const IKernel* kernel, Memory& memory) {
    if (kernel == nullptr) return;
    const InputUse use = use_of(kernel);
    const bool is_kernel = kernel == layers_[position].layer->kernel.get();
    if (use == InputUse::overwrites) look(position, memory, is_kernel);
    if (use == InputUse::reads) memory = {position, false};
  }

  void look(uint32_t position, const Memory& memory, bool is_kernel) {
    if (memory.is_callers) {
      add(position, "the caller's tensor of layer " + name_of(memory.maker), is_kernel);
      return;
    }
    if (memory.maker == position) return;  // what a converter of this layer has just made
    for (uint32_t p = 0; p < position; ++p) {
      if (results_[p].maker != memory.maker || results_[p].is_callers) continue;
      if (std::find(outputs_.begin(), outputs_.end(), p) != outputs_.end()) {
        add(position, "the result of layer " + name_of(p) + ", which the network returns",
            is_kernel);
        return;
      }
      if (layers_[p].layer == nullptr) continue;
      for (const auto& [reader, input] : layers_[p].layer->consumers) {
        if (reader <= position) continue;
        add(position,
            "the result of layer " + name_of(p) + ", which layer " + name_of(reader) +
                " still reads",
            is_kernel);
        return;
      }
    }
  }

  std::string name_of(uint32_t position) const {
    return std::to_string(position) + " \"" + layers_[position].place.id + "\"";
  }

  void add(uint32_t position, const std::string& found, bool is_kernel) {
    findings_.add(layers_[position].place, FindingCode::overwritten_input, Severity::error,
                  is_kernel ? "kernel" : "converters",
                  "an input of its own, which the kernel overwrites", found,
                  "name the kernel that doesn't work in place");
  }

  const std::vector<CheckedLayer>& layers_;
  const std::vector<uint32_t>& outputs_;
  FindingList& findings_;
  std::vector<Memory> results_;
};

}  // namespace

void check_overwritten(const std::vector<CheckedLayer>& layers,
                       const std::vector<uint32_t>& outputs, FindingList& findings) {
  MemoryWalk(layers, outputs, findings).run();
}

}  // namespace marlo::utility
