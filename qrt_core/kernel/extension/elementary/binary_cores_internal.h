#pragma once

#include "qrt_core/kernel/extension/elementary/binary_cores.h"
#include "qrt_core/kernel/extension/math/math_vectors_internal.h"

namespace marlo::kernel::elementary {
namespace {

template <typename V, typename Function>
void run_row(const BinaryTask& task, const float* a, const float* b, float* c,
             Function function) noexcept {
  const auto read = [](const float* from, size_t step, size_t i, size_t lanes) {
    return step == 0 ? V::splat(*from) : V::load_first(from + i, lanes);
  };
  size_t i = 0;
  for (; i + V::kLanes <= task.count; i += V::kLanes) {
    V::store(c + i,
             function(read(a, task.a_step, i, V::kLanes), read(b, task.b_step, i, V::kLanes)));
  }
  if (i == task.count) return;
  const size_t left = task.count - i;
  V::store_first(c + i, left,
                 function(read(a, task.a_step, i, left), read(b, task.b_step, i, left)));
}

template <typename V, typename Function>
void run_binary(const BinaryTask& task, Function function) noexcept {
  const float* a = task.a;
  const float* b = task.b;
  float* c = task.c;
  for (size_t row = 0; row < task.rows; ++row, a += task.a_row, b += task.b_row, c += task.count) {
    run_row<V>(task, a, b, c, function);
  }
}

template <typename V>
void binary(const BinaryTask& task) noexcept {
  // A NaN stays, wherever it stands.
  const auto with_nan = [](auto a, auto b, auto result) {
    return V::select(V::is_nan(a), a, V::select(V::is_nan(b), b, result));
  };
  switch (task.function) {
    case 0:
      return run_binary<V>(task, [](auto a, auto b) { return V::plus(a, b); });
    case 1:
      return run_binary<V>(task, [](auto a, auto b) { return V::minus(a, b); });
    case 2:
      return run_binary<V>(task, [](auto a, auto b) { return V::times(a, b); });
    case 3:
      return run_binary<V>(task, [](auto a, auto b) { return V::over(a, b); });
    case 5:
      return run_binary<V>(task, [&](auto a, auto b) { return with_nan(a, b, V::minimum(a, b)); });
    case 6:
      return run_binary<V>(task, [&](auto a, auto b) { return with_nan(a, b, V::maximum(a, b)); });
    default:
      return run_binary<V>(
          task, [](auto a, auto b) { return V::select(V::less(a, V::zero()), V::times(a, b), a); });
  }
}

}  // namespace
}  // namespace marlo::kernel::elementary
