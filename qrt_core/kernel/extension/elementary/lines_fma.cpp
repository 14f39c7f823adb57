#if !defined(__AVX__) || !defined(__FMA__)
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/extension/elementary/lines_internal.h"

namespace marlo::kernel::elementary {

void softmax_fma(const SoftmaxTask& task) noexcept { softmax<math::FusedMath>(task); }

void normalise_fma(const NormTask& task) noexcept { normalise<math::FusedMath>(task); }

}  // namespace marlo::kernel::elementary
