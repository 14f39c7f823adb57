#pragma once

#include "qrt_core/kernel/extension/elementary/line_cores.h"
#include "qrt_core/kernel/extension/math/vector_math_internal.h"

// Softmax and normalisation for any vector of math_vectors_internal.h.

namespace marlo::kernel::elementary {
namespace {

/// `step(sum, x, i, lanes)` over the vectors of a line, of the last of which only the first `lanes`
/// are numbers, into so many vectors of sums that begin as `none`; then all lanes of these together by
/// `join`, in every lane. Four hide what a sum waits for; a step that is long itself needs one.
template <typename V, size_t vectors = 4, typename Step, typename Join>
typename V::Register folded(const float* line, size_t count, float none, Step step,
                            Join join) noexcept {
  constexpr size_t kLanes = V::kLanes;
  typename V::Register sums[vectors];
  unrolled<vectors>(QRT_UNROLLED(v) { sums[v] = V::splat(none); });
  size_t i = 0;
  for (; i + vectors * kLanes <= count; i += vectors * kLanes) {
    unrolled<vectors>(QRT_UNROLLED(v) {
      sums[v] = step(sums[v], V::load(line + i + v * kLanes), i + v * kLanes, kLanes);
    });
  }
  for (; i + kLanes <= count; i += kLanes) sums[0] = step(sums[0], V::load(line + i), i, kLanes);
  if (i != count) {
    const size_t left = count - i;
    auto& sum = sums[vectors / 2];
    sum = V::select(V::first(left), step(sum, V::load_first(line + i, left), i, left), sum);
  }
  for (size_t half = vectors / 2; half > 0; half /= 2) {
    for (size_t v = 0; v < half; ++v) sums[v] = join(sums[v], sums[v + half]);
  }
  return V::across(sums[0], join);
}

// A NaN may be lost here: the sum of the exponentials has it again.
template <typename V>
typename V::Register largest_of(const float* line, size_t count) noexcept {
  const auto larger = [](auto a, auto b) { return V::maximum(a, b); };
  return folded<V>(
      line, count, -__builtin_inff(),
      [larger](auto sum, auto x, auto...) { return larger(sum, x); }, larger);
}

template <typename V, size_t vectors = 4, typename Step>
typename V::Register sum_of(const float* line, size_t count, Step step) noexcept {
  return folded<V, vectors>(line, count, 0.0f, step, [](auto a, auto b) { return V::plus(a, b); });
}

/// output = function(input) for each vector of a line.
template <typename V, typename Function>
void map_line(const float* input, float* output, size_t count, Function function) noexcept {
  size_t i = 0;
  for (; i + V::kLanes <= count; i += V::kLanes) {
    V::store(output + i, function(V::load(input + i), i, V::kLanes));
  }
  if (i == count) return;
  const size_t left = count - i;
  V::store_first(output + i, left, function(V::load_first(input + i, left), i, left));
}

template <typename V>
void softmax_line(const SoftmaxTask& task) noexcept {
  const auto largest = largest_of<V>(task.input, task.count);
  if (task.logarithm) {
    const auto sum = sum_of<V, 1>(task.input, task.count, [largest](auto part, auto x, auto...) {
      return V::plus(part, math::exponential<V>(V::minus(x, largest)));
    });
    const auto less = math::logarithm<V>(sum);
    map_line<V>(task.input, task.output, task.count,
                [=](auto x, size_t, size_t) { return V::minus(V::minus(x, largest), less); });
    return;
  }
  const auto sum =
      sum_of<V, 1>(task.input, task.count, [&](auto part, auto x, size_t i, size_t lanes) {
        const auto e = math::exponential<V>(V::minus(x, largest));
        V::store_first(task.output + i, lanes, e);
        return V::plus(part, e);
      });
  const auto factor = V::over(V::splat(1.0f), sum);
  map_line<V>(task.output, task.output, task.count,
              [factor](auto x, size_t, size_t) { return V::times(x, factor); });
}

/// Several lines side by side, a vector of them at a time.
template <typename V>
void softmax_columns(const SoftmaxTask& task) noexcept {
  for (size_t j = 0; j < task.columns; j += V::kLanes) {
    const size_t lanes = smaller_of(V::kLanes, task.columns - j);
    const auto at = [&](size_t i) {
      return V::load_first(task.input + i * task.columns + j, lanes);
    };
    const auto put = [&](size_t i, typename V::Register x) {
      V::store_first(task.output + i * task.columns + j, lanes, x);
    };
    auto largest = V::splat(-__builtin_inff());
    for (size_t i = 0; i < task.count; ++i) {
      largest = V::maximum(largest, at(i));
    }
    auto sum = V::zero();
    for (size_t i = 0; i < task.count; ++i) {
      const auto e = math::exponential<V>(V::minus(at(i), largest));
      sum = V::plus(sum, e);
      if (!task.logarithm) put(i, e);
    }
    if (task.logarithm) {
      const auto less = math::logarithm<V>(sum);
      for (size_t i = 0; i < task.count; ++i) put(i, V::minus(V::minus(at(i), largest), less));
      continue;
    }
    const auto factor = V::over(V::splat(1.0f), sum);
    for (size_t i = 0; i < task.count; ++i) {
      float* const place = task.output + i * task.columns + j;
      V::store_first(place, lanes, V::times(V::load_first(place, lanes), factor));
    }
  }
}

template <typename V>
void softmax(const SoftmaxTask& task) noexcept {
  if (task.columns == 1) {
    softmax_line<V>(task);
  } else {
    softmax_columns<V>(task);
  }
}

template <typename V>
void normalise(const NormTask& task) noexcept {
  const auto total = V::splat(static_cast<float>(task.count));
  const auto sum = sum_of<V>(task.input, task.count,
                             [](auto part, auto x, auto...) { return V::plus(part, x); });
  const auto mean = V::over(sum, total);
  const auto squares = sum_of<V>(task.input, task.count, [mean](auto part, auto x, auto...) {
    const auto difference = V::minus(x, mean);
    return V::fused(difference, difference, part);
  });
  const auto variance = V::plus(V::over(squares, total), V::splat(task.eps));
  const auto factor = V::over(V::splat(task.line_scale), V::root(variance));
  const auto shift = V::splat(task.line_shift);
  map_line<V>(task.input, task.output, task.count, [&](auto x, size_t i, size_t lanes) {
    auto y = V::fused(V::minus(x, mean), factor, shift);
    if (task.scale != nullptr) y = V::times(y, V::load_first(task.scale + i, lanes));
    if (task.shift != nullptr) y = V::plus(y, V::load_first(task.shift + i, lanes));
    return y;
  });
}

}  // namespace
}  // namespace marlo::kernel::elementary
