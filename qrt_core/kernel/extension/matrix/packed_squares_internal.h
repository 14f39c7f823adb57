#pragma once

#include <cstddef>

#include "qrt_core/kernel/vectors_internal.h"

// Squares of four by four floats turned in registers, in the compiler's own vectors: packing turns
// every matrix whose elements don't lie as its product reads them.

namespace marlo::kernel::matrix {
namespace {

using Four = float __attribute__((vector_size(16)));

/// to[j * to_row + i] = from[i * from_row + j] * factor.
[[gnu::always_inline]] inline void turn_square(const float* from, size_t from_row, float factor,
                                               float* to, size_t to_row) noexcept {
  Four rows[4];
  for (size_t i = 0; i < 4; ++i) {
    __builtin_memcpy(&rows[i], from + i * from_row, sizeof(Four));  // from any place
    rows[i] *= factor;
  }
  const Four low01 = __builtin_shufflevector(rows[0], rows[1], 0, 4, 1, 5);
  const Four low23 = __builtin_shufflevector(rows[2], rows[3], 0, 4, 1, 5);
  const Four high01 = __builtin_shufflevector(rows[0], rows[1], 2, 6, 3, 7);
  const Four high23 = __builtin_shufflevector(rows[2], rows[3], 2, 6, 3, 7);
  const Four turned[4] = {__builtin_shufflevector(low01, low23, 0, 1, 4, 5),
                          __builtin_shufflevector(low01, low23, 2, 3, 6, 7),
                          __builtin_shufflevector(high01, high23, 0, 1, 4, 5),
                          __builtin_shufflevector(high01, high23, 2, 3, 6, 7)};
  for (size_t j = 0; j < 4; ++j) __builtin_memcpy(to + j * to_row, &turned[j], sizeof(Four));
}

#ifdef __AVX__

using Eight = float __attribute__((vector_size(32)));

/// The same of a square of eight by eight.
[[gnu::always_inline]] inline void turn_large_square(const float* from, size_t from_row,
                                                     float factor, float* to,
                                                     size_t to_row) noexcept {
  Eight turned[8];
  for (size_t half = 0; half < 2; ++half) {
    // Lanes of the upper half are rows 4 to 7.
    Eight rows[4];
    for (size_t i = 0; i < 4; ++i) {
      Four parts[2];
      __builtin_memcpy(&parts[0], from + i * from_row + 4 * half, sizeof(Four));
      __builtin_memcpy(&parts[1], from + (i + 4) * from_row + 4 * half, sizeof(Four));
      rows[i] = __builtin_shufflevector(parts[0], parts[1], 0, 1, 2, 3, 4, 5, 6, 7) * factor;
    }
    const Eight low01 = __builtin_shufflevector(rows[0], rows[1], 0, 8, 1, 9, 4, 12, 5, 13);
    const Eight low23 = __builtin_shufflevector(rows[2], rows[3], 0, 8, 1, 9, 4, 12, 5, 13);
    const Eight high01 = __builtin_shufflevector(rows[0], rows[1], 2, 10, 3, 11, 6, 14, 7, 15);
    const Eight high23 = __builtin_shufflevector(rows[2], rows[3], 2, 10, 3, 11, 6, 14, 7, 15);
    Eight* const out = turned + 4 * half;
    out[0] = __builtin_shufflevector(low01, low23, 0, 1, 8, 9, 4, 5, 12, 13);
    out[1] = __builtin_shufflevector(low01, low23, 2, 3, 10, 11, 6, 7, 14, 15);
    out[2] = __builtin_shufflevector(high01, high23, 0, 1, 8, 9, 4, 5, 12, 13);
    out[3] = __builtin_shufflevector(high01, high23, 2, 3, 10, 11, 6, 7, 14, 15);
  }
  for (size_t j = 0; j < 8; ++j) __builtin_memcpy(to + j * to_row, &turned[j], sizeof(Eight));
}

#endif

/// The same of `lines` rows that have `depth` numbers each, to [depth, to_row]. Where there are four
/// and more, the last four may overlap those before.
[[gnu::always_inline]] inline void turn_lines(const float* from, size_t from_row, size_t lines,
                                              size_t depth, float factor, float* to,
                                              size_t to_row) noexcept {
  const size_t whole = lines < 4 ? 0 : depth - depth % 4;
  size_t i = 0;
#ifdef __AVX__
  for (; i + 8 <= lines; i += 8) {
    const float* const line = from + i * from_row;
    size_t k = 0;
    for (; k + 8 <= whole; k += 8) {
      turn_large_square(line + k, from_row, factor, to + k * to_row + i, to_row);
    }
    if (k == whole) continue;
    turn_square(line + k, from_row, factor, to + k * to_row + i, to_row);
    turn_square(line + 4 * from_row + k, from_row, factor, to + k * to_row + i + 4, to_row);
  }
#endif
  while (lines >= 4 && i < lines) {
    const size_t at = smaller_of(i, lines - 4);
    for (size_t k = 0; k < whole; k += 4) {
      turn_square(from + at * from_row + k, from_row, factor, to + k * to_row + at, to_row);
    }
    i += 4;
  }
  for (i = 0; i < lines; ++i) {
    for (size_t k = whole; k < depth; ++k) to[k * to_row + i] = from[i * from_row + k] * factor;
  }
}

}  // namespace
}  // namespace marlo::kernel::matrix
