#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include <immintrin.h>

#include "qrt_core/kernel/layout/pixel_shuffle_internal.h"

namespace marlo::kernel::pixel_shuffle {
namespace {

// Transposes the 4 x 4 matrices in the lower and in the upper halves of four vectors.
void transpose_halves(__m256& a, __m256& b, __m256& c, __m256& d) noexcept {
  const __m256 ab_low = _mm256_unpacklo_ps(a, b);
  const __m256 ab_high = _mm256_unpackhi_ps(a, b);
  const __m256 cd_low = _mm256_unpacklo_ps(c, d);
  const __m256 cd_high = _mm256_unpackhi_ps(c, d);
  a = _mm256_shuffle_ps(ab_low, cd_low, _MM_SHUFFLE(1, 0, 1, 0));
  b = _mm256_shuffle_ps(ab_low, cd_low, _MM_SHUFFLE(3, 2, 3, 2));
  c = _mm256_shuffle_ps(ab_high, cd_high, _MM_SHUFFLE(1, 0, 1, 0));
  d = _mm256_shuffle_ps(ab_high, cd_high, _MM_SHUFFLE(3, 2, 3, 2));
}

constexpr int kLowerHalves = 0x20;
constexpr int kUpperHalves = 0x31;

}  // namespace

// A deep vector holds the four pixels of two neighbouring wide channels, one in each half.
void upscale2_c8_avx(const Task& task) noexcept {
  for_each_square<8>(task, [&task](size_t deep, size_t plane, size_t wide, size_t row) {
    const __m256 channels_0_1 = _mm256_loadu_ps(task.input + deep);
    const __m256 channels_2_3 = _mm256_loadu_ps(task.input + deep + plane);
    const __m256 channels_4_5 = _mm256_loadu_ps(task.input + deep + 2 * plane);
    const __m256 channels_6_7 = _mm256_loadu_ps(task.input + deep + 3 * plane);
    __m256 a = _mm256_permute2f128_ps(channels_0_1, channels_4_5, kLowerHalves);
    __m256 b = _mm256_permute2f128_ps(channels_0_1, channels_4_5, kUpperHalves);
    __m256 c = _mm256_permute2f128_ps(channels_2_3, channels_6_7, kLowerHalves);
    __m256 d = _mm256_permute2f128_ps(channels_2_3, channels_6_7, kUpperHalves);
    transpose_halves(a, b, c, d);
    _mm256_storeu_ps(task.output + wide, a);
    _mm256_storeu_ps(task.output + wide + 8, b);
    _mm256_storeu_ps(task.output + wide + row, c);
    _mm256_storeu_ps(task.output + wide + row + 8, d);
  });
}

void downscale2_c8_avx(const Task& task) noexcept {
  for_each_square<8>(task, [&task](size_t deep, size_t plane, size_t wide, size_t row) {
    __m256 a = _mm256_loadu_ps(task.input + wide);
    __m256 b = _mm256_loadu_ps(task.input + wide + 8);
    __m256 c = _mm256_loadu_ps(task.input + wide + row);
    __m256 d = _mm256_loadu_ps(task.input + wide + row + 8);
    transpose_halves(a, b, c, d);
    _mm256_storeu_ps(task.output + deep, _mm256_permute2f128_ps(a, b, kLowerHalves));
    _mm256_storeu_ps(task.output + deep + plane, _mm256_permute2f128_ps(c, d, kLowerHalves));
    _mm256_storeu_ps(task.output + deep + 2 * plane, _mm256_permute2f128_ps(a, b, kUpperHalves));
    _mm256_storeu_ps(task.output + deep + 3 * plane, _mm256_permute2f128_ps(c, d, kUpperHalves));
  });
}

}  // namespace marlo::kernel::pixel_shuffle
