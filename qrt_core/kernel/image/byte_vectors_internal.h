#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// Sixteen bytes at a time, in the compiler's own vectors: pixels of three bytes are the one thing
// here that no compiler takes apart by itself.

namespace marlo::kernel::image {
namespace {

inline constexpr size_t kVectorBytes = 16;
using Bytes = uint8_t __attribute__((vector_size(kVectorBytes)));

/// 48 bytes: sixteen pixels, or sixteen bytes of three planes.
struct ByteTriple {
  Bytes a, b, c;
};

/// Byte i and byte i + 24 go to bytes 2 * i and 2 * i + 1.
inline ByteTriple riffle(const ByteTriple& v) {
  return {
      __builtin_shufflevector(v.a, v.b, 0, 24, 1, 25, 2, 26, 3, 27, 4, 28, 5, 29, 6, 30, 7, 31),
      __builtin_shufflevector(v.a, v.c, 8, 16, 9, 17, 10, 18, 11, 19, 12, 20, 13, 21, 14, 22, 15,
                              23),
      __builtin_shufflevector(v.b, v.c, 0, 24, 1, 25, 2, 26, 3, 27, 4, 28, 5, 29, 6, 30, 7, 31)};
}

/// The inverse: even bytes go to the first half, odd ones to the second.
inline ByteTriple unriffle(const ByteTriple& v) {
  // As words, of which the low or the high bytes are kept: compilers pack those in one instruction.
  using Words = uint16_t __attribute__((vector_size(2 * kVectorBytes)));
  Words first;
  Words last{};
  std::memcpy(&first, &v.a, sizeof first);
  std::memcpy(&last, &v.c, kVectorBytes);
  const Bytes even = __builtin_convertvector(first & 0xFF, Bytes);
  const Bytes odd = __builtin_convertvector(first >> 8, Bytes);
  const Bytes last_even = __builtin_convertvector(last & 0xFF, Bytes);
  const Bytes last_odd = __builtin_convertvector(last >> 8, Bytes);
  return {even,
          __builtin_shufflevector(last_even, odd, 0, 1, 2, 3, 4, 5, 6, 7, 16, 17, 18, 19, 20, 21,
                                  22, 23),
          __builtin_shufflevector(odd, last_odd, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20,
                                  21, 22, 23)};
}

/// Sixteen pixels of three bytes to sixteen bytes of each plane. Four riffles send byte p to place
/// 16 * p modulo 47, which is 16 * c + k for byte c of pixel k.
inline ByteTriple split(const uint8_t* pixels) {
  ByteTriple v;
  std::memcpy(&v, pixels, sizeof v);
  return riffle(riffle(riffle(riffle(v))));
}

/// The inverse.
inline void join(const ByteTriple& planes, uint8_t* pixels) {
  const ByteTriple v = unriffle(unriffle(unriffle(unriffle(planes))));
  std::memcpy(pixels, &v, sizeof v);
}

}  // namespace
}  // namespace marlo::kernel::image
