#pragma once

#include "qrt_core/kernel/vectors_internal.h"
#include "qrt_toolkit/explain/probe_cores.h"

// The machine's limits, for any vector.

namespace marlo::toolkit {
namespace {

using kernel::in_order;
using kernel::unrolled;

/// Makes the compiler believe that a value is used, at no cost.
template <typename Register>
[[gnu::always_inline]] inline void keep(Register value) noexcept {
  asm volatile("" : : "x"(value));
}

inline constexpr size_t kUnrolled = 16;

template <typename Vector, size_t step = kUnrolled>
void copy(const float* from, float* to, size_t count) noexcept {
  for (size_t i = 0; i < count; i += step * Vector::kLanes) {
    unrolled<step>(QRT_UNROLLED(k) {
      const size_t at = i + k * Vector::kLanes;
      Vector::store(to + at, Vector::load(from + at));
      // Without it the compiler calls memcpy.
      asm volatile("" : : : "memory");
    });
  }
}

template <typename Vector, size_t step = kUnrolled>
void read(const float* from, size_t count) noexcept {
  for (size_t i = 0; i < count; i += step * Vector::kLanes) {
    unrolled<step>(QRT_UNROLLED(k) { keep(Vector::load(from + i + k * Vector::kLanes)); });
  }
}

/// Two kinds of chains side by side: `first(value)` and `second(value)` give the next value.
template <typename Vector, typename First, typename Second>
void run_chains(size_t rounds, float start, First first, Second second) noexcept {
  typename Vector::Register a[kChains];
  typename Vector::Register b[kChains];
  // The compiler must not see that all chains are the same.
  for (size_t k = 0; k < kChains; ++k) a[k] = in_order(Vector::splat(start));
  for (size_t k = 0; k < kChains; ++k) b[k] = in_order(Vector::splat(start));
  for (size_t i = 0; i < rounds; ++i) {
    unrolled<kChains>(QRT_UNROLLED(k) {
      a[k] = first(a[k]);
      b[k] = second(b[k]);
    });
  }
  for (size_t k = 0; k < kChains; ++k) keep(a[k]), keep(b[k]);
}

/// Products and as many sums.
template <typename Vector>
void run_products_and_sums(size_t rounds, float one, float zero) noexcept {
  const auto factor = Vector::splat(one);
  const auto term = Vector::splat(zero);
  run_chains<Vector>(
      rounds, one, [factor](auto x) { return Vector::times(x, factor); },
      [term](auto x) { return Vector::plus(x, term); });
}

}  // namespace
}  // namespace marlo::toolkit
