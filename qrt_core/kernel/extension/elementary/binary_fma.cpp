#if !defined(__AVX__) || !defined(__FMA__)
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/extension/elementary/binary_cores_internal.h"

namespace marlo::kernel::elementary {

void binary_fma(const BinaryTask& task) noexcept { binary<math::FusedMath>(task); }

}  // namespace marlo::kernel::elementary
