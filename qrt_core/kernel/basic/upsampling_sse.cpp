#include <emmintrin.h>

#include "qrt_core/kernel/basic/upsampling_body.h"

namespace marlo::kernel::upsampling {
namespace {

constexpr size_t kLanes = 4;

__m128 blend(__m128 a, __m128 wa, __m128 b, __m128 wb) {
  return _mm_add_ps(_mm_mul_ps(a, wa), _mm_mul_ps(b, wb));
}

// The four channels of a pixel.
struct Pixel {
  static constexpr size_t kLanes = upsampling::kLanes;
  static __m128 load(const float* from) noexcept { return _mm_loadu_ps(from); }
  static __m128 splat(const float* from) noexcept { return _mm_load1_ps(from); }
  static void store(float* to, __m128 x) noexcept { _mm_storeu_ps(to, x); }
  static __m128 blend(__m128 a, __m128 wa, __m128 b, __m128 wb) noexcept {
    return upsampling::blend(a, wa, b, wb);
  }
};

void blend_rows(const float* top, const float* bottom, const Taps& taps, float* out,
                size_t count) noexcept {
  const __m128 wt = _mm_set1_ps(taps.first_weight);
  const __m128 wb = _mm_set1_ps(taps.second_weight);
  size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    _mm_storeu_ps(out + i, blend(_mm_loadu_ps(top + i), wt, _mm_loadu_ps(bottom + i), wb));
  }
  blend_tail(top, bottom, taps, out, i, count);
}

}  // namespace

void bilinear_chw_sse(const Task& task) noexcept {
  bilinear<1>(task, blend_floats(task), blend_rows);
}

void bilinear_c4_sse(const Task& task) noexcept {
  bilinear<kLanes>(task, blend_pixels<Pixel>(task), blend_rows);
}

void nearest_c4_sse(const Task& task) noexcept {
  nearest<kLanes>(task,
                  [](const float* from, float* to) { _mm_storeu_ps(to, _mm_loadu_ps(from)); });
}

}  // namespace marlo::kernel::upsampling
