#pragma once

#include <cstddef>
#include <cstdint>

namespace marlo::kernel::elementary {

/// `rows` rows of `count` results: c[i] = a[i * a_step] op b[i * b_step], where steps are 0 or 1. Rows of
/// results follow each other, those of the operands lie `a_row` and `b_row` apart.
struct BinaryTask {
  uint32_t function = 0;  ///< a runtime::BinaryFunction
  const float* a = nullptr;
  size_t a_step = 1;
  const float* b = nullptr;
  size_t b_step = 1;
  float* c = nullptr;
  size_t count = 0;
  size_t rows = 1;
  size_t a_row = 0;
  size_t b_row = 0;
};

/// Carries a task out. Those of vectors compute sums, differences, products, quotients, minima,
/// maxima and PReLU, and leave everything else to the portable one. Each operation rounds once.
using BinaryCore = void (*)(const BinaryTask& task) noexcept;

void binary_portable(const BinaryTask& task) noexcept;
void binary_fma(const BinaryTask& task) noexcept;
void binary_avx512(const BinaryTask& task) noexcept;

/// Whether vectors compute a function themselves.
constexpr bool has_vector_form(uint32_t function) {
  return function <= 3 || (function >= 5 && function <= 6) || function == 8;
}

}  // namespace marlo::kernel::elementary
