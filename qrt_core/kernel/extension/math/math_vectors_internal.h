#pragma once

#include "qrt_core/kernel/vectors_internal.h"

// Vectors with what elementary functions need beside sums and products: comparisons, rounding,
// powers of two, and parts of floats.
//
// AVX with FMA has no integer arithmetic of eight lanes; what needs it runs on two halves.

namespace marlo::kernel::math {
namespace {

#ifdef __FMA__

/// Eight lanes.
struct FusedMath : FusedVector {
  using Mask = __m256;

  /// a * b + c and c - a * b, rounded once.
  static Register fused(Register a, Register b, Register c) noexcept {
    return _mm256_fmadd_ps(a, b, c);
  }
  static Register minus_product(Register c, Register a, Register b) noexcept {
    return _mm256_fnmadd_ps(a, b, c);
  }

  static Mask less(Register a, Register b) noexcept { return _mm256_cmp_ps(a, b, _CMP_LT_OQ); }
  static Mask is_nan(Register x) noexcept { return _mm256_cmp_ps(x, x, _CMP_UNORD_Q); }
  static Register select(Mask mask, Register yes, Register no) noexcept {
    return _mm256_blendv_ps(no, yes, mask);
  }
  /// The first lanes, of which `count` is less than all.
  static Mask first(size_t count) noexcept {
    return less(_mm256_setr_ps(0, 1, 2, 3, 4, 5, 6, 7),
                splat(static_cast<float>(static_cast<int>(count))));
  }
  /// All lanes put together by a function of two vectors that doesn't care for their order, in every
  /// lane: halves with halves, until one is left.
  template <typename Join>
  static Register across(Register x, Join join) noexcept {
    x = join(x, _mm256_permute2f128_ps(x, x, 1));
    x = join(x, _mm256_permute_ps(x, 0x4E));
    return join(x, _mm256_permute_ps(x, 0xB1));
  }

  static Register absolute(Register x) noexcept { return _mm256_andnot_ps(splat(-0.0f), x); }
  static Register negated(Register x) noexcept { return _mm256_xor_ps(splat(-0.0f), x); }
  /// The first number's magnitude with the second one's sign.
  static Register with_sign(Register magnitude, Register sign) noexcept {
    return _mm256_or_ps(absolute(magnitude), _mm256_and_ps(splat(-0.0f), sign));
  }
  static Register root(Register x) noexcept { return _mm256_sqrt_ps(x); }

  /// To the nearest whole number, ties to even; down; up.
  static Register nearest(Register x) noexcept {
    return _mm256_round_ps(x, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
  }
  static Register floor(Register x) noexcept { return _mm256_floor_ps(x); }
  static Register ceiling(Register x) noexcept { return _mm256_ceil_ps(x); }

  /// x * 2^n for a whole number n from -252 to 254, rounded once: one factor has the greater half
  /// of the exponent, so that only the last product can be a denormal.
  static Register scaled(Register x, Register n) noexcept {
    const Register half = nearest(times(n, splat(0.5f)));
    return times(times(x, power_of_two(half)), power_of_two(minus(n, half)));
  }

  /// The two parts of a positive normal number: a fraction from 0.5 to 1, and an exponent.
  static Register fraction(Register x) noexcept {
    const Register mantissa = _mm256_castsi256_ps(_mm256_set1_epi32(0x007FFFFF));
    return _mm256_or_ps(_mm256_and_ps(x, mantissa), splat(0.5f));
  }
  static Register exponent(Register x) noexcept {
    const __m256i bits = _mm256_castps_si256(x);
    const __m128i low = _mm_srli_epi32(_mm256_castsi256_si128(bits), 23);
    const __m128i high = _mm_srli_epi32(_mm256_extractf128_si256(bits, 1), 23);
    return minus(_mm256_cvtepi32_ps(halves(low, high)), splat(126.0f));
  }

 private:
  static __m256i halves(__m128i low, __m128i high) noexcept {
    return _mm256_insertf128_si256(_mm256_castsi128_si256(low), high, 1);
  }
  static Register power_of_two(Register n) noexcept {
    const __m256i exponents = _mm256_cvtps_epi32(n);
    const __m128i bias = _mm_set1_epi32(127);
    const __m128i low = _mm_add_epi32(_mm256_castsi256_si128(exponents), bias);
    const __m128i high = _mm_add_epi32(_mm256_extractf128_si256(exponents, 1), bias);
    return _mm256_castsi256_ps(halves(_mm_slli_epi32(low, 23), _mm_slli_epi32(high, 23)));
  }
};

#endif

#ifdef __AVX512F__

/// Sixteen lanes. Every operation gives the floats that `FusedMath` gives.
struct Avx512Math : Avx512Vector {
  using Mask = __mmask16;

  static Register fused(Register a, Register b, Register c) noexcept {
    return _mm512_fmadd_ps(a, b, c);
  }
  static Register minus_product(Register c, Register a, Register b) noexcept {
    return _mm512_fnmadd_ps(a, b, c);
  }

  static Mask less(Register a, Register b) noexcept { return _mm512_cmp_ps_mask(a, b, _CMP_LT_OQ); }
  static Mask is_nan(Register x) noexcept { return _mm512_cmp_ps_mask(x, x, _CMP_UNORD_Q); }
  static Register select(Mask mask, Register yes, Register no) noexcept {
    return _mm512_mask_blend_ps(mask, no, yes);
  }
  static Mask first(size_t count) noexcept { return static_cast<Mask>((1u << count) - 1u); }
  template <typename Join>
  static Register across(Register x, Join join) noexcept {
    x = join(x, _mm512_shuffle_f32x4(x, x, 0x4E));
    x = join(x, _mm512_shuffle_f32x4(x, x, 0xB1));
    x = join(x, _mm512_permute_ps(x, 0x4E));
    return join(x, _mm512_permute_ps(x, 0xB1));
  }

  static Register absolute(Register x) noexcept { return _mm512_andnot_ps(splat(-0.0f), x); }
  static Register negated(Register x) noexcept { return _mm512_xor_ps(splat(-0.0f), x); }
  static Register with_sign(Register magnitude, Register sign) noexcept {
    return _mm512_or_ps(absolute(magnitude), _mm512_and_ps(splat(-0.0f), sign));
  }
  static Register root(Register x) noexcept { return _mm512_sqrt_ps(x); }

  static Register nearest(Register x) noexcept {
    return _mm512_roundscale_ps(x, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
  }
  static Register floor(Register x) noexcept {
    return _mm512_roundscale_ps(x, _MM_FROUND_TO_NEG_INF | _MM_FROUND_NO_EXC);
  }
  static Register ceiling(Register x) noexcept {
    return _mm512_roundscale_ps(x, _MM_FROUND_TO_POS_INF | _MM_FROUND_NO_EXC);
  }

  static Register scaled(Register x, Register n) noexcept { return _mm512_scalef_ps(x, n); }

  static Register fraction(Register x) noexcept {
    return _mm512_getmant_ps(x, _MM_MANT_NORM_p5_1, _MM_MANT_SIGN_src);
  }
  static Register exponent(Register x) noexcept { return plus(_mm512_getexp_ps(x), splat(1.0f)); }
};

#endif

}  // namespace
}  // namespace marlo::kernel::math
