#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include <immintrin.h>

#include "qrt_core/kernel/basic/channel_multiply_cores.h"

namespace marlo::kernel::channel_multiply {
namespace {

constexpr size_t kLanes = 8;

// Multiplies `count` floats, as far as they fill registers; returns how many.
size_t multiply_row(__m256 factors, const float* map, float* output, size_t count) noexcept {
  size_t i = 0;
  for (; i + 4 * kLanes <= count; i += 4 * kLanes) {
    const __m256 p = _mm256_mul_ps(factors, _mm256_loadu_ps(map + i));
    const __m256 q = _mm256_mul_ps(factors, _mm256_loadu_ps(map + i + kLanes));
    const __m256 r = _mm256_mul_ps(factors, _mm256_loadu_ps(map + i + 2 * kLanes));
    const __m256 s = _mm256_mul_ps(factors, _mm256_loadu_ps(map + i + 3 * kLanes));
    _mm256_storeu_ps(output + i, p);
    _mm256_storeu_ps(output + i + kLanes, q);
    _mm256_storeu_ps(output + i + 2 * kLanes, r);
    _mm256_storeu_ps(output + i + 3 * kLanes, s);
  }
  for (; i + kLanes <= count; i += kLanes) {
    _mm256_storeu_ps(output + i, _mm256_mul_ps(factors, _mm256_loadu_ps(map + i)));
  }
  return i;
}

}  // namespace

void multiply_c4_avx(const float* factors, const float* map, float* output, size_t blocks,
                     size_t pixels) noexcept {
  const size_t plane = 4 * pixels;
  for (size_t b = 0; b < blocks; ++b, factors += 4, map += plane, output += plane) {
    const __m128 one = _mm_loadu_ps(factors);
    const __m256 two = _mm256_insertf128_ps(_mm256_castps128_ps256(one), one, 1);
    const size_t done = multiply_row(two, map, output, plane);
    if (done != plane) _mm_storeu_ps(output + done, _mm_mul_ps(one, _mm_loadu_ps(map + done)));
  }
}

void multiply_c8_avx(const float* factors, const float* map, float* output, size_t blocks,
                     size_t pixels) noexcept {
  const size_t plane = kLanes * pixels;
  for (size_t b = 0; b < blocks; ++b, factors += kLanes, map += plane, output += plane) {
    multiply_row(_mm256_loadu_ps(factors), map, output, plane);
  }
}

}  // namespace marlo::kernel::channel_multiply
