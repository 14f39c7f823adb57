#ifndef __AVX512F__
#error "this file holds AVX-512 code and must be compiled with -mavx512f"
#endif

#include "qrt_core/kernel/basic/activation_internal.h"
#include "qrt_core/kernel/extension/elementary/activation_cores.h"

namespace marlo::kernel::activation {

void relu_avx512(const float* input, float* output, size_t count, const float*) noexcept {
  relu<Avx512Vector>(input, output, count);
}

}  // namespace marlo::kernel::activation
