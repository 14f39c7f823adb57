#pragma once

#include "qrt_core/kernel/conv/conv_params.h"
#include "qrt_core/kernel/matrix/vectors_internal.h"

// Depthwise convolutions over blocks, a lane for each channel. Internal to the file that includes
// it.

namespace marlo::kernel::conv {
namespace {

/// Neighbouring pixels of which each fills a vector.
template <typename Vector>
struct WholePixels {
  static constexpr size_t kBlock = Vector::kLanes;
  static constexpr size_t kPixels = 1;
  static typename Vector::Register load(const float* from) noexcept { return Vector::load(from); }
  static typename Vector::Register weight(const float* from) noexcept { return Vector::load(from); }
};

/// Pairs of pixels, `kStep` pixels apart, that share a vector.
template <typename Vector, size_t kStep>
struct PairedPixels {
  static constexpr size_t kBlock = Vector::kLanes / 2;
  static constexpr size_t kPixels = 2;
  static typename Vector::Register load(const float* from) noexcept {
    if constexpr (kStep == 1) return Vector::load(from);
    return Vector::load_halves(from, from + kStep * kBlock);
  }
  static typename Vector::Register weight(const float* from) noexcept {
    return Vector::template repeat<kBlock>(from);
  }
};

/// A rectangle of outputs.
struct DepthwiseArea {
  size_t first_row;
  size_t rows;
  size_t first_column;
  size_t columns;
};

/// Writes a depthwise convolution with a square window, started from the bias or zero, to an area
/// of its output, a multiple of `Pixels::kPixels` wide. Vectors are taken row by row, up to `kMost`
/// at a time; each sum takes the window's rows and columns in order.
template <typename Vector, typename Pixels, size_t kSize, size_t kMost>
class DepthwiseTiles {
  using Register = typename Vector::Register;
  static constexpr size_t kBlock = Pixels::kBlock;
  static constexpr size_t kTaps = kSize * kSize;

 public:
  DepthwiseTiles(const ConvTask& task, const DepthwiseArea& area) noexcept
      : task_(task), area_(area) {}

  void run() const noexcept {
    const Conv2dParams& p = task_.params;
    const size_t filters = size_t{p.in_channels_per_group} * p.out_channels_per_group;
    if (filters == 0) return;  // more groups than channels: there are no weights
    const size_t in_plane = size_t{task_.in_height} * task_.in_width * kBlock;
    const size_t out_plane = size_t{task_.out_height} * task_.out_width * kBlock;
    for (size_t block = 0; block < p.groups / kBlock; ++block) {
      const float* weights = task_.weight + block * filters * kTaps * kBlock;
      const float* bias = task_.bias == nullptr ? nullptr : task_.bias + block * kBlock;
      for (size_t y = area_.first_row; y < area_.first_row + area_.rows; ++y) {
        run_row(task_.input + block * in_plane + y * p.stride_y * task_.in_width * kBlock,
                task_.output + block * out_plane + y * task_.out_width * kBlock, weights, bias);
      }
    }
  }

 private:
  void run_row(const float* input, float* output, const float* weights,
               const float* bias) const noexcept {
    const size_t in_step = task_.params.stride_x * Pixels::kPixels * kBlock;
    const size_t out_step = Pixels::kPixels * kBlock;
    input += area_.first_column * task_.params.stride_x * kBlock;
    output += area_.first_column * kBlock;
    for_even_tiles(
        area_.columns / Pixels::kPixels, kMost, [&](size_t begin, size_t size, size_t count) {
          for (size_t i = 0; i < count; ++i) {
            const size_t at = begin + i * size;
            sized_tile<kMost>(size, input + at * in_step, output + at * out_step, weights, bias);
          }
        });
  }

  template <size_t kCount>
  void sized_tile(size_t count, const float* input, float* output, const float* weights,
                  const float* bias) const noexcept {
    if constexpr (kCount > 1) {
      if (count < kCount) return sized_tile<kCount - 1>(count, input, output, weights, bias);
    }
    run_tile<kCount>(input, output, weights, bias);
  }

  template <size_t kCount>
  [[gnu::always_inline]] void run_tile(const float* input, float* output, const float* weights,
                                       const float* bias) const noexcept {
    const size_t in_row = size_t{task_.in_width} * kBlock;
    const size_t in_step = task_.params.stride_x * Pixels::kPixels * kBlock;
    constexpr size_t kOutStep = Pixels::kPixels * kBlock;
    Register sums[kCount];
    const Register begin = bias == nullptr ? Vector::zero() : Pixels::weight(bias);
    unrolled<kCount>(QRT_UNROLLED(i) { sums[i] = begin; });
    unrolled<kSize>(QRT_UNROLLED(row) {
      unrolled<kSize>(QRT_UNROLLED(column) {
        const Register w = Pixels::weight(weights + (row * kSize + column) * kBlock);
        unrolled<kCount>(QRT_UNROLLED(i) {
          const Register x = Pixels::load(input + i * in_step + row * in_row + column * kBlock);
          sums[i] = Vector::plus_product(sums[i], x, w);
        });
      });
    });
    unrolled<kCount>(QRT_UNROLLED(i) { Vector::store(output + i * kOutStep, sums[i]); });
  }

  const ConvTask& task_;
  DepthwiseArea area_;
};

inline DepthwiseArea whole_area(const ConvTask& task) noexcept {
  return {0, task.out_height, 0, task.out_width};
}

}  // namespace
}  // namespace marlo::kernel::conv
