#pragma once

#include "qrt_core/kernel/layout/pixel_shuffle_cores.h"

namespace marlo::kernel::pixel_shuffle {
namespace {

/// Walks the 2 x 2 squares of every wide block and calls `move(deep, deep_plane, wide, wide_row)`
/// with the element offsets of the square and the distances to the next deep block and the next
/// wide row.
template <size_t block, typename Move>
void for_each_square(const Task& task, Move move) noexcept {
  const size_t deep_plane = task.deep_height * task.deep_width * block;
  const size_t wide_row = task.wide_width * block;
  const size_t wide_plane = task.wide_height * wide_row;
  for (size_t channel = 0; channel < task.wide_channels; ++channel) {
    for (size_t h = 0; h < task.deep_height; ++h) {
      size_t deep = 4 * channel * deep_plane + h * task.deep_width * block;
      size_t wide = channel * wide_plane + 2 * h * wide_row;
      for (size_t w = 0; w < task.deep_width; ++w) {
        move(deep, deep_plane, wide, wide_row);
        deep += block;
        wide += 2 * block;
      }
    }
  }
}

}  // namespace
}  // namespace marlo::kernel::pixel_shuffle
