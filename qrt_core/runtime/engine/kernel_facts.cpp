#include "qrt_core/runtime/engine/kernel_facts.h"

namespace marlo::runtime {

IKernelFacts::~IKernelFacts() = default;

std::string_view IKernelFacts::epilogue() const { return {}; }

}  // namespace marlo::runtime
