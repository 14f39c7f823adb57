#pragma once

#include "qrt_core/kernel/extension/elementary/line_cores.h"
#include "qrt_core/kernel/extension/math/vector_math_internal.h"

// Softmax and normalisation for any vector of math_vectors_internal.h.

namespace marlo::kernel::elementary {
namespace {

/// The lanes of a vector, put together by `join`, and the first `count` numbers of what doesn't
/// fill one.
template <typename V, typename Join>
float joined(typename V::Register lanes, Join join) noexcept {
  float numbers[V::kLanes];
  V::store(numbers, lanes);
  for (size_t width = V::kLanes / 2; width > 0; width /= 2) {
    for (size_t i = 0; i < width; ++i) numbers[i] = join(numbers[i], numbers[i + width]);
  }
  return numbers[0];
}

/// `step(sum, x, i)` over a line into four vectors of sums, where lanes beyond the end hold `none`,
/// and these together.
template <typename V, typename Step, typename Join, typename JoinFloats>
float folded(const float* line, size_t count, float none, Step step, Join join,
             JoinFloats join_floats) noexcept {
  constexpr size_t kLanes = V::kLanes;
  typename V::Register sums[4];
  unrolled<4>(QRT_UNROLLED(v) { sums[v] = V::splat(none); });
  size_t i = 0;
  for (; i + 4 * kLanes <= count; i += 4 * kLanes) {
    unrolled<4>(QRT_UNROLLED(v) {
      sums[v] = step(sums[v], V::load(line + i + v * kLanes), i + v * kLanes);
    });
  }
  for (; i + kLanes <= count; i += kLanes) sums[0] = step(sums[0], V::load(line + i), i);
  float result = joined<V>(join(join(sums[0], sums[1]), join(sums[2], sums[3])), join_floats);
  if (i == count) return result;
  // The rest in a vector of its own, of which lanes are left out.
  float rest[kLanes];
  V::store(rest, step(V::splat(none), V::load_first(line + i, count - i), i));
  for (size_t j = 0; j < count - i; ++j) result = join_floats(result, rest[j]);
  return result;
}

template <typename V>
float largest_of(const float* line, size_t count) noexcept {
  // A NaN in x stays: it is the second operand, or the sum that the next maximum passes on.
  const auto larger = [](auto sum, auto x, size_t) {
    return V::select(V::is_nan(sum), sum, V::maximum(sum, x));
  };
  return folded<V>(
      line, count, -__builtin_inff(), larger, [larger](auto a, auto b) { return larger(a, b, 0); },
      [](float a, float b) { return b > a || b != b ? b : a; });
}

template <typename V, typename Step>
float sum_of(const float* line, size_t count, Step step) noexcept {
  return folded<V>(
      line, count, 0.0f, step, [](auto a, auto b) { return V::plus(a, b); },
      [](float a, float b) { return a + b; });
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
  const auto largest = V::splat(largest_of<V>(task.input, task.count));
  if (task.logarithm) {
    const float sum = sum_of<V>(task.input, task.count, [largest](auto part, auto x, size_t) {
      return V::plus(part, math::exponential<V>(V::minus(x, largest)));
    });
    float log[V::kLanes];
    V::store(log, math::logarithm<V>(V::splat(sum)));
    const auto less = V::splat(log[0]);
    map_line<V>(task.input, task.output, task.count,
                [=](auto x, size_t, size_t) { return V::minus(V::minus(x, largest), less); });
    return;
  }
  map_line<V>(task.input, task.output, task.count,
              [=](auto x, size_t, size_t) { return math::exponential<V>(V::minus(x, largest)); });
  const float sum = sum_of<V>(task.output, task.count,
                              [](auto part, auto x, size_t) { return V::plus(part, x); });
  const auto factor = V::splat(1.0f / sum);
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
      largest = V::select(V::is_nan(largest), largest, V::maximum(largest, at(i)));
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
  const auto total = static_cast<float>(task.count);
  const float mean =
      sum_of<V>(task.input, task.count, [](auto sum, auto x, size_t) { return V::plus(sum, x); }) /
      total;
  const auto means = V::splat(mean);
  const float squares = sum_of<V>(task.input, task.count, [means](auto sum, auto x, size_t) {
    const auto difference = V::minus(x, means);
    return V::fused(difference, difference, sum);
  });
  float roots[V::kLanes];
  V::store(roots, V::root(V::splat(squares / total + task.eps)));
  const auto factor = V::splat(task.line_scale / roots[0]);
  const auto shift = V::splat(task.line_shift);
  map_line<V>(task.input, task.output, task.count, [&](auto x, size_t i, size_t lanes) {
    auto y = V::fused(V::minus(x, means), factor, shift);
    if (task.scale != nullptr) y = V::times(y, V::load_first(task.scale + i, lanes));
    if (task.shift != nullptr) y = V::plus(y, V::load_first(task.shift + i, lanes));
    return y;
  });
}

}  // namespace
}  // namespace marlo::kernel::elementary
