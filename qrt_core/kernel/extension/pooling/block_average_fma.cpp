#ifndef __FMA__
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/extension/pooling/block_average_cores.h"
#include "qrt_core/kernel/vectors_internal.h"

namespace marlo::kernel::pooling {

void window_average_c8_fma(const float* first, size_t row_floats, size_t height, size_t width,
                           float* average) noexcept {
  using V = FusedVector;
  constexpr size_t kParts = 4;  // a sum waits for the one before it
  V::Register sums[kParts] = {V::zero(), V::zero(), V::zero(), V::zero()};
  for (size_t r = 0; r < height; ++r, first += row_floats) {
    const float* pixel = first;
    size_t left = width;
    for (; left >= kParts; left -= kParts, pixel += kParts * V::kLanes) {
      unrolled<kParts>(
          QRT_UNROLLED(k) { sums[k] = V::plus(sums[k], V::load(pixel + k * V::kLanes)); });
    }
    for (; left > 0; --left, pixel += V::kLanes) sums[0] = V::plus(sums[0], V::load(pixel));
  }
  const V::Register sum = V::plus(V::plus(sums[0], sums[1]), V::plus(sums[2], sums[3]));
  const V::Register of_rows = V::over(sum, V::splat(static_cast<float>(height)));
  V::store(average, V::over(of_rows, V::splat(static_cast<float>(width))));
}

}  // namespace marlo::kernel::pooling
