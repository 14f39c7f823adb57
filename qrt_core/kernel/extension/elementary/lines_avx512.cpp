#ifndef __AVX512F__
#error "this file holds AVX-512 code and must be compiled with -mavx512f"
#endif

#include "qrt_core/kernel/extension/elementary/lines_internal.h"

namespace marlo::kernel::elementary {

void softmax_avx512(const SoftmaxTask& task) noexcept { softmax<math::Avx512Math>(task); }

void normalise_avx512(const NormTask& task) noexcept { normalise<math::Avx512Math>(task); }

}  // namespace marlo::kernel::elementary
