#ifndef __AVX2__
#error "this file holds AVX2 code and must be compiled with -mavx2"
#endif

#include "qrt_core/kernel/image/avx2_cores.h"
#include "qrt_core/kernel/image/avx2_vectors_internal.h"

namespace marlo::kernel::image {
namespace {

constexpr size_t kBytes = 32;
constexpr size_t kHalf = kBytes / 2;

// The pixels of 16 bytes from the last to the first; where a pixel has three bytes, of the last 15.
template <size_t pixel_bytes>
constexpr Places backwards() {
  Places places{};
  for (size_t i = 0; i < kBytes; ++i) {
    const size_t byte = i % kHalf;
    const size_t pixel = byte / pixel_bytes;
    const size_t from = kHalf - (pixel + 1) * pixel_bytes + byte % pixel_bytes;
    places.at[i] = static_cast<uint8_t>(from % kHalf);
  }
  return places;
}

template <size_t pixel_bytes>
size_t reverse(const uint8_t* input, size_t count, uint8_t* output) {
  static constexpr Places kBackwards = backwards<pixel_bytes>();
  constexpr size_t kPixels = kBytes / pixel_bytes;
  const __m256i places = kBackwards;
  size_t i = 0;
  for (; i + kPixels <= count; i += kPixels) {
    const uint8_t* const from = input + (count - i - kPixels) * pixel_bytes;
    const __m256i halves = _mm256_shuffle_epi8(load(from), places);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(output + i * pixel_bytes),
                        _mm256_permute2x128_si256(halves, halves, 1));
  }
  return i;
}

// Five pixels of three bytes in 16. One byte too many is read of the pixel before and written where
// the pixel behind goes, so that one pixel more has to be there.
size_t reverse_triples(const uint8_t* input, size_t count, uint8_t* output) {
  static constexpr Places kBackwards = backwards<3>();
  constexpr size_t kPixels = 5;
  const __m128i places = _mm256_castsi256_si128(kBackwards);
  size_t i = 0;
  for (; i + kPixels < count; i += kPixels) {
    const uint8_t* const from = input + 3 * (count - i) - kHalf;
    const __m128i pixels = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(output + 3 * i), _mm_shuffle_epi8(pixels, places));
  }
  return i;
}

// Two bytes of the same sample in pixels that stand side by side come together: in each half of a
// vector, of 16 bytes, or of the first 12 where a pixel has three.
template <size_t channels>
constexpr Places pairs() {
  Places places{};
  for (size_t i = 0; i < kBytes; ++i) {
    const size_t byte = i % kHalf;
    const size_t pair = byte / (2 * channels);
    const size_t sample = byte % (2 * channels) / 2;
    const size_t from = 2 * channels * pair + sample + byte % 2 * channels;
    // What is behind two pairs of three bytes is cut off again.
    places.at[i] = static_cast<uint8_t>(channels == 3 && pair > 1 ? 0x80 : from);
  }
  return places;
}

// Sums of four bytes, rounded, as words.
__m256i means(__m256i upper, __m256i lower, __m256i places) {
  const __m256i ones = _mm256_set1_epi8(1);
  const __m256i a = _mm256_maddubs_epi16(_mm256_shuffle_epi8(upper, places), ones);
  const __m256i b = _mm256_maddubs_epi16(_mm256_shuffle_epi8(lower, places), ones);
  return _mm256_srli_epi16(_mm256_add_epi16(_mm256_add_epi16(a, b), _mm256_set1_epi16(2)), 2);
}

template <size_t channels>
size_t halve(const uint8_t* upper, const uint8_t* lower, size_t count, uint8_t* output) {
  static constexpr Places kPairs = pairs<channels>();
  constexpr size_t kPixels = kBytes / channels;
  const __m256i places = kPairs;
  size_t i = 0;
  for (; i + kPixels <= count; i += kPixels) {
    const size_t at = 2 * channels * i;
    const __m256i first = means(load(upper + at), load(lower + at), places);
    const __m256i second = means(load(upper + at + kBytes), load(lower + at + kBytes), places);
    _mm256_storeu_si256(
        reinterpret_cast<__m256i*>(output + channels * i),
        _mm256_permute4x64_epi64(_mm256_packus_epi16(first, second), _MM_SHUFFLE(3, 1, 2, 0)));
  }
  return i;
}

// Eight pixels of three bytes, of 48 bytes a row: twelve in each half of two vectors. Four bytes more
// are read, and four written.
size_t halve_triples(const uint8_t* upper, const uint8_t* lower, size_t count, uint8_t* output) {
  static constexpr Places kPairs = pairs<3>();
  constexpr size_t kPixels = 8;
  constexpr size_t kPart = 12;
  const __m256i places = kPairs;
  // Six bytes of each half of a half.
  const __m256i dense = _mm256_setr_epi8(0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, -1, -1, -1, -1, 0,
                                         1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, -1, -1, -1, -1);
  const auto parts = [](const uint8_t* from) {
    return _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(from + 2 * kPart),
                               reinterpret_cast<const __m128i*>(from));
  };
  size_t i = 0;
  for (; i + kPixels + 2 <= count; i += kPixels) {
    const size_t at = 6 * i;
    const __m256i first = means(parts(upper + at), parts(lower + at), places);
    const __m256i second = means(parts(upper + at + kPart), parts(lower + at + kPart), places);
    const __m256i bytes = _mm256_shuffle_epi8(_mm256_packus_epi16(first, second), dense);
    uint8_t* const to = output + 3 * i;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm256_castsi256_si128(bytes));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + kPart), _mm256_extracti128_si256(bytes, 1));
  }
  return i;
}

}  // namespace

size_t reverse_pixels_avx2(const uint8_t* input, size_t count, size_t pixel_bytes,
                           uint8_t* output) noexcept {
  switch (pixel_bytes) {
    case 1:
      return reverse<1>(input, count, output);
    case 2:
      return reverse<2>(input, count, output);
    case 3:
      return reverse_triples(input, count, output);
    case 4:
      return reverse<4>(input, count, output);
    default:
      return 0;
  }
}

size_t halve_rows_avx2(const uint8_t* upper, const uint8_t* lower, size_t channels, size_t count,
                       uint8_t* output) noexcept {
  switch (channels) {
    case 1:
      return halve<1>(upper, lower, count, output);
    case 2:
      return halve<2>(upper, lower, count, output);
    case 3:
      return halve_triples(upper, lower, count, output);
    default:
      return halve<4>(upper, lower, count, output);
  }
}

}  // namespace marlo::kernel::image
