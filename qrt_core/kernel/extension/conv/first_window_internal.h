#pragma once

#include "qrt_core/kernel/extension/conv/block_window_internal.h"

// Convolutions from a few planes to C8HW8. The lines under the windows of a row of outputs are copied
// with their margins, which stay in L1; each of their numbers is broadcast and meets vectors of output
// channels. Internal to the file that includes it.

namespace marlo::kernel::conv {
namespace {

class FirstWindow {
 public:
  FirstWindow(const ConvTask& task, float* lines) noexcept
      : task_(task),
        lines_(lines),
        line_(size_t{task.in_width} + task.params.padding_l + task.params.padding_r),
        out_plane_(size_t{task.out_height} * task.out_width * kChannelBlock),
        ending_(task.epilogue) {}

  /// @param take calls `groups<Vector, kVectors>` of what it is given for all widths in turn
  template <typename Take>
  void run(Take take) noexcept {
    for (row_ = 0; row_ < task_.out_height; ++row_) {
      copy_lines();
      weight_ = task_.weight;
      block_ = 0;
      take(*this);
    }
  }

  template <typename Vector, size_t kVectors>
  void groups() noexcept {
    constexpr size_t kSums = Vector::kLanes == 16 ? 28 : 12;
    constexpr size_t kMostPixels = kSums / kVectors < 14 ? kSums / kVectors : 14;
    constexpr size_t kBlocks = kVectors * Vector::kLanes / kChannelBlock;
    const size_t weights = task_.in_blocks * taps() * kBlocks * kChannelBlock;
    for (; task_.out_blocks - block_ >= kBlocks; block_ += kBlocks, weight_ += weights) {
      for_even_parts(task_.out_width, kMostPixels, [&](size_t first, size_t count) {
        with_static<kMostPixels>(
            count, [&](auto kPixels) { run_strided<Vector, kVectors, kPixels.value>(first); });
      });
    }
  }

 private:
  size_t taps() const noexcept { return size_t{task_.params.kernel_y} * task_.params.kernel_x; }

  // [channel][row of the window][line]; what is outside of the picture is zero.
  void copy_lines() const noexcept {
    const Conv2dParams& p = task_.params;
    const size_t width = task_.in_width;
    float* to = lines_;
    for (size_t c = 0; c < task_.in_blocks; ++c) {
      for (size_t y = 0; y < p.kernel_y; ++y, to += line_) {
        const size_t padded = row_ * p.stride_y + y * p.dilation_y;
        const size_t row = padded - p.padding_t;  // a huge number above the picture
        const bool is_inside = row < task_.in_height;
        const float* from =
            is_inside ? task_.input + (c * task_.in_height + row) * width : task_.input;
        for (size_t x = 0; x < p.padding_l; ++x) to[x] = 0.0f;
        float* inner = to + p.padding_l;
        for (size_t x = 0; x < width; ++x) inner[x] = is_inside ? from[x] : 0.0f;
        for (size_t x = p.padding_l + width; x < line_; ++x) to[x] = 0.0f;
      }
    }
  }

  template <typename Vector, size_t kVectors, size_t kPixels>
  void run_strided(size_t first) const noexcept {
    switch (task_.params.stride_x) {
      case 1:
        return run_tile<Vector, kVectors, kPixels, 1>(first);
      case 2:
        return run_tile<Vector, kVectors, kPixels, 2>(first);
      default:
        return run_tile<Vector, kVectors, kPixels, 0>(first);
    }
  }

  // A stride of 0 is one that isn't known here.
  template <typename Vector, size_t kVectors, size_t kPixels, size_t kStride>
  [[gnu::noinline]] void run_tile(size_t first) const noexcept {
    using Register = typename Vector::Register;
    constexpr size_t kWidth = kVectors * Vector::kLanes;
    const Conv2dParams& p = task_.params;
    const size_t stride = kStride == 0 ? p.stride_x : kStride;
    Register sums[kVectors][kPixels];
    const float* bias = task_.bias == nullptr ? nullptr : task_.bias + block_ * kChannelBlock;
    unrolled<kVectors>(QRT_UNROLLED(v) {
      const Register begin =
          bias == nullptr ? Vector::zero() : Vector::load(bias + v * Vector::kLanes);
      unrolled<kPixels>(QRT_UNROLLED(pixel) { sums[v][pixel] = begin; });
    });
    const float* weight = weight_;
    const float* line = lines_ + first * stride;
    for (size_t i = 0; i < size_t{task_.in_blocks} * p.kernel_y; ++i, line += line_) {
      for (size_t x = 0; x < p.kernel_x; ++x, weight += kWidth) {
        const float* at = line + x * p.dilation_x;
        Register weights[kVectors];
        unrolled<kVectors>(
            QRT_UNROLLED(v) { weights[v] = Vector::load(weight + v * Vector::kLanes); });
        unrolled<kPixels>(QRT_UNROLLED(pixel) {
          const Register input = Vector::splat(at + pixel * stride);
          unrolled<kVectors>(QRT_UNROLLED(v) {
            sums[v][pixel] = Vector::plus_product(sums[v][pixel], input, weights[v]);
          });
        });
      }
    }
    store_tile<Vector>(
        ending_, sums,
        task_.output + block_ * out_plane_ + (row_ * task_.out_width + first) * kChannelBlock,
        out_plane_);
  }

  const ConvTask& task_;
  float* lines_;
  size_t line_;
  size_t out_plane_;
  Ending ending_;
  size_t row_ = 0;
  const float* weight_ = nullptr;
  size_t block_ = 0;
};

}  // namespace
}  // namespace marlo::kernel::conv
