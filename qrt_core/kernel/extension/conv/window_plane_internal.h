#pragma once

#include "qrt_core/kernel/conv/steps/conv_params.h"
#include "qrt_core/kernel/extension/conv/block_channels_internal.h"
#include "qrt_core/kernel/extension/conv/epilogue_internal.h"
#include "qrt_core/kernel/extension/conv/window_axis_internal.h"

// Where the pictures of a convolution in C8HW8 lie. Internal to the file that includes it.

namespace marlo::kernel::conv {
namespace {

/// A part of the output: rows, and columns of each.
struct WindowBand {
  size_t row, end_row;
  size_t column, end_column;
};

/// One group of a convolution, with distances in floats.
struct WindowPlane {
  explicit WindowPlane(const ConvTask& task) noexcept
      : in_blocks(task.in_blocks), ending(task.epilogue) {
    const Conv2dParams& p = task.params;
    y = rows_of(task);
    x = columns_of(task);
    const bool has_padding = (p.padding_l | p.padding_r | p.padding_t | p.padding_b) != 0;
    if (taps() == 1 && x.stride == 1 && y.stride == 1 && !has_padding) {
      // Neighbours don't matter: the plane is one row.
      x.inputs *= y.inputs;
      x.outputs *= y.outputs;
      y.inputs = y.outputs = 1;
      is_row_of_points = true;
    }
    in_plane = y.inputs * x.inputs * kChannelBlock;
    out_plane = y.outputs * x.outputs * kChannelBlock;
    out_step = kChannelBlock;
    out_row = x.outputs * out_step;
    all_taps = taps();
  }

  size_t in_blocks;
  WindowAxis y, x;
  size_t in_plane = 0, out_plane = 0;
  size_t out_row = 0;       ///< between a result and the one below
  size_t out_step = 0;      ///< between a result and the one beside
  size_t first_output = 0;  ///< where the first result stands
  size_t first_tap =
      0;  ///< how many weights of a pair of channels stand before those of this window
  size_t all_taps = 0;            ///< how many there are
  bool is_row_of_points = false;  ///< whether each result is made of the pixel at its place alone
  Ending ending;

  size_t taps() const noexcept { return y.kernel * x.kernel; }
  /// Whether results stand side by side over the ends of rows.
  bool is_dense() const noexcept {
    return out_step == kChannelBlock && out_row == x.outputs * out_step;
  }

  /// Calls `run(plane)` with what is computed of the same channels: this.
  template <typename Run>
  void for_each_part(Run run) const noexcept {
    run(*this);
  }
};

}  // namespace
}  // namespace marlo::kernel::conv
