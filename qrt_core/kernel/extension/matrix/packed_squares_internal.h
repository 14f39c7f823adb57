#pragma once

#include <cstddef>

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

/// The same of `lines` rows that have `depth` numbers each, to [depth, to_row]. Where there are four
/// and more, the last four may overlap those before.
[[gnu::always_inline]] inline void turn_lines(const float* from, size_t from_row, size_t lines,
                                              size_t depth, float factor, float* to,
                                              size_t to_row) noexcept {
  size_t whole = 0;
  if (lines >= 4) {
    whole = depth - depth % 4;
    for (size_t i = 0;; i = i + 8 <= lines ? i + 4 : lines - 4) {
      for (size_t k = 0; k < whole; k += 4) {
        turn_square(from + i * from_row + k, from_row, factor, to + k * to_row + i, to_row);
      }
      if (i + 4 == lines) break;
    }
  }
  for (size_t i = 0; i < lines; ++i) {
    for (size_t k = whole; k < depth; ++k) to[k * to_row + i] = from[i * from_row + k] * factor;
  }
}

}  // namespace
}  // namespace marlo::kernel::matrix
