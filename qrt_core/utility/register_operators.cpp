#include "qrt_core/runtime/engine/registration.h"
#include "qrt_core/utility/application.h"
#include "qrt_core/utility/build_options.h"

// In a file of its own: a program that is linked against the static library may define these functions
// itself, for the kernels that it needs, and then carries nothing of this one. See `qrt select`.

namespace marlo::utility {

void init_register_operators(runtime::KernelRegistry& kernels,
                             runtime::InferenceParamRegistry& params) {
  runtime::register_common_kernels(kernels);
  runtime::register_portable_kernels(kernels);
#if QRT_WITH_SSE
  runtime::register_sse_kernels(kernels);
#endif
  runtime::register_quantisation_params(params);
#if QRT_WITH_AVX
  runtime::register_avx_kernels(kernels);
#endif
  runtime::register_convolution_quantisation_param(params);
#if QRT_WITH_SGEMM
  runtime::register_sgemm_kernels(kernels);
#endif
  runtime::register_convolution_quantisation_param(params);
}

void init_register_extension_operators(runtime::KernelRegistry& kernels,
                                       runtime::InferenceParamRegistry&) {
  runtime::register_extension_kernels(kernels);
}

}  // namespace marlo::utility
