#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include <immintrin.h>

#include "qrt_core/kernel/basic/upsampling_body.h"

namespace marlo::kernel::upsampling {
namespace {

constexpr size_t kLanes = 8;

__m256 blend(__m256 a, __m256 wa, __m256 b, __m256 wb) {
  return _mm256_add_ps(_mm256_mul_ps(a, wa), _mm256_mul_ps(b, wb));
}

// The eight channels of a pixel.
struct Pixel {
  static constexpr size_t kLanes = upsampling::kLanes;
  static __m256 load(const float* from) noexcept { return _mm256_loadu_ps(from); }
  static __m256 splat(const float* from) noexcept { return _mm256_broadcast_ss(from); }
  static void store(float* to, __m256 x) noexcept { _mm256_storeu_ps(to, x); }
  static __m256 blend(__m256 a, __m256 wa, __m256 b, __m256 wb) noexcept {
    return upsampling::blend(a, wa, b, wb);
  }
};

void blend_rows(const float* top, const float* bottom, const Taps& taps, float* out,
                size_t count) noexcept {
  const __m256 wt = _mm256_set1_ps(taps.first_weight);
  const __m256 wb = _mm256_set1_ps(taps.second_weight);
  size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    _mm256_storeu_ps(out + i, blend(_mm256_loadu_ps(top + i), wt, _mm256_loadu_ps(bottom + i), wb));
  }
  blend_tail(top, bottom, taps, out, i, count);
}

}  // namespace

void bilinear_chw_avx(const Task& task) noexcept {
  bilinear<1>(task, blend_floats(task), blend_rows);
}

void bilinear_c8_avx(const Task& task) noexcept {
  bilinear<kLanes>(task, blend_pixels<Pixel>(task), blend_rows);
}

void nearest_c8_avx(const Task& task) noexcept {
  nearest<kLanes>(
      task, [](const float* from, float* to) { _mm256_storeu_ps(to, _mm256_loadu_ps(from)); });
}

}  // namespace marlo::kernel::upsampling
