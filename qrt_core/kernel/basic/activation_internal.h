#pragma once

#include "qrt_core/kernel/basic/activation_cores.h"
#include "qrt_core/kernel/vectors_internal.h"

// Activations for any vector.
//
// The constant stands second in every min and max: where one operand is a NaN, or both are zeros,
// the second is the result.

namespace marlo::kernel::activation {
namespace {

// Eight vectors at a time, each stored before the next is loaded: loads and stores that alternate
// keep the ports of both busy. Returns how many elements filled vectors.
template <typename Vector, typename Function>
size_t map(const float* input, float* output, size_t count, Function function) noexcept {
  constexpr size_t kLanes = Vector::kLanes;
  const auto vector_at = [=](size_t i) {
    Vector::store(output + i, function(Vector::load(input + i)));
  };
  size_t i = 0;
  for (; i + 8 * kLanes <= count; i += 8 * kLanes) {
    unrolled<8>(QRT_UNROLLED(v) { vector_at(i + v * kLanes); });
  }
  for (; i + kLanes <= count; i += kLanes) vector_at(i);
  return i;
}

template <typename V>
size_t relu(const float* input, float* output, size_t count) noexcept {
  return map<V>(input, output, count, [](auto x) { return V::maximum(x, V::zero()); });
}

template <typename V>
typename V::Register clamped_to_6(typename V::Register x) noexcept {
  return V::minimum(V::maximum(x, V::zero()), V::splat(6.0f));
}

template <typename V>
typename V::Register hard_sigmoid(typename V::Register x) noexcept {
  return V::times(clamped_to_6<V>(V::plus(x, V::splat(3.0f))), V::splat(kOneSixth));
}

template <typename V>
void relu6(const float* input, float* output, size_t count) noexcept {
  map<V>(input, output, count, [](auto x) { return clamped_to_6<V>(x); });
}

template <typename V>
void hswish(const float* input, float* output, size_t count) noexcept {
  map<V>(input, output, count, [](auto x) { return V::times(hard_sigmoid<V>(x), x); });
}

template <typename V>
size_t leaky(const float* input, float* output, size_t count, float slope) noexcept {
  const auto slopes = V::splat(slope);
  return map<V>(input, output, count, [slopes](auto x) {
    return V::plus(V::times(V::minimum(x, V::zero()), slopes), V::maximum(x, V::zero()));
  });
}

}  // namespace
}  // namespace marlo::kernel::activation
