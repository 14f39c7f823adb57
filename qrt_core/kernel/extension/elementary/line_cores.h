#pragma once

#include <cstddef>

// Softmax and normalisation of lines: `count` numbers side by side, or a number of each of
// `columns` lines side by side.

namespace marlo::kernel::elementary {

/// Softmax, or its logarithm, of lines [count, columns], each along the count. The output may be the
/// input.
struct SoftmaxTask {
  const float* input = nullptr;
  float* output = nullptr;
  size_t count = 0;
  size_t columns = 1;
  bool logarithm = false;
};

/// One line, less its mean, over the root of its variance plus `eps`, times `scale` plus `shift`.
struct NormTask {
  const float* input = nullptr;
  float* output = nullptr;
  size_t count = 0;
  float eps = 0.0f;
  const float* scale = nullptr;  ///< `count` numbers; null for 1
  const float* shift = nullptr;  ///< `count` numbers; null for 0
  float line_scale = 1.0f;       ///< for all of the line
  float line_shift = 0.0f;       ///< for all of the line
};

/// An instruction set's functions. Exponentials are those of math/vector_math_internal.h, and of
/// std::exp in the portable form; sums are floats in as many parts as a vector has lanes, and
/// doubles in the portable form. The variance is the mean square of the differences from the mean.
struct LineCores {
  void (*softmax)(const SoftmaxTask& task) noexcept = nullptr;
  void (*normalise)(const NormTask& task) noexcept = nullptr;
};

void softmax_portable(const SoftmaxTask& task) noexcept;
void softmax_fma(const SoftmaxTask& task) noexcept;
void softmax_avx512(const SoftmaxTask& task) noexcept;
void normalise_portable(const NormTask& task) noexcept;
void normalise_fma(const NormTask& task) noexcept;
void normalise_avx512(const NormTask& task) noexcept;

constexpr LineCores kLinesPortable = {softmax_portable, normalise_portable};
constexpr LineCores kLinesFma = {softmax_fma, normalise_fma};
constexpr LineCores kLinesAvx512 = {softmax_avx512, normalise_avx512};

}  // namespace marlo::kernel::elementary
