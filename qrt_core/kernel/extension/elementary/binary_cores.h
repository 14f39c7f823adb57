#pragma once

#include <cstddef>
#include <cstdint>

namespace marlo::kernel::elementary {

/// `groups` groups of `rows` rows of `count` results: c[i] = a[i * a_step] op b[i * b_step], where steps are
/// 0 or 1. Results follow each other, rows of the operands lie `a_row` and `b_row` apart, and groups of them
/// `a_group` and `b_group`.
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
  size_t groups = 1;
  size_t a_group = 0;
  size_t b_group = 0;
};

/// Calls `run` with the task of each group.
template <typename Run>
[[gnu::always_inline]] inline void for_each_group(BinaryTask task, Run run) noexcept {
  for (size_t group = 0; group < task.groups; ++group) {
    run(task);
    task.a += task.a_group;
    task.b += task.b_group;
    task.c += task.rows * task.count;
  }
}

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
