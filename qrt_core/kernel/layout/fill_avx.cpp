#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include <immintrin.h>

#include "qrt_core/kernel/layout/fill_cores.h"

namespace marlo::kernel::fill {

void repeat_avx(float* output, size_t count, const float* pattern) noexcept {
  const __m256 all = _mm256_loadu_ps(pattern);
  size_t i = 0;
  for (; i + kPatternFloats <= count; i += kPatternFloats) _mm256_storeu_ps(output + i, all);
  for (size_t k = 0; i < count; ++i, ++k) output[i] = pattern[k];
}

void add_avx(float* output, size_t count, const float* pattern) noexcept {
  const __m256 all = _mm256_loadu_ps(pattern);
  size_t i = 0;
  for (; i + kPatternFloats <= count; i += kPatternFloats) {
    _mm256_storeu_ps(output + i, _mm256_add_ps(_mm256_loadu_ps(output + i), all));
  }
  for (size_t k = 0; i < count; ++i, ++k) output[i] += pattern[k];
}

}  // namespace marlo::kernel::fill
