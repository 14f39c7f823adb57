#pragma once

#include "qrt_core/kernel/extension/math/vector_math_internal.h"

// The functions of one element for any vector of math_vectors_internal.h: `of<V>(x, a, b)`, a and b
// being the parameters. Where an operand of a maximum or a minimum is a NaN, the second is the
// result, so x stands second and a NaN stays.

namespace marlo::kernel::elementary {
namespace {

using math::polynomial;

/// x, but the least float for minus infinity: times zero it is a zero, and no NaN.
template <typename V>
typename V::Register finite_below(typename V::Register x) noexcept {
  return V::maximum(V::splat(-__FLT_MAX__), x);
}

/// min(max(x, low), high), where a NaN stays.
template <typename V>
typename V::Register clamped(typename V::Register x, typename V::Register low,
                             typename V::Register high) noexcept {
  return V::minimum(high, V::maximum(low, x));
}

#define QRT_ELEMENT_FUNCTION(Name, expression)                                                     \
  struct Name {                                                                                    \
    template <typename V>                                                                          \
    [[gnu::always_inline]] static typename V::Register of(typename V::Register x,                  \
                                                          [[maybe_unused]] typename V::Register a, \
                                                          [[maybe_unused]]                         \
                                                          typename V::Register b) noexcept {       \
      [[maybe_unused]] const auto zero = V::zero();                                                \
      [[maybe_unused]] const auto one = V::splat(1.0f);                                            \
      return expression;                                                                           \
    }                                                                                              \
  };

QRT_ELEMENT_FUNCTION(Abs, V::absolute(x))
QRT_ELEMENT_FUNCTION(Neg, V::negated(x))
QRT_ELEMENT_FUNCTION(Square, V::times(x, x))
QRT_ELEMENT_FUNCTION(Sqrt, V::root(x))
QRT_ELEMENT_FUNCTION(Reciprocal, V::over(one, x))
QRT_ELEMENT_FUNCTION(Floor, V::floor(x))
QRT_ELEMENT_FUNCTION(Ceil, V::ceiling(x))
QRT_ELEMENT_FUNCTION(Round, V::nearest(x))
QRT_ELEMENT_FUNCTION(Sign, V::select(V::less(zero, V::absolute(x)), V::with_sign(one, x), x))
QRT_ELEMENT_FUNCTION(Exp, math::exponential<V>(x))
QRT_ELEMENT_FUNCTION(Log, math::logarithm<V>(x))
QRT_ELEMENT_FUNCTION(Erf, math::error_function<V>(x))
QRT_ELEMENT_FUNCTION(Sigmoid, math::sigmoid<V>(x))
QRT_ELEMENT_FUNCTION(TanH, math::hyperbolic_tangent<V>(x))
QRT_ELEMENT_FUNCTION(ReLU, V::maximum(zero, x))
QRT_ELEMENT_FUNCTION(ReLU6, clamped<V>(x, zero, V::splat(6.0f)))
// A NaN becomes 0, as the second operand of a maximum is then the result.
QRT_ELEMENT_FUNCTION(HSigmoid, V::times(V::minimum(V::maximum(V::plus(x, V::splat(3.0f)), zero),
                                                   V::splat(6.0f)),
                                        V::splat(0x1.555556p-3f)))
// As documented: of minus infinity a NaN.
QRT_ELEMENT_FUNCTION(HSwish, V::times(HSigmoid::of<V>(x, a, b), x))
QRT_ELEMENT_FUNCTION(HardSigmoid, clamped<V>(V::fused(a, x, b), zero, one))
QRT_ELEMENT_FUNCTION(LeakyReLU, V::select(V::less(x, zero), V::times(x, a), x))
QRT_ELEMENT_FUNCTION(Elu,
                     V::select(V::less(x, zero), V::times(a, math::exponential_minus_1<V>(x)), x))
QRT_ELEMENT_FUNCTION(Selu, V::times(b, Elu::of<V>(x, a, b)))
QRT_ELEMENT_FUNCTION(Celu, V::select(V::less(x, zero),
                                     V::times(a, math::exponential_minus_1<V>(V::over(x, a))), x))
QRT_ELEMENT_FUNCTION(
    GELU, V::times(V::times(V::splat(0.5f), finite_below<V>(x)),
                   V::plus(one, math::error_function<V>(V::times(x, V::splat(0x1.6a09e6p-1f))))))
// sqrt(2 / pi) (x + 0.044715 x^3) = x (c0 + c1 x^2).
QRT_ELEMENT_FUNCTION(
    GELUTanh,
    V::times(V::times(V::splat(0.5f), finite_below<V>(x)),
             V::plus(one, math::hyperbolic_tangent<V>(V::times(
                              x, polynomial<V>(V::times(x, x), 0x1.2444f2p-5f, 0x1.988454p-1f))))))
QRT_ELEMENT_FUNCTION(SiLU, V::times(finite_below<V>(x), math::sigmoid<V>(x)))
QRT_ELEMENT_FUNCTION(Swish, V::times(finite_below<V>(x), math::sigmoid<V>(V::times(a, x))))
QRT_ELEMENT_FUNCTION(Softplus,
                     V::plus(V::maximum(zero, x),
                             math::log_1_plus<V>(math::exponential<V>(V::negated(V::absolute(x))))))
struct Softsign {
  template <typename V>
  [[gnu::always_inline]] static typename V::Register of(typename V::Register x,
                                                        typename V::Register,
                                                        typename V::Register) noexcept {
    const auto largest = V::splat(__FLT_MAX__);
    const auto finite = clamped<V>(x, V::negated(largest), largest);
    return V::over(finite, V::plus(V::splat(1.0f), V::absolute(finite)));
  }
};
// x tanh(log(1 + e)) = x n / (n + 2) with n = e (e + 2), e = exp(x); from 20 on it is x.
struct Mish {
  template <typename V>
  [[gnu::always_inline]] static typename V::Register of(typename V::Register x,
                                                        typename V::Register,
                                                        typename V::Register) noexcept {
    const auto two = V::splat(2.0f);
    const auto e = math::exponential<V>(V::minimum(V::splat(20.0f), x));
    const auto n = V::times(e, V::plus(e, two));
    return V::times(finite_below<V>(x), V::over(n, V::plus(n, two)));
  }
};
QRT_ELEMENT_FUNCTION(Clip, clamped<V>(x, a, b))
QRT_ELEMENT_FUNCTION(ScaleShift, V::fused(a, x, b))
QRT_ELEMENT_FUNCTION(ThresholdedReLU, V::select(V::less(a, x), x, V::select(V::is_nan(x), x, zero)))

#undef QRT_ELEMENT_FUNCTION

/// Four vectors at a time, then single ones and a part of one.
template <typename V, typename Function>
void apply(const float* input, float* output, size_t count, const float* parameters) noexcept {
  constexpr size_t kLanes = V::kLanes;
  const auto a = V::splat(parameters[0]);
  const auto b = V::splat(parameters[1]);
  const auto vector_at = [=](size_t i) __attribute__((always_inline)) {
    V::store(output + i, Function::template of<V>(V::load(input + i), a, b));
  };
  size_t i = 0;
  for (; i + 4 * kLanes <= count; i += 4 * kLanes) {
    unrolled<4>(QRT_UNROLLED(v) { vector_at(i + v * kLanes); });
  }
  for (; i + kLanes <= count; i += kLanes) vector_at(i);
  if (i == count) return;
  const auto last = V::load_first(input + i, count - i);
  V::store_first(output + i, count - i, Function::template of<V>(last, a, b));
}

}  // namespace
}  // namespace marlo::kernel::elementary
