#include <emmintrin.h>

#include <cstring>

#include "qrt_core/kernel/image/resize_cores.h"

namespace marlo::kernel::image {
namespace {

__m128i load(const void* from) noexcept {
  return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

__m128i load_four(const uint8_t* from) noexcept {
  int word;
  std::memcpy(&word, from, sizeof word);
  return _mm_cvtsi32_si128(word);
}

// Four sums of pairs in 16 bits.
__m128i weighed(__m128i pairs, const int16_t* weights) noexcept {
  return _mm_srai_epi32(_mm_madd_epi16(pairs, load(weights)), 4);
}

template <size_t channels>
__m128i scaled_pixel(const uint8_t* row, const ColumnTable& table, size_t column) noexcept {
  const size_t offset = table.offsets[column];
  const __m128i pairs =
      _mm_unpacklo_epi8(load_four(row + offset), load_four(row + table.step + offset));
  return weighed(_mm_unpacklo_epi8(pairs, _mm_setzero_si128()),
                 table.weights + 2 * channels * column);
}

template <size_t channels>
size_t scale(const uint8_t* row, const ColumnTable& given, int16_t* scaled) noexcept {
  const ColumnTable table = given;  // which nothing that is written can change
  size_t i = 0;
  for (; i + 2 <= table.columns; i += 2) {
    const __m128i both = _mm_packs_epi32(scaled_pixel<channels>(row, table, i),
                                         scaled_pixel<channels>(row, table, i + 1));
    // A fourth number of three is overwritten by the pixel behind.
    int16_t* const to = scaled + channels * i;
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), both);
    _mm_storeh_pi(reinterpret_cast<__m64*>(to + channels), _mm_castsi128_ps(both));
  }
  return i;
}

}  // namespace

size_t scale_columns_sse(const uint8_t* row, size_t channels, const ColumnTable& table,
                         int16_t* scaled) noexcept {
  if (channels == 3) return scale<3>(row, table, scaled);
  if (channels == 4) return scale<4>(row, table, scaled);
  return 0;
}

size_t weigh_pairs_sse(const uint8_t* pairs, const int16_t* weights, size_t count,
                       int16_t* scaled) noexcept {
  const __m128i zero = _mm_setzero_si128();
  size_t i = 0;
  for (; i + 8 <= count; i += 8) {
    const __m128i bytes = load(pairs + 2 * i);
    const __m128i low = weighed(_mm_unpacklo_epi8(bytes, zero), weights + 2 * i);
    const __m128i high = weighed(_mm_unpackhi_epi8(bytes, zero), weights + 2 * i + 8);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(scaled + i), _mm_packs_epi32(low, high));
  }
  return i;
}

}  // namespace marlo::kernel::image
