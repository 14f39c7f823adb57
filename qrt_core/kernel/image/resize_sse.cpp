#include <emmintrin.h>

#include <cstring>

#include "qrt_core/kernel/image/resize_cores.h"

namespace marlo::kernel::image {
namespace {

__m128i four_bytes(const uint8_t* bytes) noexcept {
  int word;
  std::memcpy(&word, bytes, sizeof word);
  return _mm_cvtsi32_si128(word);
}

// Four samples of the left and of the right pixel by their weights, in 32 bits.
__m128i weighed(const uint8_t* left, size_t step, int32_t weights) noexcept {
  const __m128i pairs = _mm_unpacklo_epi8(four_bytes(left), four_bytes(left + step));
  const __m128i wide = _mm_unpacklo_epi8(pairs, _mm_setzero_si128());
  return _mm_srai_epi32(_mm_madd_epi16(wide, _mm_set1_epi32(weights)), 4);
}

void store_four(__m128i words, int16_t* scaled) noexcept {
  _mm_storel_epi64(reinterpret_cast<__m128i*>(scaled), words);
}

template <size_t channels>
size_t scale(const uint8_t* row, const ColumnTable& table, size_t columns,
             int16_t* scaled) noexcept {
  const size_t step = table.step * channels;
  size_t i = 0;
  for (; i + 2 <= columns; i += 2) {
    const __m128i first = weighed(row + table.first[i] * channels, step, table.weights[i]);
    const __m128i second = weighed(row + table.first[i + 1] * channels, step, table.weights[i + 1]);
    const __m128i both = _mm_packs_epi32(first, second);
    // A fourth sample that is none is overwritten by the pixel behind it.
    store_four(both, scaled + i * channels);
    store_four(_mm_unpackhi_epi64(both, both), scaled + (i + 1) * channels);
  }
  return i;
}

}  // namespace

size_t scale_columns_sse(const uint8_t* row, size_t channels, const ColumnTable& table,
                         size_t columns, int16_t* scaled) noexcept {
  if (channels == 3) return scale<3>(row, table, columns, scaled);
  if (channels == 4) return scale<4>(row, table, columns, scaled);
  return 0;
}

}  // namespace marlo::kernel::image
