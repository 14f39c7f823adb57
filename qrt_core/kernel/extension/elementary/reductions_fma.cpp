#if !defined(__AVX__) || !defined(__FMA__)
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/extension/elementary/reductions_internal.h"

namespace marlo::kernel::elementary {

void reduce_fma(const ReductionTask& task) noexcept { reduce<FourDoubles>(task); }

}  // namespace marlo::kernel::elementary
