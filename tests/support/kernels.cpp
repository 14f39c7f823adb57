#include "tests/support/kernels.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "qrt_core/utility/application.h"

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
  if (kernel.find("AVX") == std::string::npos || __builtin_cpu_supports("avx")) return "";
  return kernel + " needs AVX, which this processor doesn't have";
}

}  // namespace marlo::test
