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
  const Bytes even =
      __builtin_shufflevector(v.a, v.b, 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
  const Bytes odd =
      __builtin_shufflevector(v.a, v.b, 1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31);
  const Bytes last =
      __builtin_shufflevector(v.c, v.c, 0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15);
  return {
      even,
      __builtin_shufflevector(last, odd, 0, 1, 2, 3, 4, 5, 6, 7, 16, 17, 18, 19, 20, 21, 22, 23),
      __builtin_shufflevector(odd, last, 8, 9, 10, 11, 12, 13, 14, 15, 24, 25, 26, 27, 28, 29, 30,
                              31)};
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
