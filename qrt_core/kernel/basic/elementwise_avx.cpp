#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include <immintrin.h>

#include "qrt_core/kernel/basic/elementwise_cores.h"

namespace marlo::kernel::elementwise {
namespace {

constexpr size_t kLanes = 8;

// Four vectors at a time keep the load and store ports busy.
template <typename Function>
void map(const float* a, const float* b, float* output, size_t count, Function function) noexcept {
  size_t i = 0;
  for (; i + 4 * kLanes <= count; i += 4 * kLanes) {
    const __m256 p = function(_mm256_loadu_ps(a + i), _mm256_loadu_ps(b + i));
    const __m256 q = function(_mm256_loadu_ps(a + i + kLanes), _mm256_loadu_ps(b + i + kLanes));
    const __m256 r =
        function(_mm256_loadu_ps(a + i + 2 * kLanes), _mm256_loadu_ps(b + i + 2 * kLanes));
    const __m256 s =
        function(_mm256_loadu_ps(a + i + 3 * kLanes), _mm256_loadu_ps(b + i + 3 * kLanes));
    _mm256_storeu_ps(output + i, p);
    _mm256_storeu_ps(output + i + kLanes, q);
    _mm256_storeu_ps(output + i + 2 * kLanes, r);
    _mm256_storeu_ps(output + i + 3 * kLanes, s);
  }
  for (; i + kLanes <= count; i += kLanes) {
    _mm256_storeu_ps(output + i, function(_mm256_loadu_ps(a + i), _mm256_loadu_ps(b + i)));
  }
}

}  // namespace

void add_avx(const float* a, const float* b, float* output, size_t count) noexcept {
  map(a, b, output, count, [](__m256 x, __m256 y) { return _mm256_add_ps(x, y); });
}

void subtract_avx(const float* a, const float* b, float* output, size_t count) noexcept {
  map(a, b, output, count, [](__m256 x, __m256 y) { return _mm256_sub_ps(x, y); });
}

void multiply_avx(const float* a, const float* b, float* output, size_t count) noexcept {
  map(a, b, output, count, [](__m256 x, __m256 y) { return _mm256_mul_ps(x, y); });
}

void divide_avx(const float* a, const float* b, float* output, size_t count) noexcept {
  map(a, b, output, count, [](__m256 x, __m256 y) { return _mm256_div_ps(x, y); });
}

void maximum_avx(const float* a, const float* b, float* output, size_t count) noexcept {
  map(a, b, output, count, [](__m256 x, __m256 y) { return _mm256_max_ps(x, y); });
}

void minimum_avx(const float* a, const float* b, float* output, size_t count) noexcept {
  map(a, b, output, count, [](__m256 x, __m256 y) { return _mm256_min_ps(x, y); });
}

}  // namespace marlo::kernel::elementwise
