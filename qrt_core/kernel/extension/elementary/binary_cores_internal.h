#pragma once

#include "qrt_core/kernel/extension/elementary/binary_cores.h"
#include "qrt_core/kernel/extension/math/math_vectors_internal.h"

namespace marlo::kernel::elementary {
namespace {

/// `lanes` numbers of a row from the i-th on, or as often the one that it has.
template <typename V, bool is_still>
[[gnu::always_inline]] inline typename V::Register read(const float* row, size_t i,
                                                        size_t lanes) noexcept {
  if constexpr (is_still) return V::splat(row);
  return V::load_first(row + i, lanes);
}

template <typename V, bool a_still, bool b_still, typename Function>
void run_rows(const BinaryTask& task, Function function) noexcept {
  const size_t whole = task.count / V::kLanes * V::kLanes;
  const size_t left = task.count - whole;
  const float* a = task.a;
  const float* b = task.b;
  float* c = task.c;
  for (size_t row = 0; row < task.rows; ++row, a += task.a_row, b += task.b_row, c += task.count) {
    for (size_t i = 0; i < whole; i += V::kLanes) {
      V::store(c + i,
               function(read<V, a_still>(a, i, V::kLanes), read<V, b_still>(b, i, V::kLanes)));
    }
    if (left == 0) continue;
    V::store_first(c + whole, left,
                   function(read<V, a_still>(a, whole, left), read<V, b_still>(b, whole, left)));
  }
}

/// Rows of one vector, which are the same each time on one side: `other` are those of the other side.
template <typename V, typename Function>
void run_vectors(const float* other, size_t stride, size_t rows, float* c,
                 Function function) noexcept {
  for (size_t row = 0; row < rows; ++row, other += stride, c += V::kLanes) {
    V::store(c, function(V::load(other)));
  }
}

// Where both stand still there is one number in a row.
template <typename V, typename Function>
[[gnu::always_inline]] inline void run_group(const BinaryTask& task, Function function) noexcept {
  if (task.count == V::kLanes && task.a_step == 1 && task.b_step == 1) {
    if (task.b_row == 0) {
      const auto b = V::load(task.b);
      return run_vectors<V>(task.a, task.a_row, task.rows, task.c,
                            [&](auto a) { return function(a, b); });
    }
    if (task.a_row == 0) {
      const auto a = V::load(task.a);
      return run_vectors<V>(task.b, task.b_row, task.rows, task.c,
                            [&](auto b) { return function(a, b); });
    }
  }
  if (task.a_step == 0) return run_rows<V, true, false>(task, function);
  if (task.b_step == 0) return run_rows<V, false, true>(task, function);
  run_rows<V, false, false>(task, function);
}

template <typename V, typename Function>
void run_binary(const BinaryTask& task, Function function) noexcept {
  for_each_group(task, [&](const BinaryTask& group) { run_group<V>(group, function); });
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
