#pragma once

#include "qrt_core/kernel/extension/math/vector_math_internal.h"
#include "qrt_core/kernel/extension/recurrent/wide_update_cores.h"

namespace marlo::kernel::recurrent {
namespace {

/// Calls `body(j, lanes)` for each vector of places, the last one of fewer.
template <typename V, typename Body>
void for_each_place(size_t size, Body body) noexcept {
  size_t j = 0;
  for (; j + V::kLanes <= size; j += V::kLanes) body(j, V::kLanes);
  if (j < size) body(j, size - j);
}

template <typename V, typename Function>
void update_rnn(const WideUpdate& update, Function function) noexcept {
  for_each_place<V>(update.size, [&](size_t j, size_t lanes) {
    V::store_first(update.next + j, lanes, function(V::load_first(update.gates + j, lanes)));
  });
}

template <typename V>
void update_lstm(const WideUpdate& update) noexcept {
  const size_t size = update.size;
  for_each_place<V>(size, [&](size_t j, size_t lanes) {
    const auto gate = [&](size_t g) { return V::load_first(update.gates + g * size + j, lanes); };
    const auto i = math::sigmoid<V>(gate(0));
    const auto f = math::sigmoid<V>(gate(1));
    const auto g = math::hyperbolic_tangent<V>(gate(2));
    const auto o = math::sigmoid<V>(gate(3));
    const auto c = V::fused(V::load_first(update.c + j, lanes), f, V::times(i, g));
    V::store_first(update.c + j, lanes, c);
    V::store_first(update.next + j, lanes, V::times(math::hyperbolic_tangent<V>(c), o));
  });
}

template <typename V>
void update_gru(const WideUpdate& update) noexcept {
  const size_t size = update.size;
  for_each_place<V>(size, [&](size_t j, size_t lanes) {
    const auto gate = [&](size_t g) { return V::load_first(update.gates + g * size + j, lanes); };
    const auto r = math::sigmoid<V>(gate(0));
    const auto z = math::sigmoid<V>(gate(1));
    const auto n = math::hyperbolic_tangent<V>(
        V::fused(r, gate(2), V::load_first(update.candidate + j, lanes)));
    const auto h = V::load_first(update.h + j, lanes);
    V::store_first(update.next + j, lanes, V::minus_product(n, z, V::minus(n, h)));
  });
}

}  // namespace
}  // namespace marlo::kernel::recurrent
