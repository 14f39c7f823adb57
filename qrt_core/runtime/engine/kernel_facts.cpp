#include "qrt_core/runtime/engine/kernel_facts.h"

namespace marlo::runtime {

IKernelFacts::~IKernelFacts() = default;

}  // namespace marlo::runtime
