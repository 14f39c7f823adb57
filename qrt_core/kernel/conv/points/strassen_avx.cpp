#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include <immintrin.h>

#include "qrt_core/kernel/conv/points/strassen_cores.h"

namespace marlo::kernel::conv {
namespace {

struct Sum {
  static __m256 of(__m256 a, __m256 b) noexcept { return _mm256_add_ps(a, b); }
};

struct Difference {
  static __m256 of(__m256 a, __m256 b) noexcept { return _mm256_sub_ps(a, b); }
};

struct Strides {
  size_t a, b, result;
};

// Rows of `columns` units of `unit` floats, a multiple of eight.
template <typename Operation, size_t unit>
void combine(const float* a, const float* b, float* result, size_t rows, size_t columns,
             const Strides& strides) noexcept {
  const size_t count = columns * unit;
  for (size_t row = 0; row < rows; ++row) {
    for (size_t i = 0; i < count; i += 8) {
      _mm256_storeu_ps(result + i, Operation::of(_mm256_loadu_ps(a + i), _mm256_loadu_ps(b + i)));
    }
    a += strides.a * unit;
    b += strides.b * unit;
    result += strides.result * unit;
  }
}

}  // namespace

void MatrixAdd_A(const float* a, const float* b, float* result, size_t rows, size_t columns,
                 size_t a_stride, size_t b_stride, size_t result_stride) noexcept {
  combine<Sum, 64>(a, b, result, rows, columns, {a_stride, b_stride, result_stride});
}

void MatrixSub_A(const float* a, const float* b, float* result, size_t rows, size_t columns,
                 size_t a_stride, size_t b_stride, size_t result_stride) noexcept {
  combine<Difference, 64>(a, b, result, rows, columns, {a_stride, b_stride, result_stride});
}

void MatrixAdd_BC(const float* a, const float* b, float* result, size_t rows, size_t columns,
                  size_t a_stride, size_t b_stride, size_t result_stride) noexcept {
  combine<Sum, 8>(a, b, result, rows, columns, {a_stride, b_stride, result_stride});
}

void MatrixSub_BC(const float* a, const float* b, float* result, size_t rows, size_t columns,
                  size_t a_stride, size_t b_stride, size_t result_stride) noexcept {
  combine<Difference, 8>(a, b, result, rows, columns, {a_stride, b_stride, result_stride});
}

}  // namespace marlo::kernel::conv
