#include "qrt_core/runtime/engine/kernel_facts.h"

namespace marlo::runtime {

IKernelFacts::~IKernelFacts() = default;

std::string_view IKernelFacts::epilogue() const { return {}; }

std::vector<Misfit> IKernelFacts::pass_refusals(const std::vector<TensorShape>&) const {
  return {};
}

}  // namespace marlo::runtime
