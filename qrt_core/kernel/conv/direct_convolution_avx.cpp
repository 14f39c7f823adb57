#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include "qrt_core/kernel/conv/direct_convolution_cores.h"
#include "qrt_core/kernel/conv/window_dots_internal.h"
#include "qrt_core/kernel/conv/window_planes_internal.h"
#include "qrt_core/kernel/conv/window_tiles_internal.h"

namespace marlo::kernel::conv {
namespace {

constexpr size_t kColumns = 8;

// Copies what the windows of `pixels` neighbouring outputs see, one pixel a lane; lanes behind them
// become zero.
void gather_columns(const ConvTask& task, size_t first, size_t pixels, float* columns) noexcept {
  const size_t plane = size_t{task.in_height} * task.in_width;
  const float* windows[kColumns];
  for (size_t i = 0; i < kColumns; ++i) {
    const size_t pixel = first + (i < pixels ? i : 0);
    const size_t y = pixel / task.out_width * task.params.stride_y;
    const size_t x = pixel % task.out_width * task.params.stride_x;
    windows[i] = task.input + y * task.in_width + x;
  }
  for (size_t c = 0; c < task.in_blocks; ++c) {
    for (size_t ky = 0; ky < task.params.kernel_y; ++ky) {
      const size_t at = c * plane + ky * task.in_width;
      for (size_t kx = 0; kx < task.params.kernel_x; ++kx, columns += kColumns) {
        for (size_t i = 0; i < kColumns; ++i) columns[i] = windows[i][at + kx];
      }
    }
  }
}

// One panel of rows by eight columns. `rows` are interleaved, step by step.
template <size_t kRows>
void multiply_panel(const ConvTask& task, const float* rows, size_t first_row, const float* columns,
                    size_t depth, size_t first, size_t pixels) noexcept {
  __m256 sums[kRows];
  unrolled<kRows>(QRT_UNROLLED(r) {
    sums[r] =
        task.bias == nullptr ? AvxVector::zero() : AvxVector::splat(task.bias + first_row + r);
  });
  for (size_t k = 0; k < depth; ++k) {
    const __m256 column = AvxVector::load(columns + k * kColumns);
    unrolled<kRows>(QRT_UNROLLED(r) {
      sums[r] = AvxVector::plus_product(sums[r], AvxVector::splat(rows + k * kRows + r), column);
    });
  }
  const size_t plane = size_t{task.out_height} * task.out_width;
  unrolled<kRows>(QRT_UNROLLED(r) {
    float* output = task.output + (first_row + r) * plane + first;
    if (pixels == kColumns) {
      AvxVector::store(output, sums[r]);
    } else {
      float lanes[kColumns];
      AvxVector::store(lanes, sums[r]);
      for (size_t i = 0; i < pixels; ++i) output[i] = lanes[i];
    }
  });
}

}  // namespace

void window_columns_avx(const ConvTask& task, float* columns) noexcept {
  const size_t depth = size_t{task.in_blocks} * task.params.kernel_y * task.params.kernel_x;
  const size_t count = size_t{task.out_height} * task.out_width;
  // Several groups of columns at a time, so that a row of the output is written by whole lines.
  for (size_t first = 0; first < count; first += kWindowColumns) {
    const size_t last = smaller_of(count, first + kWindowColumns);
    for (size_t at = first; at < last; at += kColumns) {
      gather_columns(task, at, smaller_of(last - at, kColumns), columns + (at - first) * depth);
    }
    const auto multiply = [&](auto rows, const float* panel, size_t row) {
      for (size_t at = first; at < last; at += kColumns) {
        multiply_panel<decltype(rows)::value>(task, panel, row, columns + (at - first) * depth,
                                              depth, at, smaller_of(last - at, kColumns));
      }
    };
    const float* panel = task.weight;
    size_t row = 0;
    for (; row + 8 <= task.out_blocks; row += 8, panel += 8 * depth) {
      multiply(Count<8>(), panel, row);
    }
    for (; row + 4 <= task.out_blocks; row += 4, panel += 4 * depth) {
      multiply(Count<4>(), panel, row);
    }
    for (; row < task.out_blocks; ++row, panel += depth) multiply(Count<1>(), panel, row);
  }
}

void window_chw_avx(const ConvTask& task) noexcept {
  WindowPlanes<AvxVector, EachPixel<AvxVector>>(task).run();
}

void window_c8_avx(const ConvTask& task) noexcept { WindowTiles<AvxVector, 8, 8, 2>(task).run(); }

void window_chw_to_c8_avx(const ConvTask& task) noexcept {
  WindowTiles<AvxVector, 1, 8, 2>(task).run();
}

void window_c8_to_chw_avx(const ConvTask& task) noexcept {
  constexpr size_t kBlock = 8;
  const size_t taps = size_t{task.params.kernel_y} * task.params.kernel_x;
  const size_t out_step = task.in_blocks * taps * kBlock;
  const WindowDots<AvxVector, kBlock, 1, 8, PixelsIntoPlanes> dots(
      task, task.out_height & ~size_t{1}, task.out_width & ~size_t{1});
  for (size_t channel = 0; channel < task.out_blocks; ++channel) {
    dots.run(channel, task.weight + channel * out_step, out_step, kBlock);
  }
}

}  // namespace marlo::kernel::conv
