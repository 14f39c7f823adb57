#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include "qrt_core/kernel/basic/activation_internal.h"

namespace marlo::kernel::activation {
namespace {

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
  const size_t done = relu<AvxVector>(input, output, count);
  relu<SseVector>(input + done, output + done, count - done);
}

void relu6_avx(const float* input, float* output, size_t count, const float*) noexcept {
  relu6<AvxVector>(input, output, count);
}

void hswish_avx(const float* input, float* output, size_t count, const float*) noexcept {
  hswish<AvxVector>(input, output, count);
}

void leaky_avx(const float* input, float* output, size_t count, const float* parameters) noexcept {
  const size_t done = leaky<AvxVector>(input, output, count, parameters[0]);
  leaky<SseVector>(input + done, output + done, count - done, parameters[0]);
}

void sigmoid_polynomial_avx(const float* input, float* output, size_t count,
                            const float*) noexcept {
  map<AvxVector>(input, output, count, [](__m256 x) {
    const __m256 one = _mm256_set1_ps(1.0f);
    const __m256 e = polynomial_exp(_mm256_sub_ps(_mm256_setzero_ps(), x));
    return _mm256_div_ps(one, _mm256_add_ps(one, e));
  });
}

}  // namespace marlo::kernel::activation
