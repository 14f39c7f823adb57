#pragma once

#include <cstddef>

// Products of a matrix with one vector. No core fuses: each product is rounded, then added. Each
// reads the weights once; several rows or blocks run side by side, as their sums are independent.

namespace marlo::kernel::matrix {

/// One product.
struct FullConnectionTask {
  const float* input = nullptr;   ///< [in_features]
  const float* weight = nullptr;  ///< [out_features, in_features], or packed
  const float* bias = nullptr;    ///< null for none
  float* output = nullptr;        ///< [out_features]; holds bias or zero, onto which cores add
  size_t in_features = 0;
  size_t out_features = 0;
};

using FullConnectionCore = void (*)(const FullConnectionTask& task) noexcept;

/// @name Plain weights
/// @{

/// Adds each product to the output in turn.
void dot_portable(const FullConnectionTask& task) noexcept;

/// Adds the product of a BLAS, whose order of summation is its own.
void dot_sgemm(const FullConnectionTask& task) noexcept;

/// Adds (s3 + s2) + (s1 + s0), its lanes summed from first to last, plus a scalar sum of what
/// doesn't fill a vector. Blocks of 16 go to four sums of four lanes; of the rest 8 go to the first
/// two if there are as many, then 4 to the first.
void dot_sse(const FullConnectionTask& task) noexcept;

/// Stores ((l0 + l1) + l2) + l3 + tail, plus the bias: one sum of four lanes, and a scalar one.
void dot_batch_sse(const FullConnectionTask& task) noexcept;

/// As `dot_sse` with eight lanes: blocks of 32 go to four sums; of the rest 24 go to the first
/// three, or 16 to the first two, or 8 to the first.
void dot_m1_avx(const FullConnectionTask& task) noexcept;

/// Adds the lanes of one sum of eight from first to last, then of what is left groups of four,
/// ((p0 + p1) + p2) + p3, then single products.
void dot_m3_avx(const FullConnectionTask& task) noexcept;
/// @}

/// @name Weights in blocks, [out/n, in/n, n, n] with the output innermost
/// @{

/// For each four inputs adds (p0 + p1) + (p2 + p3) to the output.
void blocks_of_4_sse(const FullConnectionTask& task) noexcept;
void blocks_of_8_avx(const FullConnectionTask& task) noexcept;

/// Adds each product to the output in turn.
void blocks_in_order_avx(const FullConnectionTask& task) noexcept;
/// @}

}  // namespace marlo::kernel::matrix
