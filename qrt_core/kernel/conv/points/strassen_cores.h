#pragma once

#include <cstddef>

namespace marlo::kernel::conv {

/// @name Element functions
/// result = a + b or a - b, element by element. The result may be `a` or `b` itself.
/// @param rows, columns in units of 64 floats for A, of 8 floats for B and C
/// @param a_stride, b_stride, result_stride units from one row to the next
/// @{
void MatrixAdd_A(const float* a, const float* b, float* result, size_t rows, size_t columns,
                 size_t a_stride, size_t b_stride, size_t result_stride) noexcept;
void MatrixSub_A(const float* a, const float* b, float* result, size_t rows, size_t columns,
                 size_t a_stride, size_t b_stride, size_t result_stride) noexcept;
void MatrixAdd_BC(const float* a, const float* b, float* result, size_t rows, size_t columns,
                  size_t a_stride, size_t b_stride, size_t result_stride) noexcept;
void MatrixSub_BC(const float* a, const float* b, float* result, size_t rows, size_t columns,
                  size_t a_stride, size_t b_stride, size_t result_stride) noexcept;
/// @}

/// C = A * B in the tiles of the 1x1 convolution, without any initial state.
/// @param a [rows, inner] blocks of 8 x 8 weights, rows `lda` blocks apart
/// @param b [inner, columns] pixels of 8 lanes, rows `ldb` pixels apart
/// @param c [rows, columns] pixels of 8 lanes, rows `ldc` pixels apart
void product_of_blocks_fma(const float* a, const float* b, float* c, size_t rows, size_t inner,
                           size_t columns, size_t lda, size_t ldb, size_t ldc) noexcept;

}  // namespace marlo::kernel::conv
