#pragma once

#include <cstddef>

#include "qrt_core/kernel/basic/activation_cores.h"
#include "qrt_core/kernel/recurrent/recurrent_steps.h"

// What follows the products in a step, for any vector. The functions are called on whole gates, one
// after the other: calls of one function in a row take less time than calls by turns.

namespace marlo::kernel::recurrent {
namespace {

/// One lane.
struct Scalar {
  using Register = float;
  static constexpr size_t kLanes = 1;

  static float load(const float* from) noexcept { return *from; }
  static void store(float* to, float x) noexcept { *to = x; }
  static float plus(float a, float b) noexcept { return a + b; }
  static float minus(float a, float b) noexcept { return a - b; }
  static float times(float a, float b) noexcept { return a * b; }
};

/// Calls `body(v, j)` for the places j that `v`, a `V` or at the end a `Scalar`, covers.
template <typename V, typename Body>
void for_each_vector(size_t count, Body body) noexcept {
  size_t j = 0;
  for (; j + V::kLanes <= count; j += V::kLanes) body(V(), j);
  for (; j < count; ++j) body(Scalar(), j);
}

template <typename V>
void add(const float* a, const float* b, size_t count, float* sum) noexcept {
  for_each_vector<V>(
      count, [=](auto v, size_t j) { v.store(sum + j, v.plus(v.load(a + j), v.load(b + j))); });
}

inline void sigmoid(float* values, size_t count) noexcept {
  activation::sigmoid_scalar(values, values, count, nullptr);
}

inline void tangent(const float* x, size_t count, float* values) noexcept {
  activation::tanh_scalar(x, values, count, nullptr);
}

template <typename V>
void update_rnn(const StepTask& task, const Gates& gates) noexcept {
  add<V>(gates.a, gates.b, task.hidden_size, task.h);
  task.activation(task.h, task.hidden_size);
}

template <typename V>
void update_lstm(const StepTask& task, const Gates& gates) noexcept {
  const size_t size = task.hidden_size;
  float* const i = gates.b;
  float* const f = i + size;
  float* const g = f + size;
  float* const o = g + size;
  float* const c = task.c;
  float* const h = task.h;
  add<V>(gates.a, gates.b, 4 * size, gates.b);
  sigmoid(i, 2 * size);  // i and f
  tangent(g, size, g);
  sigmoid(o, size);
  for_each_vector<V>(size, [=](auto v, size_t j) {
    const auto kept = v.times(v.load(c + j), v.load(f + j));
    v.store(c + j, v.plus(kept, v.times(v.load(i + j), v.load(g + j))));
  });
  tangent(c, size, h);
  for_each_vector<V>(
      size, [=](auto v, size_t j) { v.store(h + j, v.times(v.load(h + j), v.load(o + j))); });
}

template <typename V>
void update_gru(const StepTask& task, const Gates& gates) noexcept {
  const size_t size = task.hidden_size;
  float* const r = gates.a;
  float* const z = r + size;
  float* const n = z + size;
  const float* const hidden = gates.b + 2 * size;
  float* const h = task.h;
  add<V>(gates.a, gates.b, 2 * size, gates.a);
  sigmoid(r, 2 * size);  // r and z
  for_each_vector<V>(size, [=](auto v, size_t j) {
    v.store(n + j, v.plus(v.load(n + j), v.times(v.load(r + j), v.load(hidden + j))));
  });
  tangent(n, size, n);
  for_each_vector<V>(size, [=](auto v, size_t j) {
    const auto x = v.load(n + j);
    v.store(h + j, v.minus(x, v.times(v.load(z + j), v.minus(x, v.load(h + j)))));
  });
}

}  // namespace
}  // namespace marlo::kernel::recurrent
