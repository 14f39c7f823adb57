#include "tests/support/kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
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

// AVX kernels that are documented to fuse, by what their names hold. Those not to fuse among them
// stand in the second list.
static bool is_fused(const std::string& kernel) {
  const auto holds_any = [&kernel](std::initializer_list<const char*> parts) {
    return std::any_of(parts.begin(), parts.end(), [&kernel](const char* part) {
      return kernel.find(part) != std::string::npos;
    });
  };
  return holds_any({"Conv2d_K1x1_S1x1_D1x1_G1_AVX_", "Conv2D_Knxm_Snxm_Dnxm_G1_AVX_",
                    "Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT",
                    "Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_FLOAT", "_AVX_3In_CHW_To_C4HW4_",
                    "_AVX_C4HW4_To_CHW_3Out_", "Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_",
                    "Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C4HW4_"}) &&
         !holds_any({"_TO_CHW_"});
}

std::string why_not_here(const std::string& kernel) {
  if (kernel.find("AVX") == std::string::npos) return "";
  if (!__builtin_cpu_supports("avx")) {
    return kernel + " needs AVX, which this processor doesn't have";
  }
  if (is_fused(kernel) && !__builtin_cpu_supports("fma")) {
    return kernel + " needs FMA, which this processor doesn't have";
  }
  return "";
}

}  // namespace marlo::test
