#pragma once

#include "qrt_core/kernel/extension/math/math_vectors_internal.h"

// Exponential, logarithm, tanh, sigmoid and error function of every float, for any vector of
// math_vectors_internal.h. All vectors give the same bits.
//
// Largest error over all 2^32 floats, in units in the last place of the exact result: see each
// function; element_function_test.cpp measures it. Infinities and denormals are taken and given as
// the functions have them; a NaN gives a NaN.
//
// The polynomials are near-minimax (Chebyshev interpolation over the interval that the comment
// names), evaluated by Horner's rule with fused steps.

namespace marlo::kernel::math {
namespace {

/// c0 + x * (c1 + x * (...)), the coefficients from the last to the first.
template <typename V, typename... Rest>
[[gnu::always_inline]] inline typename V::Register polynomial(typename V::Register x, float last,
                                                              Rest... rest) noexcept {
  auto sum = V::splat(last);
  ((sum = V::fused(sum, x, V::splat(rest))), ...);
  return sum;
}

/// Argument and exponent of exp: x = n ln 2 + r with |r| up to ln 2 / 2, ln 2 in two parts of which
/// the first has few bits, so that n times it is exact (W. J. Cody, W. Waite, "Software Manual for
/// the Elementary Functions", 1980).
template <typename V>
struct Reduced {
  typename V::Register n;
  typename V::Register r;
};

template <typename V>
[[gnu::always_inline]] inline Reduced<V> reduced(typename V::Register x) noexcept {
  const auto n = V::nearest(V::times(x, V::splat(0x1.715476p0f)));
  const auto high = V::minus_product(x, n, V::splat(0x1.63p-1f));
  return {n, V::minus_product(high, n, V::splat(-0x1.bd0106p-13f))};
}

/// exp(r) - 1 for |r| up to ln 2 / 2.
template <typename V>
[[gnu::always_inline]] inline typename V::Register exp_minus_1_near_0(
    typename V::Register r) noexcept {
  const auto p = polynomial<V>(r, 0x1.a12528p-13f, 0x1.6d4362p-10f, 0x1.1110e0p-7f, 0x1.5554e8p-5f,
                               0x1.555556p-3f, 0.5f);
  return V::fused(p, V::times(r, r), r);
}

/// exp(x), at most 0.988 ulp off. Above 88.72284 it is infinite, below -103.9721 zero.
template <typename V>
[[gnu::always_inline]] inline typename V::Register exponential(typename V::Register x) noexcept {
  // A NaN stands second and stays.
  x = V::maximum(V::splat(-150.0f), V::minimum(V::splat(130.0f), x));
  const Reduced<V> part = reduced<V>(x);
  return V::scaled(V::plus(V::splat(1.0f), exp_minus_1_near_0<V>(part.r)), part.n);
}

/// exp(x) - 1, without cancellation near 0; at most 1.5 ulp off.
template <typename V>
[[gnu::always_inline]] inline typename V::Register exponential_minus_1(
    typename V::Register x) noexcept {
  // From 88.73 on the sum is infinite; from 89.1 on half of 2^n would be, and times a negative number.
  const auto limited = V::maximum(V::splat(-150.0f), V::minimum(V::splat(89.0f), x));
  const Reduced<V> part = reduced<V>(limited);
  const auto one = V::splat(1.0f);
  const auto near = exp_minus_1_near_0<V>(part.r);
  // 2^n (exp(r) - 1) + (2^n - 1); where 2^n is beyond all floats, half of it twice.
  const auto less = V::minus(part.n, one);
  const auto power = V::scaled(one, less);
  const auto far = V::plus(V::fused(near, power, V::minus(power, V::splat(0.5f))),
                           V::fused(near, power, V::minus(power, V::splat(0.5f))));
  return V::select(V::less(V::absolute(limited), V::splat(0.34657359f)),
                   exp_minus_1_near_0<V>(limited), far);
}

/// log(x) of a number from 1/2 to 1 times 2^exponent: log(1 + f) = f - f^2 / 2 + f^3 P(f) for
/// sqrt(1/2) - 1 <= f <= sqrt(2) - 1, the scheme of Cephes' logf (S. Moshier, "Methods and Programs
/// for Mathematical Functions", 1989) with an own P.
template <typename V>
[[gnu::always_inline]] inline typename V::Register log_of_parts(
    typename V::Register fraction, typename V::Register exponent) noexcept {
  const auto one = V::splat(1.0f);
  const auto small = V::less(fraction, V::splat(0.70710678f));
  const auto f = V::minus(V::select(small, V::plus(fraction, fraction), fraction), one);
  const auto n = V::select(small, V::minus(exponent, one), exponent);
  const auto p = polynomial<V>(f, 0x1.1d8ea6p-4f, -0x1.d635bcp-4f, 0x1.dea282p-4f, -0x1.fcf4c6p-4f,
                               0x1.23d21ap-3f, -0x1.555b4ap-3f, 0x1.999d5ap-3f, -0x1.fffffcp-3f,
                               0x1.555554p-2f);
  const auto square = V::times(f, f);
  auto low = V::times(V::times(f, square), p);
  low = V::fused(n, V::splat(-0x1.bd0106p-13f), low);
  low = V::minus_product(low, square, V::splat(0.5f));
  return V::fused(n, V::splat(0x1.63p-1f), V::plus(f, low));
}

/// log(x), at most 1.5 ulp off. Minus infinity for both zeros, a NaN below.
template <typename V>
[[gnu::always_inline]] inline typename V::Register logarithm(typename V::Register x) noexcept {
  const auto zero = V::zero();
  const auto infinity = V::splat(__builtin_inff());
  const auto denormal = V::less(x, V::splat(0x1p-126f));
  const auto normal = V::select(denormal, V::times(x, V::splat(0x1p24f)), x);
  const auto shift = V::select(denormal, V::splat(24.0f), zero);
  auto y = log_of_parts<V>(V::fraction(normal), V::minus(V::exponent(normal), shift));
  y = V::select(V::less(x, infinity), y, x);  // infinity and NaN stay
  y = V::select(V::less(zero, V::absolute(x)), y, V::select(V::is_nan(x), x, V::negated(infinity)));
  return V::select(V::less(x, zero), V::splat(__builtin_nanf("")), y);
}

/// log(1 + u) for u from 0 to 1, at most 2 ulp off: the logarithm of the rounded sum and what the
/// rounding lost (W. Kahan's correction).
template <typename V>
[[gnu::always_inline]] inline typename V::Register log_1_plus(typename V::Register u) noexcept {
  const auto one = V::splat(1.0f);
  const auto sum = V::plus(one, u);
  const auto lost = V::over(V::minus(u, V::minus(sum, one)), sum);
  return V::plus(log_of_parts<V>(V::fraction(sum), V::exponent(sum)), lost);
}

/// tanh(x), at most 1.34 ulp off: x + x^3 P(x^2) below 0.625, 1 - 2 / (exp(2 |x|) + 1) beyond, as in
/// Cephes' tanhf.
template <typename V>
[[gnu::always_inline]] inline typename V::Register hyperbolic_tangent(
    typename V::Register x) noexcept {
  const auto size = V::absolute(x);
  const auto square = V::times(x, x);
  const auto p = polynomial<V>(square, 0x1.2c83c0p-9f, -0x1.116a16p-7f, 0x1.64a976p-6f,
                               -0x1.ba08c4p-5f, 0x1.1110eap-3f, -0x1.555556p-2f);
  const auto near = V::fused(V::times(x, square), p, x);
  const auto one = V::splat(1.0f);
  // From 9.1 on it is 1. A NaN stands second and stays.
  const auto e = exponential<V>(V::minimum(V::splat(30.0f), V::plus(size, size)));
  const auto far = V::minus(one, V::over(V::splat(2.0f), V::plus(e, one)));
  // The fused step makes +0 of -0.
  return V::with_sign(V::select(V::less(size, V::splat(0.625f)), near, far), x);
}

/// 1 / (1 + exp(-x)), at most 2.41 ulp off, its small values included: exp(x) / (1 + exp(x)) where x
/// is negative.
template <typename V>
[[gnu::always_inline]] inline typename V::Register sigmoid(typename V::Register x) noexcept {
  const auto one = V::splat(1.0f);
  const auto e = exponential<V>(V::negated(V::absolute(x)));
  const auto numerator = V::select(V::less(x, V::zero()), e, one);
  return V::over(numerator, V::plus(one, e));
}

/// erf(x), at most 1.22 ulp off: x + x P(x^2) below 0.921875, 1 - exp(-Q(|x|)) beyond, where Q
/// approximates -log(erfc); from 3.92 on it is 1.
template <typename V>
[[gnu::always_inline]] inline typename V::Register error_function(typename V::Register x) noexcept {
  const auto size = V::minimum(V::splat(3.95f), V::absolute(x));
  const auto square = V::times(x, x);
  const auto p = polynomial<V>(square, 0x1.5fcd12p-14f, -0x1.ab25e6p-11f, 0x1.54e222p-8f,
                               -0x1.b8114cp-6f, 0x1.ce2e2ap-4f, -0x1.812744p-2f, 0x1.06eba8p-3f);
  const auto near = V::fused(p, x, x);
  const auto q = polynomial<V>(size, -0x1.bdcad4p-20f, 0x1.860940p-15f, -0x1.3ab444p-11f,
                               0x1.38e71cp-8f, -0x1.b184c6p-6f, 0x1.c323bep-4f, 0x1.437724p-1f,
                               0x1.2158e4p0f, -0x1.55f766p-12f);
  const auto far = V::minus(V::splat(1.0f), exponential<V>(V::negated(q)));
  return V::select(V::less(size, V::splat(0.921875f)), near, V::with_sign(far, x));
}

}  // namespace
}  // namespace marlo::kernel::math
