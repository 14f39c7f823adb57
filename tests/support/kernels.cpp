#include "tests/support/kernels.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_core/utility/application.h"
#include "tests/support/processor.h"

namespace marlo::test {

using runtime::IKernel;
using runtime::InferenceParamRegistry;
using runtime::KernelRegistry;

const KernelRegistry& all_kernels() {
  static const KernelRegistry registry = [] {
    KernelRegistry kernels;
    InferenceParamRegistry params;
    utility::init_register_operators(kernels, params);
    return kernels;
  }();
  return registry;
}

std::shared_ptr<IKernel> make_kernel(const std::string& name) {
  std::shared_ptr<IKernel> kernel = all_kernels().Create(name);
  if (kernel == nullptr) {
    ADD_FAILURE() << name << " isn't registered";
    throw std::runtime_error(name + " isn't registered");
  }
  return kernel;
}

std::string why_not_here(const std::string& kernel) {
  const runtime::InstructionSet needs = runtime::needs_of(kernel);
  if (processor_has(needs)) return "";
  return kernel + " needs " + runtime::PrintedName(needs) + ", which this processor doesn't have";
}

}  // namespace marlo::test
