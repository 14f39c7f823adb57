#pragma once

#include "qrt_core/kernel/epilogue.h"
#include "qrt_core/kernel/extension/math/math_vectors_internal.h"
#include "qrt_core/kernel/vectors_internal.h"

// Epilogues on sums that are still in registers, or that have just been stored. Internal to the file
// that includes it.

namespace marlo::kernel::conv {
namespace {

#ifdef __AVX512F__
using EpilogueVector = math::Avx512Math;

/// y * 2^n
[[gnu::always_inline]] inline __m512 times_power_of_two(__m512 y, __m512 n) noexcept {
  return _mm512_scalef_ps(y, n);
}
#else
using EpilogueVector = math::FusedMath;

[[gnu::always_inline]] inline __m256 times_power_of_two(__m256 y, __m256 n) noexcept {
  return FusedVector::times(y, power_of_two(n));
}
#endif

/// exp(x), off by at most 4 eps of it: x is n ln 2 + r, with ln 2 in two parts, and exp(r) the polynomial
/// of S. Moshier's Cephes. An x below -87.3 or above 88 counts as that, and a NaN as the lower.
template <typename V>
[[gnu::always_inline]] inline typename V::Register exponential(typename V::Register x) noexcept {
  using Register = typename V::Register;
  x = V::maximum(x, V::splat(-87.33654f));
  x = V::minimum(x, V::splat(88.02969f));
  const Register n = V::nearest(V::times(x, V::splat(1.44269504f)));
  Register r = V::plus_product(x, n, V::splat(-0.693359375f));
  r = V::plus_product(r, n, V::splat(2.12194440e-4f));
  Register p = V::plus_product(V::splat(1.3981999507e-3f), r, V::splat(1.9875691500e-4f));
  p = V::plus_product(V::splat(8.3334519073e-3f), p, r);
  p = V::plus_product(V::splat(4.1665795894e-2f), p, r);
  p = V::plus_product(V::splat(1.6666665459e-1f), p, r);
  p = V::plus_product(V::splat(5.0000001201e-1f), p, r);
  const Register y = V::plus(V::plus_product(r, V::times(r, r), p), V::splat(1.0f));
  return times_power_of_two(y, n);
}

/// min(max(x + 3, 0), 6) / 6
template <typename V>
[[gnu::always_inline]] inline typename V::Register hard_sigmoid(typename V::Register x) noexcept {
  const auto shifted = V::maximum(V::plus(x, V::splat(3.0f)), V::zero());
  return V::times(V::minimum(shifted, V::splat(6.0f)), V::splat(0x1.555556p-3f));
}

/// 1 / (1 + exp(-x))
template <typename V>
[[gnu::always_inline]] inline typename V::Register soft_sigmoid(typename V::Register x) noexcept {
  const auto e = exponential<V>(V::minus(V::zero(), x));
  return V::over(V::splat(1.0f), V::plus(V::splat(1.0f), e));
}

/// What rectifiers don't compute.
template <typename V, Epilogue kEpilogue>
[[gnu::always_inline]] inline typename V::Register finished(typename V::Register x) noexcept {
  if constexpr (kEpilogue == Epilogue::hsigmoid) return hard_sigmoid<V>(x);
  if constexpr (kEpilogue == Epilogue::hswish) return V::times(hard_sigmoid<V>(x), x);
  if constexpr (kEpilogue == Epilogue::sigmoid) return soft_sigmoid<V>(x);
  if constexpr (kEpilogue == Epilogue::silu) return V::times(soft_sigmoid<V>(x), x);
  // 2 sigmoid(2 x) - 1: off by so much of 1, not of the result.
  const auto half = soft_sigmoid<V>(V::plus(x, x));
  return V::minus(V::plus(half, half), V::splat(1.0f));
}

/// Applies an epilogue to `count` floats, a multiple of 8.
template <Epilogue kEpilogue>
void finish_floats(float* floats, size_t count) noexcept {
  using V = EpilogueVector;
  size_t i = 0;
  for (; i + V::kLanes <= count; i += V::kLanes) {
    V::store(floats + i, finished<V, kEpilogue>(V::load(floats + i)));
  }
  if (i == count) return;
  V::store_first(floats + i, count - i,
                 finished<V, kEpilogue>(V::load_first(floats + i, count - i)));
}

/// An epilogue as a function, for what has just been stored.
using Finish = void (*)(float* floats, size_t count) noexcept;

inline Finish finish_of(Epilogue epilogue) noexcept {
  switch (epilogue) {
    case Epilogue::hsigmoid:
      return finish_floats<Epilogue::hsigmoid>;
    case Epilogue::hswish:
      return finish_floats<Epilogue::hswish>;
    case Epilogue::sigmoid:
      return finish_floats<Epilogue::sigmoid>;
    case Epilogue::silu:
      return finish_floats<Epilogue::silu>;
    case Epilogue::tanh:
      return finish_floats<Epilogue::tanh>;
    default:
      return nullptr;
  }
}

/// How a kernel ends: rectifiers act in registers, everything else on what was stored a moment ago and
/// is still in L1, so that no tile is compiled for each function.
class Ending {
 public:
  explicit Ending(Epilogue epilogue) noexcept
      : finish_(finish_of(epilogue)),
        clamps_(epilogue == Epilogue::relu || epilogue == Epilogue::relu6),
        highest_(epilogue == Epilogue::relu6 ? 6.0f : __builtin_inff()) {}

  bool clamps() const noexcept { return clamps_; }

  template <typename Vector>
  [[gnu::always_inline]] typename Vector::Register clamped(
      typename Vector::Register x) const noexcept {
    return Vector::minimum(Vector::maximum(x, Vector::zero()), Vector::splat(highest_));
  }

  /// `clamped`, where that is what is to be done.
  template <typename Vector>
  [[gnu::always_inline]] typename Vector::Register ended(
      typename Vector::Register x) const noexcept {
    return clamps_ ? clamped<Vector>(x) : x;
  }

  /// Whether anything is left to do then.
  bool acts_on_stored() const noexcept { return finish_ != nullptr; }

  /// What is left for `count` floats that were stored, whole blocks of 8.
  [[gnu::always_inline]] void stored(float* floats, size_t count) const noexcept {
    if (finish_ != nullptr) finish_(floats, count);
  }

 private:
  Finish finish_;
  bool clamps_;
  float highest_;
};

}  // namespace
}  // namespace marlo::kernel::conv
