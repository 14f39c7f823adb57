#pragma once

#include "qrt_core/kernel/basic/upsampling_loops_internal.h"
#include "qrt_core/kernel/vectors_internal.h"

// Upsampling for any vector.

namespace marlo::kernel::upsampling {
namespace {

template <typename Vector>
typename Vector::Register blend(typename Vector::Register a, typename Vector::Register a_weight,
                                typename Vector::Register b, typename Vector::Register b_weight) {
  return Vector::plus(Vector::times(a, a_weight), Vector::times(b, b_weight));
}

/// Whether output columns 1 and 2, 3 and 4, and so on lie between the same two inputs, as they do
/// where a width is doubled.
inline bool pairs_share_taps(const Task& task) noexcept {
  for (size_t column = 1; column + 1 < task.out_width; column += 2) {
    const Taps& a = task.columns[column];
    const Taps& b = task.columns[column + 1];
    if (a.first != b.first || a.second != b.second) return false;
  }
  return task.out_width % 2 == 0 && task.out_width > 2;
}

/// The blend along one row of pixels that fill a vector. Pairs of columns that share their inputs
/// load them once.
template <typename Vector>
auto blend_pixels(const Task& task) noexcept {
  const bool by_pairs = pairs_share_taps(task);
  return [&task, by_pairs](const float* in, float* out) {
    const auto put = [ in, out, &task ](size_t column) __attribute__((always_inline)) {
      const Taps& taps = task.columns[column];
      Vector::store(out + column * Vector::kLanes,
                    blend<Vector>(Vector::load(in + taps.first * Vector::kLanes),
                                  Vector::splat(&taps.first_weight),
                                  Vector::load(in + taps.second * Vector::kLanes),
                                  Vector::splat(&taps.second_weight)));
    };
    if (!by_pairs) {
      for (size_t column = 0; column < task.out_width; ++column) put(column);
      return;
    }
    put(0);
    for (size_t column = 1; column + 1 < task.out_width; column += 2) {
      const Taps* taps = task.columns + column;
      const auto left = Vector::load(in + taps->first * Vector::kLanes);
      const auto right = Vector::load(in + taps->second * Vector::kLanes);
      for (size_t i = 0; i < 2; ++i) {
        Vector::store(out + (column + i) * Vector::kLanes,
                      blend<Vector>(left, Vector::splat(&taps[i].first_weight), right,
                                    Vector::splat(&taps[i].second_weight)));
      }
    }
    put(task.out_width - 1);
  };
}

template <typename Vector>
void blend_rows(const float* top, const float* bottom, const Taps& taps, float* out,
                size_t count) noexcept {
  constexpr size_t kLanes = Vector::kLanes;
  const auto wt = Vector::splat(taps.first_weight);
  const auto wb = Vector::splat(taps.second_weight);
  size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    Vector::store(out + i, blend<Vector>(Vector::load(top + i), wt, Vector::load(bottom + i), wb));
  }
  blend_tail(top, bottom, taps, out, i, count);
}

/// Planes of single floats.
template <typename Vector>
void bilinear_floats(const Task& task) noexcept {
  bilinear<1>(task, blend_floats(task), blend_rows<Vector>);
}

/// Planes whose pixels fill a vector.
template <typename Vector>
void bilinear_pixels(const Task& task) noexcept {
  bilinear<Vector::kLanes>(task, blend_pixels<Vector>(task), blend_rows<Vector>);
}

/// Planes whose pixels fill a vector.
template <typename Vector>
void nearest_pixels(const Task& task) noexcept {
  nearest<Vector::kLanes>(
      task, [](const float* from, float* to) { Vector::store(to, Vector::load(from)); });
}

}  // namespace
}  // namespace marlo::kernel::upsampling
