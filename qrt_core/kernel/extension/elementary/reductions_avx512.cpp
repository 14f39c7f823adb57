#ifndef __AVX512F__
#error "this file holds AVX-512 code and must be compiled with -mavx512f"
#endif

#include "qrt_core/kernel/extension/elementary/reductions_internal.h"

namespace marlo::kernel::elementary {

void reduce_avx512(const ReductionTask& task) noexcept { reduce<EightDoubles>(task); }

}  // namespace marlo::kernel::elementary
