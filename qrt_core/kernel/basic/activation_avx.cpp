#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include <immintrin.h>

#include "qrt_core/kernel/basic/activation_cores.h"

// The constant stands second in every min and max: where one operand is a NaN, or both are zeros,
// the second is the result.

namespace marlo::kernel::activation {
namespace {

constexpr size_t kLanes = 8;

// Eight vectors at a time, each stored before the next is loaded: loads and stores that alternate
// keep the ports of both busy.
template <typename Function>
size_t map(const float* input, float* output, size_t count, Function function) noexcept {
  const auto vector_at = [=](size_t i) {
    _mm256_storeu_ps(output + i, function(_mm256_loadu_ps(input + i)));
  };
  size_t i = 0;
  for (; i + 8 * kLanes <= count; i += 8 * kLanes) {
    vector_at(i);
    vector_at(i + kLanes);
    vector_at(i + 2 * kLanes);
    vector_at(i + 3 * kLanes);
    vector_at(i + 4 * kLanes);
    vector_at(i + 5 * kLanes);
    vector_at(i + 6 * kLanes);
    vector_at(i + 7 * kLanes);
  }
  for (; i + kLanes <= count; i += kLanes) vector_at(i);
  return i;
}

__m256 leaky(__m256 x, __m256 slope) {
  const __m256 zero = _mm256_setzero_ps();
  const __m256 negative = _mm256_mul_ps(_mm256_min_ps(x, zero), slope);
  return _mm256_add_ps(negative, _mm256_max_ps(x, zero));
}

// 2^n for an integer n that is held as a float. AVX has no integer arithmetic of 8 lanes.
__m256 power_of_two(__m256 n) {
  const __m256i exponent = _mm256_cvttps_epi32(n);
  const __m128i bias = _mm_set1_epi32(127);
  const __m128i low = _mm_add_epi32(_mm256_castsi256_si128(exponent), bias);
  const __m128i high = _mm_add_epi32(_mm256_extractf128_si256(exponent, 1), bias);
  const __m256i bits = _mm256_insertf128_si256(_mm256_castsi128_si256(_mm_slli_epi32(low, 23)),
                                               _mm_slli_epi32(high, 23), 1);
  return _mm256_castsi256_ps(bits);
}

__m256 times_plus(__m256 a, __m256 b, float c) {
  return _mm256_add_ps(_mm256_mul_ps(a, b), _mm256_set1_ps(c));
}

// The argument is split into n ln 2 + r, ln 2 in two parts, and exp(r) is a polynomial.
__m256 polynomial_exp(__m256 v) {
  v = _mm256_min_ps(v, _mm256_set1_ps(88.3762589f));  // bits 0x42B0C0A5
  v = _mm256_max_ps(v, _mm256_set1_ps(-88.3762589f));
  const __m256 n = _mm256_floor_ps(times_plus(v, _mm256_set1_ps(1.44269502f), 0.5f));
  __m256 r = _mm256_sub_ps(v, _mm256_mul_ps(n, _mm256_set1_ps(0.693359375f)));
  r = _mm256_sub_ps(r, _mm256_mul_ps(n, _mm256_set1_ps(-0.000212194442f)));

  __m256 p = times_plus(_mm256_set1_ps(0.000198756912f), r, 0.00139819994f);
  p = times_plus(p, r, 0.00833345205f);
  p = times_plus(p, r, 0.0416657962f);
  p = times_plus(p, r, 0.166666657f);
  p = times_plus(p, r, 0.5f);
  const __m256 square = _mm256_mul_ps(r, r);
  const __m256 y = _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(p, square), r), _mm256_set1_ps(1.0f));
  return _mm256_mul_ps(y, power_of_two(n));
}

}  // namespace

void relu_avx(const float* input, float* output, size_t count, const float*) noexcept {
  const size_t done =
      map(input, output, count, [](__m256 x) { return _mm256_max_ps(x, _mm256_setzero_ps()); });
  if (done != count) {
    _mm_storeu_ps(output + done, _mm_max_ps(_mm_loadu_ps(input + done), _mm_setzero_ps()));
  }
}

void relu6_avx(const float* input, float* output, size_t count, const float*) noexcept {
  map(input, output, count, [](__m256 x) {
    return _mm256_min_ps(_mm256_max_ps(x, _mm256_setzero_ps()), _mm256_set1_ps(6.0f));
  });
}

void hswish_avx(const float* input, float* output, size_t count, const float*) noexcept {
  map(input, output, count, [](__m256 x) {
    const __m256 shifted = _mm256_add_ps(x, _mm256_set1_ps(3.0f));
    const __m256 clamped =
        _mm256_min_ps(_mm256_max_ps(shifted, _mm256_setzero_ps()), _mm256_set1_ps(6.0f));
    return _mm256_mul_ps(_mm256_mul_ps(clamped, _mm256_set1_ps(kOneSixth)), x);
  });
}

void leaky_avx(const float* input, float* output, size_t count, const float* parameters) noexcept {
  const __m256 slope = _mm256_set1_ps(parameters[0]);
  const size_t done = map(input, output, count, [slope](__m256 x) { return leaky(x, slope); });
  if (done != count) {
    const __m256 x = _mm256_castps128_ps256(_mm_loadu_ps(input + done));
    _mm_storeu_ps(output + done, _mm256_castps256_ps128(leaky(x, slope)));
  }
}

void sigmoid_polynomial_avx(const float* input, float* output, size_t count,
                            const float*) noexcept {
  map(input, output, count, [](__m256 x) {
    const __m256 one = _mm256_set1_ps(1.0f);
    const __m256 e = polynomial_exp(_mm256_sub_ps(_mm256_setzero_ps(), x));
    return _mm256_div_ps(one, _mm256_add_ps(one, e));
  });
}

}  // namespace marlo::kernel::activation
