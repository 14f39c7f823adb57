#ifndef __AVX512F__
#error "this file holds AVX-512 code and must be compiled with -mavx512f"
#endif

#include "qrt_core/kernel/extension/elementary/binary_cores_internal.h"

namespace marlo::kernel::elementary {

// Short rows would leave half of the lanes empty.
void binary_avx512(const BinaryTask& task) noexcept {
  if (task.count <= math::FusedMath::kLanes) return binary<math::FusedMath>(task);
  binary<math::Avx512Math>(task);
}

}  // namespace marlo::kernel::elementary
