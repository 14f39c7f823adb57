#include "tools/qrt/kernel_trial.h"

#include <algorithm>

#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_core/runtime/tensor/hollow_tensors.h"
#include "tools/qrt/kernel_catalogue.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/processor.h"
#include "tools/qrt/shapes.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::IKernel;
using marlo::runtime::IKernelFacts;
using marlo::runtime::Misfit;
using marlo::runtime::TensorShape;

namespace {

bool takes_inputs(IKernel& kernel, const std::vector<TensorShape>& inputs, Library& library) {
  return kernel.CheckInputs(marlo::runtime::HollowTensors(inputs, *library.context->cpu)) ==
         marlo::runtime::KERNEL_OK;
}

void try_on_inputs(TriedKernel& tried, IKernel& kernel, const LayerReport& layer,
                   const std::vector<TensorShape>& inputs, Library& library) {
  const auto* facts = dynamic_cast<const IKernelFacts*>(&kernel);
  try {
    if (!kernel.Config(layer.info, nullptr, library.context)) {
      tried.reasons = {"it can't be configured"};
      return;
    }
    tried.result = Trial::fits;
    if (!inputs.empty() && !takes_inputs(kernel, inputs, library)) {
      tried.result = Trial::needs_other;
      if (facts != nullptr) tried.reasons = reasons_of(facts->input_refusals(inputs), tried.name);
      std::vector<std::string> shapes;
      shapes.reserve(inputs.size());
      for (const TensorShape& shape : inputs) shapes.push_back(shape_text(shape));
      const std::string layouts = catalogue_entry(tried.name).in;
      if (tried.reasons.empty()) {
        tried.reasons = {"it reads " + (layouts.empty() ? "something else" : layouts) + ", found " +
                         joined(shapes, " and ")};
      }
    }
    if (facts == nullptr) return;
    for (const std::string& line :
         reasons_of(facts->differences(*layer.info, inputs), tried.name)) {
      tried.reasons.push_back("computes something else: " + line);
    }
  } catch (const std::runtime_error& failure) {
    tried.result = Trial::refuses;
    const std::string fault = take_fault(failure);
    tried.reasons = {fault.empty() ? "it can't be configured" : fault};
  }
}

}  // namespace

std::vector<std::string> reasons_of(const std::vector<Misfit>& misfits, const std::string& kernel) {
  std::vector<std::string> lines;
  for (const Misfit& misfit : misfits) {
    // That a kernel expects what it takes is no reason.
    if (misfit.expected.find(kernel) != std::string::npos) continue;
    lines.push_back(printable(misfit_text(misfit)));
  }
  return lines;
}

std::vector<std::string> refusals_of(IKernel& kernel, const marlo::runtime::LayerInfo* info,
                                     const marlo::runtime::InferenceParam* param) {
  const auto* facts = dynamic_cast<const IKernelFacts*>(&kernel);
  if (facts == nullptr) return {};
  return reasons_of(facts->refusals(info, param), kernel.GetKernelName());
}

std::vector<TriedKernel> try_kernels(Library& library, const LayerReport& layer,
                                     const std::vector<TensorShape>& inputs) {
  std::vector<TriedKernel> all;
  for (const std::string& name : library.kernels.Keys()) {
    TriedKernel tried;
    tried.name = name;
    tried.missing = missing_instructions(name);
    const auto kernel = library.kernels.Create(name);
    if (kernel->CheckConfig(layer.info, nullptr) != marlo::runtime::KERNEL_OK) {
      tried.reasons = refusals_of(*kernel, layer.info.get(), nullptr);
      if (tried.reasons.empty()) {
        const std::string accepts = catalogue_entry(name).accepts;
        tried.reasons = {accepts.empty() ? "it doesn't take such a layer"
                                         : "it accepts " + accepts};
      }
    } else if (tried.missing.empty()) {
      try_on_inputs(tried, *kernel, layer, inputs, library);
    } else {
      tried.result = Trial::fits;
    }
    all.push_back(std::move(tried));
  }
  take_library_errors();
  std::sort(all.begin(), all.end(), [](const TriedKernel& a, const TriedKernel& b) {
    return a.result != b.result ? a.result < b.result : a.name < b.name;
  });
  return all;
}

}  // namespace qrt_tool
