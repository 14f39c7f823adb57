#include <emmintrin.h>

#include "qrt_core/kernel/basic/activation_cores.h"

// The constant stands second in every min and max: where one operand is a NaN, or both are zeros,
// the second is the result.

namespace marlo::kernel::activation {
namespace {

constexpr size_t kLanes = 4;

// Eight vectors at a time, each stored before the next is loaded: loads and stores that alternate
// keep the ports of both busy.
template <typename Function>
void map(const float* input, float* output, size_t count, Function function) noexcept {
  const auto vector_at = [=](size_t i) {
    _mm_storeu_ps(output + i, function(_mm_loadu_ps(input + i)));
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
}

__m128 hsigmoid(__m128 x) {
  const __m128 shifted = _mm_add_ps(x, _mm_set1_ps(3.0f));
  const __m128 clamped = _mm_min_ps(_mm_max_ps(shifted, _mm_setzero_ps()), _mm_set1_ps(6.0f));
  return _mm_mul_ps(clamped, _mm_set1_ps(kOneSixth));
}

// The two upper halves of the doubles that `words` gives, as floats.
__m128 floats_of_upper_words(__m128i words) { return _mm_cvtpd_ps(_mm_castsi128_pd(words)); }

// A number scaled to the exponent of a double and rounded to an integer is the upper half of that
// double. The conversion gives the least integer for what doesn't fit, and nothing clamps it.
__m128 fast_exp(__m128 v) {
  const __m128 scale = _mm_set1_ps(0x1.715470p+20f);   // 2^20 / ln 2, bits 0x49B8AA38
  const __m128 offset = _mm_set1_ps(0x1.ff7894p+29f);  // bits 0x4E7FBC4A
  const __m128i upper = _mm_cvtps_epi32(_mm_add_ps(_mm_mul_ps(v, scale), offset));
  const __m128i zero = _mm_setzero_si128();
  const __m128 low = floats_of_upper_words(_mm_unpacklo_epi32(zero, upper));
  const __m128 high = floats_of_upper_words(_mm_unpackhi_epi32(zero, upper));
  return _mm_movelh_ps(low, high);
}

}  // namespace

void relu_sse(const float* input, float* output, size_t count, const float*) noexcept {
  map(input, output, count, [](__m128 x) { return _mm_max_ps(x, _mm_setzero_ps()); });
}

void relu6_sse(const float* input, float* output, size_t count, const float*) noexcept {
  map(input, output, count,
      [](__m128 x) { return _mm_min_ps(_mm_max_ps(x, _mm_setzero_ps()), _mm_set1_ps(6.0f)); });
}

void hsigmoid_sse(const float* input, float* output, size_t count, const float*) noexcept {
  map(input, output, count, [](__m128 x) { return hsigmoid(x); });
}

void hswish_sse(const float* input, float* output, size_t count, const float*) noexcept {
  map(input, output, count, [](__m128 x) { return _mm_mul_ps(hsigmoid(x), x); });
}

void leaky_sse(const float* input, float* output, size_t count, const float* parameters) noexcept {
  const __m128 slope = _mm_set1_ps(parameters[0]);
  map(input, output, count, [slope](__m128 x) {
    const __m128 zero = _mm_setzero_ps();
    return _mm_add_ps(_mm_mul_ps(_mm_min_ps(x, zero), slope), _mm_max_ps(x, zero));
  });
}

void sigmoid_fast_sse(const float* input, float* output, size_t count, const float*) noexcept {
  map(input, output, count, [](__m128 x) {
    const __m128 one = _mm_set1_ps(1.0f);
    const __m128 e = fast_exp(_mm_sub_ps(_mm_setzero_ps(), x));
    return _mm_div_ps(one, _mm_add_ps(one, e));
  });
}

void tanh_fast_sse(const float* input, float* output, size_t count, const float*) noexcept {
  map(input, output, count, [](__m128 x) {
    const __m128 e = fast_exp(x);
    const __m128 inverse = _mm_div_ps(_mm_set1_ps(1.0f), e);
    return _mm_div_ps(_mm_sub_ps(e, inverse), _mm_add_ps(inverse, e));
  });
}

}  // namespace marlo::kernel::activation
