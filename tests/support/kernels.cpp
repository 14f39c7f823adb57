#include "tests/support/kernels.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/kernel/kernel_class.h"
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
    utility::init_register_extension_operators(kernels, params);
    return kernels;
  }();
  return registry;
}

const KernelRegistry& documented_kernels() {
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

kernel::Epilogue epilogue_of(const std::string& kernel) {
  kernel::Epilogue epilogue = kernel::Epilogue::none;
  kernel::for_each_extension_row([&](const kernel::KernelRow& row) {
    if (kernel == row.name) epilogue = row.epilogue;
  });
  return epilogue;
}

std::string why_not_here(const std::string& name) {
  // A function that is no kernel has no row, but says in its name what it is made of.
  const bool is_avx_function =
      all_kernels().Create(name) == nullptr && name.find("_AVX") != std::string::npos;
  const runtime::InstructionSet needs =
      is_avx_function ? runtime::InstructionSet::avx : runtime::needs_of(name);
  if (processor_has(needs)) return "";
  return name + " needs " + runtime::PrintedName(needs) + ", which this processor doesn't have";
}

}  // namespace marlo::test
