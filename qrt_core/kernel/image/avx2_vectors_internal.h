#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

// Pixels of three and four bytes in vectors of 32 bytes.

namespace marlo::kernel::image {
namespace {

inline __m256i load(const void* from) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(from));
}

/// What shuffles and blends go by: of both halves of a vector the same.
struct alignas(32) Places {
  uint8_t at[32];
  operator __m256i() const { return _mm256_load_si256(reinterpret_cast<const __m256i*>(at)); }
};

/// Byte k comes from byte (3 * k + first) modulo 16.
constexpr Places third_from(int first) {
  Places places{};
  for (int i = 0; i < 32; ++i) places.at[i] = static_cast<uint8_t>((3 * i + first) % 16);
  return places;
}

/// Byte k goes to byte (3 * k + first) modulo 16.
constexpr Places third_to(int first) {
  Places places{};
  for (int i = 0; i < 32; ++i) {
    places.at[i / 16 * 16 + (3 * i + first) % 16] = static_cast<uint8_t>(i % 16);
  }
  return places;
}

/// Bytes i of each half with i modulo 3 = rest.
constexpr Places every_third(int rest) {
  Places places{};
  for (int i = 0; i < 32; ++i) places.at[i] = i % 16 % 3 == rest ? 0xFF : 0;
  return places;
}

/// Bytes 0, 4, 8 and 12 of each half, then 1, 5, ...
constexpr Places columns_of_four() {
  Places places{};
  for (int i = 0; i < 32; ++i) places.at[i] = static_cast<uint8_t>(i % 4 * 4 + i % 16 / 4);
  return places;
}

inline constexpr Places kThirdFrom[3] = {third_from(0), third_from(1), third_from(2)};
inline constexpr Places kThirdTo[3] = {third_to(0), third_to(1), third_to(2)};
inline constexpr Places kFirstOfThree = every_third(0);
inline constexpr Places kSecondOfThree = every_third(1);
inline constexpr Places kColumnsOfFour = columns_of_four();

struct Three {
  __m256i v[3];
};

/// Bytes 0, 3, 6, ... of each half of a, 1, 4, ... of b, and 2, 5, ... of c.
inline __m256i every_third_of(__m256i a, __m256i b, __m256i c) {
  return _mm256_blendv_epi8(_mm256_blendv_epi8(c, b, kSecondOfThree), a, kFirstOfThree);
}

/// Doublewords 0 and 3 of each half of a, 1 of b, and 2 of c.
inline __m256i every_third_doubleword_of(__m256i a, __m256i b, __m256i c) {
  return _mm256_blend_epi32(_mm256_blend_epi32(a, b, 0x22), c, 0x44);
}

/// 96 bytes as three vectors, whose lower halves are the first 48 of them and whose upper halves the
/// last.
inline Three load_halves(const void* from) {
  const auto* const bytes = static_cast<const uint8_t*>(from);
  const __m256i a = load(bytes);
  const __m256i b = load(bytes + 32);
  const __m256i c = load(bytes + 64);
  return {{_mm256_blend_epi32(a, b, 0xF0), _mm256_permute2x128_si256(a, c, 0x21),
           _mm256_blend_epi32(b, c, 0xF0)}};
}

/// The inverse.
inline Three store_halves(const Three& halves) {
  const auto& [x, y, z] = halves.v;
  return {{_mm256_permute2x128_si256(x, y, 0x20), _mm256_blend_epi32(z, x, 0xF0),
           _mm256_permute2x128_si256(y, z, 0x31)}};
}

/// 32 pixels of three bytes: byte 0, 1 and 2 of all. In 48 bytes, byte c of pixel k stands at
/// 3 * k + c.
inline Three load_triples(const uint8_t* pixels) {
  const Three halves = load_halves(pixels);
  const auto& [x, y, z] = halves.v;
  return {{_mm256_shuffle_epi8(every_third_of(x, z, y), kThirdFrom[0]),
           _mm256_shuffle_epi8(every_third_of(y, x, z), kThirdFrom[1]),
           _mm256_shuffle_epi8(every_third_of(z, y, x), kThirdFrom[2])}};
}

/// The inverse: the three vectors that 32 pixels are.
inline Three triples_of(const Three& planes) {
  const __m256i a = _mm256_shuffle_epi8(planes.v[0], kThirdTo[0]);
  const __m256i b = _mm256_shuffle_epi8(planes.v[1], kThirdTo[1]);
  const __m256i c = _mm256_shuffle_epi8(planes.v[2], kThirdTo[2]);
  return store_halves(
      {{every_third_of(a, b, c), every_third_of(b, c, a), every_third_of(c, a, b)}});
}

/// Eight pixels of three doublewords.
inline Three load_doubleword_triples(const uint32_t* pixels) {
  const Three halves = load_halves(pixels);
  const auto& [x, y, z] = halves.v;
  return {{_mm256_shuffle_epi32(every_third_doubleword_of(x, z, y), _MM_SHUFFLE(1, 2, 3, 0)),
           _mm256_shuffle_epi32(every_third_doubleword_of(y, x, z), _MM_SHUFFLE(2, 3, 0, 1)),
           _mm256_shuffle_epi32(every_third_doubleword_of(z, y, x), _MM_SHUFFLE(3, 0, 1, 2))}};
}

/// The inverse: each shuffle is its own.
inline Three doubleword_triples_of(const Three& planes) {
  const __m256i a = _mm256_shuffle_epi32(planes.v[0], _MM_SHUFFLE(1, 2, 3, 0));
  const __m256i b = _mm256_shuffle_epi32(planes.v[1], _MM_SHUFFLE(2, 3, 0, 1));
  const __m256i c = _mm256_shuffle_epi32(planes.v[2], _MM_SHUFFLE(3, 0, 1, 2));
  return store_halves({{every_third_doubleword_of(a, b, c), every_third_doubleword_of(b, c, a),
                        every_third_doubleword_of(c, a, b)}});
}

/// 32 pixels of four bytes: byte 0, 1 and 2 of all, each four pixels in the place that
/// `in_order_of_quads` takes them from.
inline Three load_quads(const uint8_t* pixels) {
  __m256i v[4];
  for (int i = 0; i < 4; ++i) v[i] = _mm256_shuffle_epi8(load(pixels + 32 * i), kColumnsOfFour);
  const __m256i low01 = _mm256_unpacklo_epi32(v[0], v[1]);
  const __m256i low23 = _mm256_unpacklo_epi32(v[2], v[3]);
  const __m256i high01 = _mm256_unpackhi_epi32(v[0], v[1]);
  const __m256i high23 = _mm256_unpackhi_epi32(v[2], v[3]);
  return {{_mm256_unpacklo_epi64(low01, low23), _mm256_unpackhi_epi64(low01, low23),
           _mm256_unpacklo_epi64(high01, high23)}};
}

/// Doublewords 0, 4, 1, 5, 2, 6, 3, 7.
inline __m256i in_order_of_quads(__m256i v) {
  return _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

}  // namespace
}  // namespace marlo::kernel::image
