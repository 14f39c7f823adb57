#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include "qrt_core/kernel/conv/windows/direct_convolution_cores.h"
#include "qrt_core/kernel/conv/windows/window_dots_internal.h"
#include "qrt_core/kernel/conv/windows/window_planes_internal.h"
#include "qrt_core/kernel/conv/windows/window_tiles_internal.h"

namespace marlo::kernel::conv {
namespace {

constexpr size_t kColumns = 8;

// Every other one of 15 floats.
__m256 load_even(const float* from) noexcept {
  const auto half = [](const float* first) {
    const __m128 low = _mm_loadu_ps(first);
    return _mm_shuffle_ps(low, _mm_loadu_ps(first + 3), _MM_SHUFFLE(3, 1, 2, 0));
  };
  return _mm256_insertf128_ps(_mm256_castps128_ps256(half(from)), half(from + 8), 1);
}

// Copies what the windows of eight neighbours in a row see, one pixel a lane.
void gather_neighbours(const ConvTask& task, const float* window, float* columns) noexcept {
  const size_t plane = size_t{task.in_height} * task.in_width;
  for (size_t c = 0; c < task.in_blocks; ++c) {
    for (size_t ky = 0; ky < task.params.kernel_y; ++ky) {
      const float* row = window + c * plane + ky * task.in_width;
      for (size_t kx = 0; kx < task.params.kernel_x; ++kx, columns += kColumns) {
        AvxVector::store(columns, load_even(row + kx));
      }
    }
  }
}

// The same for any `pixels`, up to eight; lanes behind them are those of the first.
void gather_columns(const ConvTask& task, size_t first, size_t pixels, float* columns) noexcept {
  const size_t plane = size_t{task.in_height} * task.in_width;
  const float* windows[kColumns];
  for (size_t i = 0; i < kColumns; ++i) {
    const size_t pixel = first + (i < pixels ? i : 0);
    const size_t y = pixel / task.out_width * task.params.stride_y;
    const size_t x = pixel % task.out_width * task.params.stride_x;
    windows[i] = task.input + y * task.in_width + x;
  }
  const bool are_neighbours = first % task.out_width + kColumns <= task.out_width;
  if (pixels == kColumns && are_neighbours && task.params.stride_x == 2) {
    return gather_neighbours(task, windows[0], columns);
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

void store_pixels(float* to, size_t pixels, __m256 x) noexcept {
  if (pixels == kColumns) return AvxVector::store(to, x);
  float lanes[kColumns];
  AvxVector::store(lanes, x);
  for (size_t i = 0; i < pixels; ++i) to[i] = lanes[i];
}

// Rows from `first_row` of the output by one or two groups of eight columns. `rows` are interleaved
// step by step, `kPanel` of them. `pixels` are those of the last group.
template <size_t kPanel, size_t kRows, size_t kGroups>
void multiply_tile(const ConvTask& task, const float* rows, size_t first_row, const float* columns,
                   size_t depth, size_t first, size_t pixels) noexcept {
  __m256 sums[kRows][kGroups];
  unrolled<kRows>(QRT_UNROLLED(r) {
    const __m256 start =
        task.bias == nullptr ? AvxVector::zero() : AvxVector::splat(task.bias + first_row + r);
    unrolled<kGroups>(QRT_UNROLLED(g) { sums[r][g] = start; });
  });
  for (size_t k = 0; k < depth; ++k) {
    __m256 column[kGroups];
    unrolled<kGroups>(
        QRT_UNROLLED(g) { column[g] = AvxVector::load(columns + (g * depth + k) * kColumns); });
    unrolled<kRows>(QRT_UNROLLED(r) {
      const __m256 weight = AvxVector::splat(rows + k * kPanel + r);
      unrolled<kGroups>(
          QRT_UNROLLED(g) { sums[r][g] = AvxVector::plus_product(sums[r][g], weight, column[g]); });
    });
  }
  const size_t plane = size_t{task.out_height} * task.out_width;
  unrolled<kRows>(QRT_UNROLLED(r) {
    float* output = task.output + (first_row + r) * plane + first;
    unrolled<kGroups>(QRT_UNROLLED(g) {
      store_pixels(output + g * kColumns, g + 1 < kGroups ? kColumns : pixels, sums[r][g]);
    });
  });
}

// One panel of rows by the pixels from `first` to `last`.
template <size_t kPanel>
void multiply_panel(const ConvTask& task, const float* rows, size_t first_row, const float* columns,
                    size_t depth, size_t first, size_t last) noexcept {
  constexpr size_t kRows = kPanel < 4 ? kPanel : 4;
  for (size_t row = 0; row < kPanel; row += kRows) {
    const float* group = columns;
    size_t at = first;
    for (; at + kColumns < last; at += 2 * kColumns, group += 2 * kColumns * depth) {
      multiply_tile<kPanel, kRows, 2>(task, rows + row, first_row + row, group, depth, at,
                                      smaller_of(last - at - kColumns, kColumns));
    }
    if (at < last) {
      multiply_tile<kPanel, kRows, 1>(task, rows + row, first_row + row, group, depth, at,
                                      last - at);
    }
  }
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
    const float* panel = task.weight;
    size_t row = 0;
    for (; row + 8 <= task.out_blocks; row += 8, panel += 8 * depth) {
      multiply_panel<8>(task, panel, row, columns, depth, first, last);
    }
    for (; row + 4 <= task.out_blocks; row += 4, panel += 4 * depth) {
      multiply_panel<4>(task, panel, row, columns, depth, first, last);
    }
    for (; row < task.out_blocks; ++row, panel += depth) {
      multiply_panel<1>(task, panel, row, columns, depth, first, last);
    }
  }
}

void window_chw_avx(const ConvTask& task) noexcept {
  WindowPlanes<AvxVector, EachPixel<AvxVector>>(task).run();
}

void window_c8_avx(const ConvTask& task) noexcept { WindowTiles<AvxVector, 8, 8, 2>(task).run(); }

void window_chw_to_c8_avx(const ConvTask& task) noexcept {
  WindowTiles<AvxVector, 1, 8, 2, Sweep::depth, true>(task).run();
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
