#pragma once

#include "qrt_core/kernel/basic/upsampling_cores.h"

namespace marlo::kernel::upsampling {
namespace {

/// Keeps the blends along two input rows: successive output rows mostly need the same two.
template <typename BlendColumns>
class RowCache {
 public:
  RowCache(const Task& task, size_t row_floats, BlendColumns blend) noexcept
      : buffers_{task.scratch, task.scratch + row_floats}, blend_(blend) {}

  /// The blend along input row `row` of the plane at `input`. The blend along row `kept` stays.
  const float* get(const float* input, size_t in_row_floats, size_t row, size_t kept) noexcept {
    if (held_[0] == row) return buffers_[0];
    if (held_[1] == row) return buffers_[1];
    const int slot = held_[0] == kept ? 1 : 0;
    blend_(input + row * in_row_floats, buffers_[slot]);
    held_[slot] = row;
    return buffers_[slot];
  }

  void forget() noexcept { held_[0] = held_[1] = kNone; }

 private:
  static constexpr size_t kNone = static_cast<size_t>(-1);

  float* buffers_[2];
  size_t held_[2] = {kNone, kNone};
  BlendColumns blend_;
};

/// Bilinear sampling from two loops: `blend_columns(input_row, blended)` along a row, and
/// `blend_rows(top, bottom, taps, output, count)` between two blended rows.
template <size_t block, typename BlendColumns, typename BlendRows>
void bilinear(const Task& task, BlendColumns blend_columns, BlendRows blend_rows) noexcept {
  const size_t in_row = task.in_width * block;
  const size_t out_row = task.out_width * block;
  RowCache<BlendColumns> cache(task, out_row, blend_columns);
  const float* input = task.input;
  float* output = task.output;
  for (size_t plane = 0; plane < task.planes; ++plane) {
    cache.forget();
    for (size_t row = 0; row < task.out_height; ++row) {
      const Taps& taps = task.rows[row];
      const float* top = cache.get(input, in_row, taps.first, taps.second);
      const float* bottom = cache.get(input, in_row, taps.second, taps.first);
      blend_rows(top, bottom, taps, output, out_row);
      output += out_row;
    }
    input += task.in_height * in_row;
  }
}

/// Nearest sampling by `copy(from, to)` of one pixel.
template <size_t block, typename Copy>
void nearest(const Task& task, Copy copy) noexcept {
  const float* input = task.input;
  float* output = task.output;
  for (size_t plane = 0; plane < task.planes; ++plane) {
    for (size_t row = 0; row < task.out_height; ++row) {
      const float* in = input + task.rows[row].first * task.in_width * block;
      for (size_t column = 0; column < task.out_width; ++column, output += block) {
        copy(in + task.columns[column].first * block, output);
      }
    }
    input += task.in_height * task.in_width * block;
  }
}

/// The blend along one row of single floats, for layouts without blocks.
inline auto blend_floats(const Task& task) noexcept {
  return [&task](const float* in, float* out) {
    for (size_t column = 0; column < task.out_width; ++column) {
      const Taps& taps = task.columns[column];
      out[column] = in[taps.first] * taps.first_weight + in[taps.second] * taps.second_weight;
    }
  };
}

/// The blend of what is left of two rows, from element `done`.
inline void blend_tail(const float* top, const float* bottom, const Taps& taps, float* out,
                       size_t done, size_t count) noexcept {
  for (size_t i = done; i < count; ++i) {
    out[i] = top[i] * taps.first_weight + bottom[i] * taps.second_weight;
  }
}

}  // namespace
}  // namespace marlo::kernel::upsampling
