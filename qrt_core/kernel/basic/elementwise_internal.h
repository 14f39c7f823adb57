#pragma once

#include "qrt_core/kernel/basic/elementwise_cores.h"
#include "qrt_core/kernel/vectors_internal.h"

// Operators on two arrays, for any vector.

namespace marlo::kernel::elementwise {
namespace {

// Four vectors at a time keep the load and store ports busy.
template <typename Vector, typename Function>
void map(const float* a, const float* b, float* output, size_t count, Function function) noexcept {
  constexpr size_t kLanes = Vector::kLanes;
  const auto at = [=](size_t i) { return function(Vector::load(a + i), Vector::load(b + i)); };
  size_t i = 0;
  for (; i + 4 * kLanes <= count; i += 4 * kLanes) {
    const auto p = at(i);
    const auto q = at(i + kLanes);
    const auto r = at(i + 2 * kLanes);
    const auto s = at(i + 3 * kLanes);
    Vector::store(output + i, p);
    Vector::store(output + i + kLanes, q);
    Vector::store(output + i + 2 * kLanes, r);
    Vector::store(output + i + 3 * kLanes, s);
  }
  for (; i + kLanes <= count; i += kLanes) Vector::store(output + i, at(i));
}

template <typename V>
void add(const float* a, const float* b, float* output, size_t count) noexcept {
  map<V>(a, b, output, count, [](auto x, auto y) { return V::plus(x, y); });
}

template <typename V>
void subtract(const float* a, const float* b, float* output, size_t count) noexcept {
  map<V>(a, b, output, count, [](auto x, auto y) { return V::minus(x, y); });
}

template <typename V>
void multiply(const float* a, const float* b, float* output, size_t count) noexcept {
  map<V>(a, b, output, count, [](auto x, auto y) { return V::times(x, y); });
}

template <typename V>
void divide(const float* a, const float* b, float* output, size_t count) noexcept {
  map<V>(a, b, output, count, [](auto x, auto y) { return V::over(x, y); });
}

template <typename V>
void maximum(const float* a, const float* b, float* output, size_t count) noexcept {
  map<V>(a, b, output, count, [](auto x, auto y) { return V::maximum(x, y); });
}

template <typename V>
void minimum(const float* a, const float* b, float* output, size_t count) noexcept {
  map<V>(a, b, output, count, [](auto x, auto y) { return V::minimum(x, y); });
}

}  // namespace
}  // namespace marlo::kernel::elementwise
