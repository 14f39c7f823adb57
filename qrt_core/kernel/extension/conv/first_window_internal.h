#pragma once

#include "qrt_core/kernel/conv/steps/conv_params.h"
#include "qrt_core/kernel/extension/conv/pixel_sums_internal.h"

// Convolutions from a few planes to C8HW8. The lines under the windows of a row of outputs are copied
// with their margins, which stay in L1; each of their numbers is broadcast and meets vectors of output
// channels. Lines that the windows of the next row see again stay where they are. Internal to the file
// that includes it.

namespace marlo::kernel::conv {
namespace {

class FirstWindow {
  static constexpr size_t kFloatsOfCacheLine = 16;

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

  /// @tparam kPacked how many vectors of weights stand side by side; `kVectors` is a multiple
  template <typename Vector, size_t kVectors, size_t kMostPixels, size_t kPacked = kVectors>
  void groups() noexcept {
    constexpr size_t kBlocks = kVectors * Vector::kLanes / kChannelBlock;
    const size_t weights = task_.in_blocks * taps() * kBlocks * kChannelBlock;
    for (; task_.out_blocks - block_ >= kBlocks; block_ += kBlocks, weight_ += weights) {
      float* output = output_row();
      for_even_tiles(task_.out_width, kMostPixels, [&](size_t first, size_t size, size_t count) {
        with_static<kMostPixels>(size, [&](auto kPixels) {
          run_strided<Vector, kVectors, kPacked, kPixels.value>(first, count, output);
        });
      });
      for (size_t block = 0; block < kBlocks; ++block) {
        ending_.stored(output + block * out_plane_, task_.out_width * kChannelBlock);
      }
    }
  }

 private:
  size_t taps() const noexcept { return size_t{task_.params.kernel_y} * task_.params.kernel_x; }

  float* output_row() const noexcept {
    return task_.output + block_ * out_plane_ + row_ * task_.out_width * kChannelBlock;
  }

  // Where the line under row `y` of the windows is kept: lines side by side go round.
  size_t place_of(size_t y) const noexcept {
    const Conv2dParams& p = task_.params;
    return p.dilation_y == 1 ? (row_ * p.stride_y + y) % p.kernel_y : y;
  }

  // [channel][place of a line][line]; what is outside of the picture is zero.
  void copy_lines() const noexcept {
    const Conv2dParams& p = task_.params;
    const bool keeps = row_ != 0 && p.dilation_y == 1 && p.stride_y < p.kernel_y;
    for (size_t y = keeps ? p.kernel_y - p.stride_y : 0; y < p.kernel_y; ++y) {
      const size_t padded = row_ * p.stride_y + y * p.dilation_y;
      float* to = lines_ + place_of(y) * line_;
      for (size_t c = 0; c < task_.in_blocks; ++c, to += p.kernel_y * line_) {
        copy_line(line_of(c, padded), to);
        fetch(line_of(c, padded + p.stride_y));  // what the windows of the next row see
      }
    }
  }

  // Null in the margin.
  const float* line_of(size_t c, size_t padded_row) const noexcept {
    const size_t row = padded_row - task_.params.padding_t;  // a huge number above the picture
    if (row >= task_.in_height) return nullptr;
    return task_.input + (c * task_.in_height + row) * size_t{task_.in_width};
  }

  void fetch(const float* line) const noexcept {
    if (line == nullptr) return;
    for (size_t x = 0; x < task_.in_width; x += kFloatsOfCacheLine) {
      _mm_prefetch(reinterpret_cast<const char*>(line + x), _MM_HINT_T0);
    }
  }

  void copy_line(const float* from, float* to) const noexcept {
    const Conv2dParams& p = task_.params;
    const size_t end = size_t{p.padding_l} + task_.in_width;
    if (from == nullptr) {
      fill_zero(to, to + line_);
      return;
    }
    fill_zero(to, to + p.padding_l);
    for (size_t x = 0; x < task_.in_width; ++x) to[p.padding_l + x] = from[x];
    fill_zero(to + end, to + line_);
  }

  static void fill_zero(float* begin, const float* end) noexcept {
    for (; begin != end; ++begin) *begin = 0.0f;
  }

  template <typename Vector, size_t kVectors, size_t kPacked, size_t kPixels>
  void run_strided(size_t first, size_t tiles, float* output) const noexcept {
    switch (task_.params.stride_x) {
      case 1:
        return run_tiles<Vector, kVectors, kPacked, kPixels, 1>(first, tiles, output);
      case 2:
        return run_tiles<Vector, kVectors, kPacked, kPixels, 2>(first, tiles, output);
      default:
        return run_tiles<Vector, kVectors, kPacked, kPixels, 0>(first, tiles, output);
    }
  }

  // A stride of 0 is one that isn't known here.
  template <typename Vector, size_t kVectors, size_t kPacked, size_t kPixels, size_t kStride>
  [[gnu::noinline]] void run_tiles(size_t first, size_t tiles, float* output) const noexcept {
    using Register = typename Vector::Register;
    constexpr size_t kWidth = kPacked * Vector::kLanes;
    const Conv2dParams& p = task_.params;
    const size_t stride = kStride == 0 ? p.stride_x : kStride;
    const size_t kernel_x = p.kernel_x, kernel_y = p.kernel_y;
    const size_t step = p.dilation_x, line = line_;
    const size_t packed = task_.in_blocks * taps() * kWidth;
    const size_t first_line = place_of(0) * line;
    const float* bias = task_.bias == nullptr ? nullptr : task_.bias + block_ * kChannelBlock;
    for (size_t end = first + tiles * kPixels; first != end; first += kPixels) {
      Register sums[kVectors][kPixels];
      begin_sums<Vector>(bias, sums);
      const float* weight = weight_;
      const float* plane = lines_ + first * stride;
      for (size_t c = task_.in_blocks; c != 0; --c, plane += kernel_y * line) {
        const float* const end_of_plane = plane + kernel_y * line;
        const float* next = plane + first_line;
        for (size_t y = kernel_y; y != 0; --y) {
          const float* at = next;
          next += line;
          if (next == end_of_plane) next = plane;
          for (size_t x = kernel_x; x != 0; --x, at += step, weight += kWidth) {
            add_products<Vector>(
                sums,
                [&](size_t v) __attribute__((always_inline)) {
                  return weight + v / kPacked * packed + v % kPacked * Vector::kLanes;
                },
                [&](size_t pixel) __attribute__((always_inline)) { return at + pixel * stride; });
          }
        }
      }
      store_sums<Vector>(ending_, sums, output + first * kChannelBlock, out_plane_);
    }
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
