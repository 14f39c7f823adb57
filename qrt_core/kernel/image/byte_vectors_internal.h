#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

// Sixteen bytes at a time, in the compiler's own vectors: pixels of three bytes are the one thing
// here that no compiler takes apart by itself.

namespace marlo::kernel::image {
namespace {

inline constexpr size_t kVectorBytes = 16;
using Bytes = uint8_t __attribute__((vector_size(kVectorBytes)));
using Words = uint16_t __attribute__((vector_size(kVectorBytes)));
using Doublewords = uint32_t __attribute__((vector_size(kVectorBytes)));
using Quadwords = uint64_t __attribute__((vector_size(kVectorBytes)));

template <typename Vector>
Vector load(const void* from) {
  Vector v;
  std::memcpy(&v, from, sizeof v);
  return v;
}

template <typename Vector>
void store(const Vector& v, void* to) {
  std::memcpy(to, &v, sizeof v);
}

/// Byte 0 of a, byte 0 of b, byte 1 of a, ...; of the lower halves and of the upper ones.
inline Bytes merge_low(const Bytes& a, const Bytes& b) {
  return __builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
}
inline Bytes merge_high(const Bytes& a, const Bytes& b) {
  return __builtin_shufflevector(a, b, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15,
                                 31);
}

inline Words merge_low(const Words& a, const Words& b) {
  return __builtin_shufflevector(a, b, 0, 8, 1, 9, 2, 10, 3, 11);
}
inline Words merge_high(const Words& a, const Words& b) {
  return __builtin_shufflevector(a, b, 4, 12, 5, 13, 6, 14, 7, 15);
}

using Floats = float __attribute__((vector_size(kVectorBytes)));

/// Four floats of numbers below 2^31.
inline Floats floats_of(const Words& words) {
  using Integers = int32_t __attribute__((vector_size(kVectorBytes)));
  return __builtin_convertvector(std::bit_cast<Integers>(words), Floats);
}

/// The pixels that 96 bytes are.
inline constexpr size_t kTriples = 2 * kVectorBytes;

/// Merges the first half of 96 bytes with the second: byte p goes to place 2 * p modulo 95.
inline void riffle(Bytes (&v)[6]) {
  const Bytes merged[6] = {merge_low(v[0], v[3]),  merge_high(v[0], v[3]), merge_low(v[1], v[4]),
                           merge_high(v[1], v[4]), merge_low(v[2], v[5]),  merge_high(v[2], v[5])};
  for (size_t i = 0; i < 6; ++i) v[i] = merged[i];
}

/// Loads 32 pixels of three bytes and takes them apart. Four riffles send byte c of pixel k to
/// place 16 * (3 * k + c) modulo 95: vector c holds it of the even pixels, vector 3 + c of the odd.
inline void load_triples(const uint8_t* pixels, Bytes (&v)[6]) {
  for (size_t i = 0; i < 6; ++i) v[i] = load<Bytes>(pixels + i * kVectorBytes);
  for (size_t turn = 0; turn < 4; ++turn) riffle(v);
}

/// 32 pixels of three bytes to the bytes of each plane.
inline void split(const uint8_t* pixels, uint8_t* plane0, uint8_t* plane1, uint8_t* plane2) {
  Bytes v[6];
  load_triples(pixels, v);
  riffle(v);
  store(v[0], plane0);
  store(v[1], plane0 + kVectorBytes);
  store(v[2], plane1);
  store(v[3], plane1 + kVectorBytes);
  store(v[4], plane2);
  store(v[5], plane2 + kVectorBytes);
}

/// Writes four pixels that have four bytes each without their last bytes, and two bytes more.
inline void store_triples(const Quadwords& pixels, uint8_t* to) {
  const Quadwords pairs = (pixels & 0xFFFFFF) | ((pixels >> 8) & 0xFFFFFF000000);
  const uint64_t first = pairs[0];
  const uint64_t second = pairs[1];
  std::memcpy(to, &first, sizeof first);
  std::memcpy(to + 6, &second, sizeof second);
}

/// Sixteen bytes of each plane to pixels of three bytes. Two bytes more are written.
inline void join(const uint8_t* plane0, const uint8_t* plane1, const uint8_t* plane2,
                 uint8_t* pixels) {
  const auto a = load<Bytes>(plane0);
  const auto b = load<Bytes>(plane1);
  const auto c = load<Bytes>(plane2);
  const auto low = std::bit_cast<Words>(merge_low(a, b));
  const auto high = std::bit_cast<Words>(merge_high(a, b));
  const auto low_rest = std::bit_cast<Words>(merge_low(c, Bytes{}));
  const auto high_rest = std::bit_cast<Words>(merge_high(c, Bytes{}));
  const auto words = [](const Words& x, const Words& y, uint8_t* to) {
    store_triples(std::bit_cast<Quadwords>(merge_low(x, y)), to);
    store_triples(std::bit_cast<Quadwords>(merge_high(x, y)), to + 12);
  };
  words(low, low_rest, pixels);
  words(high, high_rest, pixels + 24);
}

/// The elements of a vector.
template <typename T>
inline constexpr size_t kLanes = kVectorBytes / sizeof(T);

/// Lanes i and j of a, and k and l of b.
template <int i, int j, int k, int l>
Doublewords pick(const Doublewords& a, const Doublewords& b) {
  return __builtin_shufflevector(a, b, i, j, 4 + k, 4 + l);
}

/// Four pixels of three doublewords to the doublewords of each plane.
inline void split(const uint32_t* pixels, uint32_t* plane0, uint32_t* plane1, uint32_t* plane2) {
  const auto a = load<Doublewords>(pixels);      // 0 1 2 0
  const auto b = load<Doublewords>(pixels + 4);  // 1 2 0 1
  const auto c = load<Doublewords>(pixels + 8);  // 2 0 1 2
  store(pick<0, 3, 0, 2>(a, pick<2, 2, 1, 1>(b, c)), plane0);
  store(pick<0, 2, 0, 2>(pick<1, 1, 0, 0>(a, b), pick<3, 3, 2, 2>(b, c)), plane1);
  store(pick<0, 2, 0, 3>(pick<2, 2, 1, 1>(a, b), c), plane2);
}

/// The inverse.
inline void join(const uint32_t* plane0, const uint32_t* plane1, const uint32_t* plane2,
                 uint32_t* pixels) {
  const auto a = load<Doublewords>(plane0);
  const auto b = load<Doublewords>(plane1);
  const auto c = load<Doublewords>(plane2);
  store(pick<0, 2, 0, 2>(pick<0, 0, 0, 0>(a, b), pick<0, 0, 1, 1>(c, a)), pixels);
  store(pick<0, 2, 0, 2>(pick<1, 1, 1, 1>(b, c), pick<2, 2, 2, 2>(a, b)), pixels + 4);
  store(pick<0, 2, 0, 2>(pick<2, 2, 3, 3>(c, a), pick<3, 3, 3, 3>(b, c)), pixels + 8);
}

}  // namespace
}  // namespace marlo::kernel::image
