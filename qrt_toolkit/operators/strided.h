#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "qrt_toolkit/graph/shape.h"

// The one loop behind every operator that walks tensors with several axes.

namespace marlo::toolkit {

/// Walks a box of elements row by row, for N tensors that each have a stride per axis (0 where an
/// axis is broadcast, negative where it is walked backwards).
///
/// Calls `row(offsets, count, steps)`: the row has `count` elements; in tensor i it begins at
/// `offsets[i]` and goes on by `steps[i]`. A row is the last axis; a box without axes is one
/// element.
template <size_t N, class Row>
void for_each_row(const Extents& box, const std::array<Extents, N>& strides, Row&& row) {
  std::array<int64_t, N> offsets{};
  std::array<int64_t, N> steps{};
  const size_t rank = box.size();
  for (const int64_t size : box) {
    if (size == 0) return;
  }
  if (rank == 0) {
    row(offsets, int64_t{1}, steps);
    return;
  }
  for (size_t i = 0; i < N; ++i) steps[i] = strides[i][rank - 1];
  Extents index(rank, 0);
  for (;;) {
    row(offsets, box[rank - 1], steps);
    size_t axis = rank - 1;
    for (;;) {
      if (axis == 0) return;
      --axis;
      for (size_t i = 0; i < N; ++i) offsets[i] += strides[i][axis];
      if (++index[axis] < box[axis]) break;
      for (size_t i = 0; i < N; ++i) offsets[i] -= strides[i][axis] * box[axis];
      index[axis] = 0;
    }
  }
}

/// The strides of a tensor when it is broadcast to `box`.
inline Extents broadcast_strides(const Extents& shape, const Extents& box) {
  const Extents own = strides_of(shape);
  Extents strides(box.size(), 0);
  const size_t offset = box.size() - shape.size();
  for (size_t i = 0; i < shape.size(); ++i) {
    strides[offset + i] = shape[i] == 1 ? 0 : own[i];
  }
  return strides;
}

}  // namespace marlo::toolkit
