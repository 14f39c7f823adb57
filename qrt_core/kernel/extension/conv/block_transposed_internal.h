#pragma once

#include "qrt_core/kernel/extension/conv/block_transposed_cores.h"
#include "qrt_core/kernel/extension/conv/block_window_internal.h"

// Transposed convolutions as convolutions at stride 1: outputs that are a stride apart meet the same taps
// of the filter, in the same places beside their inputs, so that they are the results of a window of
// these taps. For each place within a stride there is one such window, or none whose outputs are the
// bias alone. Internal to the file that includes it.

namespace marlo::kernel::conv {
namespace {

/// One direction of a transposed convolution.
class TransposedAxis {
 public:
  /// @param padding before the first input in the picture whose inputs are a stride apart, signed
  TransposedAxis(uint32_t kernel, uint32_t stride, uint32_t dilation, uint32_t padding,
                 uint32_t inputs, uint32_t outputs) noexcept
      : kernel_(kernel),
        stride_(stride),
        dilation_(dilation),
        apart_(taps_apart(stride, dilation)),
        common_(stride / apart_),
        padding_(static_cast<int32_t>(padding)),
        inputs_(inputs),
        outputs_(outputs) {
    while (inverse_ * (dilation_ / common_) % apart_ != 1 % apart_) ++inverse_;
  }

  /// A window of outputs a stride apart.
  struct Phase {
    WindowAxis window;
    size_t before = 0;  ///< taps in the windows whose weights stand before its own
  };

  /// How many windows have outputs.
  size_t phases() const noexcept { return smaller_of(stride_, outputs_); }

  /// The window of outputs `first`, `first` + stride and so on.
  Phase phase(size_t first) const noexcept {
    const auto stride = static_cast<int64_t>(stride_);
    const int64_t place = static_cast<int64_t>(first) - padding_;  // where tap 0 lies
    const auto missing = static_cast<size_t>(((-place) % stride + stride) % stride);
    Phase phase;
    phase.window = {0, 1,       dilation_ / common_,
                    0, inputs_, (outputs_ - first + stride_ - 1) / stride_};
    if (missing % common_ != 0) return phase;
    const size_t tap = missing / common_ * inverse_ % apart_;  // the first that lies on an input
    if (tap >= kernel_) return phase;
    phase.window.kernel = (kernel_ - tap + apart_ - 1) / apart_;
    phase.window.padding = -((place + static_cast<int64_t>(tap * dilation_)) / stride);
    phase.before = tap * (kernel_ / apart_) + smaller_of(tap, kernel_ % apart_);
    return phase;
  }

  size_t stride() const noexcept { return stride_; }
  size_t kernel() const noexcept { return kernel_; }
  size_t inputs() const noexcept { return inputs_; }
  size_t outputs() const noexcept { return outputs_; }

 private:
  size_t kernel_, stride_, dilation_;
  size_t apart_;   // taps of one window in the filter
  size_t common_;  // what stride and dilation have in common
  int64_t padding_;
  size_t inputs_, outputs_;
  size_t inverse_ = 0;  // of the dilation, both without what they have in common
};

/// One group of a transposed convolution, as `WindowPlane` is of others.
class TransposedPlane {
 public:
  explicit TransposedPlane(const ConvTask& task) noexcept
      : in_blocks(task.in_blocks),
        rows_(task.params.kernel_y, task.params.stride_y, task.params.dilation_y,
              task.params.padding_t, task.in_height, task.out_height),
        columns_(task.params.kernel_x, task.params.stride_x, task.params.dilation_x,
                 task.params.padding_l, task.in_width, task.out_width),
        part_(task) {
    y = rows_.phase(0).window;
    x = columns_.phase(0).window;
    out_plane = rows_.outputs() * columns_.outputs() * kChannelBlock;
    all_taps = rows_.kernel() * columns_.kernel();
    part_.all_taps = all_taps;
    part_.in_plane = rows_.inputs() * columns_.inputs() * kChannelBlock;
    part_.out_plane = out_plane;
    part_.out_step = columns_.stride() * kChannelBlock;
    part_.out_row = rows_.stride() * columns_.outputs() * kChannelBlock;
  }

  size_t in_blocks;
  WindowAxis y, x;  ///< of the window with most outputs
  size_t out_plane = 0;
  size_t all_taps = 0;

  /// Calls `run(plane)` with each window.
  template <typename Run>
  void for_each_part(Run run) const noexcept {
    for (size_t row = 0; row < rows_.phases(); ++row) {
      const TransposedAxis::Phase vertical = rows_.phase(row);
      for (size_t column = 0; column < columns_.phases(); ++column) {
        const TransposedAxis::Phase horizontal = columns_.phase(column);
        WindowPlane part = part_;
        part.y = vertical.window;
        part.x = horizontal.window;
        part.first_tap =
            vertical.before * columns_.kernel() + vertical.window.kernel * horizontal.before;
        part.first_output = (row * columns_.outputs() + column) * kChannelBlock;
        run(part);
      }
    }
  }

 private:
  TransposedAxis rows_, columns_;
  WindowPlane part_;
};

}  // namespace
}  // namespace marlo::kernel::conv
