#include "qrt_core/kernel/basic/activation_internal.h"

namespace marlo::kernel::activation {
namespace {

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
  relu<SseVector>(input, output, count);
}

void relu6_sse(const float* input, float* output, size_t count, const float*) noexcept {
  relu6<SseVector>(input, output, count);
}

void hsigmoid_sse(const float* input, float* output, size_t count, const float*) noexcept {
  map<SseVector>(input, output, count, [](__m128 x) { return hard_sigmoid<SseVector>(x); });
}

void hswish_sse(const float* input, float* output, size_t count, const float*) noexcept {
  hswish<SseVector>(input, output, count);
}

void leaky_sse(const float* input, float* output, size_t count, const float* parameters) noexcept {
  leaky<SseVector>(input, output, count, parameters[0]);
}

void sigmoid_fast_sse(const float* input, float* output, size_t count, const float*) noexcept {
  map<SseVector>(input, output, count, [](__m128 x) {
    const __m128 one = _mm_set1_ps(1.0f);
    const __m128 e = fast_exp(_mm_sub_ps(_mm_setzero_ps(), x));
    return _mm_div_ps(one, _mm_add_ps(one, e));
  });
}

void tanh_fast_sse(const float* input, float* output, size_t count, const float*) noexcept {
  map<SseVector>(input, output, count, [](__m128 x) {
    const __m128 e = fast_exp(x);
    const __m128 inverse = _mm_div_ps(_mm_set1_ps(1.0f), e);
    return _mm_div_ps(_mm_sub_ps(e, inverse), _mm_add_ps(inverse, e));
  });
}

}  // namespace marlo::kernel::activation
