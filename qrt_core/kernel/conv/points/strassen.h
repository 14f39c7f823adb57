#pragma once

#include <cstddef>

#include "qrt_core/kernel/conv/points/point_convolution.h"

// Strassen's product of matrices in S. Winograd's form (On multiplication of 2 x 2 matrices, Linear
// Algebra and its Applications 4, 1971): seven products and fifteen additions of quadrants in place
// of eight products, at up to two levels.

namespace marlo::kernel {

namespace conv {

/// C = A * B. Recurses while rows, inner and columns are all even, to a depth of two; the choice is
/// by parity alone, so a small matrix that is even recurses as well.
///
/// Sums of products are taken apart and partly cancel. With k channels in the innermost sums, d
/// levels above them, an element is off by up to 18^d (k^2 + 6 k) eps max|a| max|b| (N. J. Higham,
/// Accuracy and Stability of Numerical Algorithms, section 23.2): relative to the largest products
/// anywhere, not to those of the element.
///
/// Each level takes three scratch tensors from `device` and gives them back when it returns.
/// @param a [rows, inner] blocks of 8 x 8 weights, [input][output], rows `lda` blocks apart
/// @param b [inner, columns] pixels of 8 lanes, rows `ldb` pixels apart
/// @param c [rows, columns] pixels of 8 lanes, rows `ldc` pixels apart; written, never read before
/// @param depth 0, except in a recursion
void StrassenMultiply(const float* a, const float* b, float* c, size_t rows, size_t inner,
                      size_t columns, size_t lda, size_t ldb, size_t ldc, uint32_t depth,
                      runtime::DeviceCPU& device);

/// A 1x1 convolution by that product; the bias is added after it.
void point_c8_strassen(const ConvTask& task, runtime::DeviceCPU& device);

}  // namespace conv

constexpr PlaneRow strassen_convolution() {
  PlaneRow row = point_c8_avx(nullptr);
  row.method = conv::point_c8_strassen;
  return on_fma(row);
}

#define QRT_STRASSEN_KERNELS_AVX(KERNEL) \
  KERNEL(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_Strassen_M1, strassen_convolution())

QRT_IF_AVX(QRT_STRASSEN_KERNELS_AVX(QRT_KERNEL))

/// The row of the one kernel.
inline constexpr std::initializer_list<const PlaneRow*> strassen_convolution_rows = {
    QRT_IF_AVX(QRT_STRASSEN_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
