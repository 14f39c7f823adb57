#include <emmintrin.h>

#include "qrt_core/kernel/layout/fill_cores.h"

namespace marlo::kernel::fill {

void repeat_sse(float* output, size_t count, const float* pattern) noexcept {
  const __m128 low = _mm_loadu_ps(pattern);
  const __m128 high = _mm_loadu_ps(pattern + 4);
  size_t i = 0;
  for (; i + kPatternFloats <= count; i += kPatternFloats) {
    _mm_storeu_ps(output + i, low);
    _mm_storeu_ps(output + i + 4, high);
  }
  for (size_t k = 0; i < count; ++i, ++k) output[i] = pattern[k];
}

}  // namespace marlo::kernel::fill
