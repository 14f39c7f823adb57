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
    store_triples(std::bit_cast<Quadwords>(__builtin_shufflevector(x, y, 0, 8, 1, 9, 2, 10, 3, 11)),
                  to);
    store_triples(
        std::bit_cast<Quadwords>(__builtin_shufflevector(x, y, 4, 12, 5, 13, 6, 14, 7, 15)),
        to + 12);
  };
  words(low, low_rest, pixels);
  words(high, high_rest, pixels + 24);
}

/// What the first three bytes of a pixel count for in its gray, in 1 / 256. They sum to 256.
struct GrayWeights {
  uint16_t a, b, c;
};

/// The gray of 32 pixels of three bytes.
inline void gray_of_triples(const uint8_t* pixels, const GrayWeights& weights, uint8_t* gray) {
  Bytes v[6];
  load_triples(pixels, v);
  const auto gray_of = [weights](const Bytes& x, const Bytes& y, const Bytes& z) {
    const auto r = std::bit_cast<Words>(x);
    const auto g = std::bit_cast<Words>(y);
    const auto b = std::bit_cast<Words>(z);
    const Words low = (r & 0xFF) * weights.a + (g & 0xFF) * weights.b + (b & 0xFF) * weights.c;
    const Words high = (r >> 8) * weights.a + (g >> 8) * weights.b + (b >> 8) * weights.c;
    return std::bit_cast<Bytes>((low >> 8) | (high & 0xFF00));
  };
  const Bytes even = gray_of(v[0], v[1], v[2]);
  const Bytes odd = gray_of(v[3], v[4], v[5]);
  store(merge_low(even, odd), gray);
  store(merge_high(even, odd), gray + kVectorBytes);
}

/// The gray of sixteen pixels of four bytes.
inline Bytes gray_of_quads(const uint8_t* pixels, const GrayWeights& weights) {
  // Of four pixels and of the third four from there on, one beside the other.
  const auto eight = [weights](const uint8_t* from) {
    const auto x = load<Doublewords>(from);
    const auto y = load<Doublewords>(from + 2 * kVectorBytes);
    const auto low = std::bit_cast<Words>((x & 0xFFFF) | (y << 16));
    const auto high = std::bit_cast<Words>((x >> 16) | (y & 0xFFFF0000));
    return (low & 0xFF) * weights.a + (low >> 8) * weights.b + (high & 0xFF) * weights.c;
  };
  const Words first = eight(pixels);
  const Words second = eight(pixels + kVectorBytes);
  // Four times four bytes by columns.
  auto gray = std::bit_cast<Bytes>((first >> 8) | (second & 0xFF00));
  for (int turn = 0; turn < 2; ++turn) {
    const auto halves = std::bit_cast<Quadwords>(gray);
    const Quadwords swapped = __builtin_shufflevector(halves, halves, 1, 0);
    gray = merge_low(gray, std::bit_cast<Bytes>(swapped));
  }
  return gray;
}

}  // namespace
}  // namespace marlo::kernel::image
