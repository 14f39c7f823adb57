#include <emmintrin.h>

#include "qrt_core/kernel/image/warp_cores.h"

namespace marlo::kernel::image {
namespace {

// Four coordinates of taps, kept inside and with their fractions, which are NaN for what isn't
// finite.
struct Coordinates {
  __m128i whole;
  __m128 fraction;
};

// @param last the largest coordinate of a first tap
Coordinates coordinates(__m128 place, __m128i last) noexcept {
  const __m128 limit = _mm_set1_ps(0x1p30f);
  // A NaN takes the second operand of a maximum.
  const __m128 kept = _mm_min_ps(_mm_max_ps(place, _mm_set1_ps(-0x1p30f)), limit);
  __m128i whole = _mm_cvttps_epi32(kept);
  const __m128 fraction =
      _mm_sub_ps(_mm_sub_ps(kept, _mm_cvtepi32_ps(whole)), _mm_sub_ps(place, place));
  whole = _mm_andnot_si128(_mm_srai_epi32(whole, 31), whole);
  const __m128i beyond = _mm_cmpgt_epi32(whole, last);
  whole = _mm_or_si128(_mm_and_si128(beyond, last), _mm_andnot_si128(beyond, whole));
  return {whole, fraction};
}

// Two neighbours of each of two pixels, at any address.
__m128 neighbours(const float* a, const float* b) noexcept {
  const __m128i low = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(a));
  return _mm_loadh_pi(_mm_castsi128_ps(low), reinterpret_cast<const __m64*>(b));
}

struct Weights {
  __m128 w00, w01, w10, w11;
};

// Four pixels of one plane.
__m128 mix(const float* const taps[4], size_t offset, size_t below, const Weights& w) noexcept {
  const float* const a = taps[0] + offset;
  const float* const b = taps[1] + offset;
  const float* const c = taps[2] + offset;
  const float* const d = taps[3] + offset;
  const __m128 upper_ab = neighbours(a, b);
  const __m128 upper_cd = neighbours(c, d);
  const __m128 lower_ab = neighbours(a + below, b + below);
  const __m128 lower_cd = neighbours(c + below, d + below);
  const __m128 t00 = _mm_shuffle_ps(upper_ab, upper_cd, _MM_SHUFFLE(2, 0, 2, 0));
  const __m128 t01 = _mm_shuffle_ps(upper_ab, upper_cd, _MM_SHUFFLE(3, 1, 3, 1));
  const __m128 t10 = _mm_shuffle_ps(lower_ab, lower_cd, _MM_SHUFFLE(2, 0, 2, 0));
  const __m128 t11 = _mm_shuffle_ps(lower_ab, lower_cd, _MM_SHUFFLE(3, 1, 3, 1));
  const __m128 upper = _mm_add_ps(_mm_mul_ps(w.w00, t00), _mm_mul_ps(w.w01, t01));
  return _mm_add_ps(_mm_add_ps(upper, _mm_mul_ps(w.w10, t10)), _mm_mul_ps(w.w11, t11));
}

}  // namespace

size_t warp_normalized_row_sse(const float* input, const FloatPlanes& from,
                               const NormalizedWarp& warp, size_t y, float* output,
                               const FloatPlanes& to) noexcept {
  // Indices of pixels are 32-bit here, and a pixel has a neighbour behind and one below it.
  constexpr size_t kLargest = 0x7FFFFFFF;
  if (from.width < 2 || from.height < 2 || from.height > kLargest / from.width) return 0;
  const size_t in_plane = from.height * from.width;
  const size_t out_plane = to.height * to.width;
  const __m128 one = _mm_set1_ps(1.0f);
  const __m128 half = _mm_set1_ps(0.5f);
  const __m128 half_width = _mm_set1_ps(warp.half_width);
  const __m128 x_x = _mm_set1_ps(warp.x_x);
  const __m128 y_x = _mm_set1_ps(warp.y_x);
  const __m128 x_offset = _mm_set1_ps(warp.x_offset);
  const __m128 y_offset = _mm_set1_ps(warp.y_offset);
  const __m128i last_column = _mm_set1_epi32(static_cast<int>(from.width - 2));
  const __m128i last_row = _mm_set1_epi32(static_cast<int>(from.height - 2));
  const float yc = static_cast<float>(y) + 0.5f - warp.half_height;
  const __m128 x_of_row = _mm_set1_ps(yc * warp.x_y);
  const __m128 y_of_row = _mm_set1_ps(yc * warp.y_y);

  size_t x = 0;
  for (; x + 4 <= to.width; x += 4) {
    const __m128i columns =
        _mm_add_epi32(_mm_set1_epi32(static_cast<int>(x)), _mm_setr_epi32(0, 1, 2, 3));
    const __m128 xc = _mm_sub_ps(_mm_add_ps(_mm_cvtepi32_ps(columns), half), half_width);
    const __m128 sx = _mm_add_ps(_mm_add_ps(_mm_mul_ps(xc, x_x), x_of_row), x_offset);
    const __m128 sy = _mm_add_ps(_mm_add_ps(y_of_row, _mm_mul_ps(xc, y_x)), y_offset);
    const Coordinates column = coordinates(sx, last_column);
    const Coordinates row = coordinates(sy, last_row);
    const __m128 fx = column.fraction;
    const __m128 fy = row.fraction;
    const __m128 not_fx = _mm_sub_ps(one, fx);
    const __m128 not_fy = _mm_sub_ps(one, fy);
    const Weights weights{_mm_mul_ps(not_fy, not_fx), _mm_mul_ps(not_fy, fx),
                          _mm_mul_ps(fy, not_fx), _mm_mul_ps(fy, fx)};
    alignas(16) int column_of[4];
    alignas(16) int row_of[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(column_of), column.whole);
    _mm_store_si128(reinterpret_cast<__m128i*>(row_of), row.whole);
    const float* taps[4];
    for (size_t i = 0; i < 4; ++i) {
      taps[i] =
          input + static_cast<size_t>(row_of[i]) * from.width + static_cast<size_t>(column_of[i]);
    }
    float* const place = output + y * to.width + x;
    for (size_t c = 0; c < to.channels; ++c) {
      _mm_storeu_ps(place + c * out_plane, mix(taps, c * in_plane, from.width, weights));
    }
  }
  return x;
}

}  // namespace marlo::kernel::image
