#pragma once

#include <cstddef>
#include <cstdint>

// Reductions of rows of floats, in doubles.

namespace marlo::kernel::elementary {

/// `rows` rows of `count` numbers, `stride` apart. Either the numbers of a row make one result, so that
/// there are as many results as rows; or each makes one with those below it, so that there are `count`.
struct ReductionTask {
  uint32_t function = 0;  ///< a runtime::AxisReduction
  const float* input = nullptr;
  size_t rows = 1;
  size_t stride = 0;
  size_t count = 0;
  bool along_rows = true;  ///< the numbers of a row make one result
  const double* shifts =
      nullptr;             ///< for each result the largest of its numbers: sums of exponentials
  double* sums = nullptr;  ///< for each result what was found so far
};

/// Adds the rows to what was found so far: to sums, to products, to sums of magnitudes, squares or
/// exponentials; or takes the larger or the smaller. The portable one adds numbers of a row to four sums
/// by turns, and of a column from above. Those of vectors have as many sums as their vectors have
/// lanes, four times where they go along a row, and leave exponentials to the portable one.
using ReductionCore = void (*)(const ReductionTask& task) noexcept;

void reduce_portable(const ReductionTask& task) noexcept;
void reduce_fma(const ReductionTask& task) noexcept;
void reduce_avx512(const ReductionTask& task) noexcept;

/// Whether vectors compute a function themselves: all but the sum of exponentials.
constexpr bool has_vector_reduction(uint32_t function) { return function <= 8; }

}  // namespace marlo::kernel::elementary
