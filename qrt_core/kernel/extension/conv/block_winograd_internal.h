#pragma once

#include "qrt_core/kernel/extension/conv/block_channels_internal.h"
#include "qrt_core/kernel/extension/conv/block_winograd_cores.h"
#include "qrt_core/kernel/extension/conv/epilogue_internal.h"

// 3 x 3 convolutions in C8HW8 by minimal filtering, F(m x m, 3 x 3): A. Lavin and S. Gray, "Fast
// Algorithms for Convolutional Neural Networks", 2016; the filtering is S. Winograd's. Tiles of inputs
// are transformed by B on both sides, multiplied with transformed filters, one product of matrices for
// each of their elements, and the products transformed by A. Internal to the file that includes it.

namespace marlo::kernel::conv {
namespace {

/// The matrices of F(4 x 4, 3 x 3), for the points 0, 5/8, -5/8, 3/2, -3/2 and infinity. Rows 1 and 2 of B,
/// and 3 and 4, differ in the signs of the odd columns; columns of A do so in the signs of the odd rows.
/// Every factor is exact. On numbers as networks have them the sums are half as far off as with 1 and 2
/// in the place of 5/8 and 3/2, whose magnitudes differ more (why: B. Barabasz et al., "Error Analysis
/// and Improving the Accuracy of Winograd Convolution for Deep Neural Networks", 2020).
struct Filtering4 {
  static constexpr size_t kOut = 4;
  static constexpr size_t kIn = 6;
  static constexpr float kInput[kIn][kIn] = {{225.0f / 256, 0, -169.0f / 64, 0, 1, 0},
                                             {0, -45.0f / 32, -9.0f / 4, 5.0f / 8, 1, 0},
                                             {0, 45.0f / 32, -9.0f / 4, -5.0f / 8, 1, 0},
                                             {0, -75.0f / 128, -25.0f / 64, 3.0f / 2, 1, 0},
                                             {0, 75.0f / 128, -25.0f / 64, -3.0f / 2, 1, 0},
                                             {0, 225.0f / 256, 0, -169.0f / 64, 0, 1}};
  static constexpr float kOutput[kOut][kIn] = {
      {1, 1, 1, 1, 1, 0},
      {0, 5.0f / 8, -5.0f / 8, 3.0f / 2, -3.0f / 2, 0},
      {0, 25.0f / 64, 25.0f / 64, 9.0f / 4, 9.0f / 4, 0},
      {0, 125.0f / 512, -125.0f / 512, 27.0f / 8, -27.0f / 8, 1}};
};

/// The same of F(6 x 6, 3 x 3), for the points 0, 1, -1, 2, -2, 1/2, -1/2 and infinity; none was found
/// that are more accurate.
struct Filtering6 {
  static constexpr size_t kOut = 6;
  static constexpr size_t kIn = 8;
  static constexpr float kInput[kIn][kIn] = {
      {1, 0, -5.25f, 0, 5.25f, 0, -1, 0},        {0, 1, 1, -4.25f, -4.25f, 1, 1, 0},
      {0, -1, 1, 4.25f, -4.25f, -1, 1, 0},       {0, 0.5f, 0.25f, -2.5f, -1.25f, 2, 1, 0},
      {0, -0.5f, 0.25f, 2.5f, -1.25f, -2, 1, 0}, {0, 2, 4, -2.5f, -5, 0.5f, 1, 0},
      {0, -2, 4, 2.5f, -5, -0.5f, 1, 0},         {0, -1, 0, 5.25f, 0, -5.25f, 0, 1}};
  static constexpr float kOutput[kOut][kIn] = {{1, 1, 1, 1, 1, 1, 1, 0},
                                               {0, 1, -1, 2, -2, 0.5f, -0.5f, 0},
                                               {0, 1, 1, 4, 4, 0.25f, 0.25f, 0},
                                               {0, 1, -1, 8, -8, 0.125f, -0.125f, 0},
                                               {0, 1, 1, 16, 16, 0.0625f, 0.0625f, 0},
                                               {0, 1, -1, 32, -32, 0.03125f, -0.03125f, 1}};
};

/// A sum of products with constants, of which those with 0 are left out.
template <typename V>
class ConstantSum {
  using Register = typename V::Register;

 public:
  [[gnu::always_inline]] void add(float factor, Register x) noexcept {
    if (factor == 0.0f) return;
    if (is_empty_) {
      sum_ = factor == 1.0f ? x : V::times(x, V::splat(factor));
    } else if (factor == 1.0f) {
      sum_ = V::plus(sum_, x);
    } else if (factor == -1.0f) {
      sum_ = V::minus(sum_, x);
    } else {
      sum_ = V::plus_product(sum_, x, V::splat(factor));
    }
    is_empty_ = false;
  }
  [[gnu::always_inline]] Register value() const noexcept { return sum_; }

 private:
  Register sum_ = V::zero();
  bool is_empty_ = true;
};

/// One column or row of a tile of inputs, transformed.
template <typename F, typename V>
[[gnu::always_inline]] inline void transform_inputs(const typename V::Register (&x)[F::kIn],
                                                    typename V::Register (&y)[F::kIn]) noexcept {
  const auto row = [&](size_t i) __attribute__((always_inline)) {
    ConstantSum<V> sum;
    unrolled<F::kIn>(QRT_UNROLLED(j) { sum.add(F::kInput[i][j], x[j]); });
    return sum.value();
  };
  y[0] = row(0);
  y[F::kIn - 1] = row(F::kIn - 1);
  unrolled<F::kIn / 2 - 1>(QRT_UNROLLED(pair) {
    const size_t i = 2 * pair + 1;
    ConstantSum<V> even, odd;
    unrolled<F::kIn>(QRT_UNROLLED(j) { (j % 2 == 0 ? even : odd).add(F::kInput[i][j], x[j]); });
    y[i] = V::plus(even.value(), odd.value());
    y[i + 1] = V::minus(even.value(), odd.value());
  });
}

/// One column or row of products, transformed into outputs.
template <typename F, typename V>
[[gnu::always_inline]] inline void transform_outputs(const typename V::Register (&x)[F::kIn],
                                                     typename V::Register (&y)[F::kOut]) noexcept {
  typename V::Register sums[F::kIn / 2], differences[F::kIn / 2];
  unrolled<F::kIn / 2 - 1>(QRT_UNROLLED(pair) {
    sums[pair] = V::plus(x[2 * pair + 1], x[2 * pair + 2]);
    differences[pair] = V::minus(x[2 * pair + 1], x[2 * pair + 2]);
  });
  unrolled<F::kOut>(QRT_UNROLLED(i) {
    ConstantSum<V> sum;
    sum.add(F::kOutput[i][0], x[0]);
    unrolled<F::kIn / 2 - 1>(QRT_UNROLLED(pair) {
      sum.add(F::kOutput[i][2 * pair + 1], i % 2 == 0 ? sums[pair] : differences[pair]);
    });
    sum.add(F::kOutput[i][F::kIn - 1], x[F::kIn - 1]);
    y[i] = sum.value();
  });
}

/// A convolution by filtering `F`, whose transforms take vectors `Wide` of channels, and one block of 8
/// where no more is left.
template <typename F, typename Wide>
class Winograd {
  static constexpr size_t kBlock = kChannelBlock;
  static constexpr size_t kIn = F::kIn;
  static constexpr size_t kOut = F::kOut;
  static constexpr size_t kElements = kIn * kIn;
  static constexpr size_t kWideBlocks = Wide::kLanes / kBlock;

 public:
  Winograd(const ConvTask& task, const matrix::ProductCores& cores,
           const WinogradScratch& scratch) noexcept
      : task_(task),
        cores_(cores),
        scratch_(scratch),
        across_((task.out_width + kOut - 1) / kOut),
        tiles_(across_ * ((task.out_height + kOut - 1) / kOut)),
        ending_(task.epilogue) {}

  void run() noexcept {
    for_each_part(tiles_, scratch_.tiles, [&](size_t first, size_t count) {
      if (count == 0) return;
      first_ = first;
      count_ = count;
      for_each_line(task_.in_blocks,
                    [&](size_t block, size_t blocks) { transform_all_inputs(block, blocks); });
      multiply_all();
    });
  }

 private:
  template <typename V>
  struct Of {
    using Vector = V;
  };

  static constexpr int64_t signed_of(size_t number) { return static_cast<int64_t>(number); }

  /// Floats from one element of the tiles at hand to the next one.
  size_t element_step(size_t row) const noexcept { return count_ * row + scratch_.gap; }

  /// Calls `run(block, blocks)` for what lies in a line of the cache where tiles are rows: these are
  /// written and read as a whole.
  template <typename Run>
  static void for_each_line(size_t blocks, Run run) noexcept {
    constexpr size_t kLineBlocks = 2;
    for (size_t block = 0; block < blocks; block += kLineBlocks) {
      run(block, smaller_of(kLineBlocks, blocks - block));
    }
  }

  /// Calls `run(Of<Vector>(), block)` for vectors that together take all blocks.
  template <typename Run>
  [[gnu::always_inline]] static void for_each_vector(size_t blocks, Run run) noexcept {
    size_t block = 0;
    for (; block + kWideBlocks <= blocks; block += kWideBlocks) run(Of<Wide>(), block);
    for (; block < blocks; ++block) run(Of<FusedVector>(), block);
  }

  /// All output channels, a panel of them at a time.
  void multiply_all() noexcept {
    const size_t channels = task_.out_blocks * kBlock;
    const float* weight = task_.weight;
    matrix::ProductTask product;
    product.a_row = scratch_.row;
    product.rows = count_;
    product.depth = task_.in_blocks * kBlock;
    for (size_t channel = 0; channel < channels; channel += cores_.panel) {
      product.columns = smaller_of(cores_.panel, channels - channel);
      product.c_row = product.columns;
      const size_t vectors = parts_of(product.columns, cores_.lanes);
      const size_t weights = product.depth * vectors * cores_.lanes;
      const size_t step = element_step(product.columns);
      for (size_t element = 0; element < kElements; ++element, weight += weights) {
        product.a = scratch_.inputs + element * element_step(scratch_.row);
        product.packed = weight;
        product.c = scratch_.products + element * step;
        product.goes_on = element + 1 < kElements || channel + product.columns < channels;
        cores_.multiply(product);
      }
      for_each_line(product.columns / kBlock, [&](size_t block, size_t blocks) {
        transform_products(channel / kBlock + block, blocks, scratch_.products + block * kBlock,
                           product.columns, step);
      });
    }
  }

  void transform_all_inputs(size_t first_block, size_t blocks) const noexcept {
    const size_t plane = size_t{task_.in_height} * task_.in_width * kBlock;
    const float* input = task_.input + first_block * plane;
    float* target = scratch_.inputs + first_block * kBlock;
    for (size_t i = 0; i < count_; ++i, target += scratch_.row) {
      for_each_vector(blocks, [&](auto vector, size_t block) {
        transform_tile<typename decltype(vector)::Vector>(input + block * plane, plane, first_ + i,
                                                          target + block * kBlock);
      });
    }
  }

  template <typename V>
  void transform_tile(const float* input, size_t plane, size_t tile, float* target) const noexcept {
    const int64_t height = task_.in_height;
    const int64_t width = task_.in_width;
    const int64_t top = signed_of(tile / across_ * kOut) - signed_of(task_.params.padding_t);
    const int64_t left = signed_of(tile % across_ * kOut) - signed_of(task_.params.padding_l);
    const bool is_inside =
        top >= 0 && left >= 0 && top + signed_of(kIn) <= height && left + signed_of(kIn) <= width;
    if (is_inside) {
      transform_window<V>(input + (top * width + left) * signed_of(kBlock), task_.in_width * kBlock,
                          plane, target);
      return;
    }
    constexpr size_t kWindow = kElements * kBlock;
    alignas(64) float window[kWindow * V::kLanes / kBlock];
    for (size_t y = 0; y < kIn; ++y) {
      for (size_t x = 0; x < kIn; ++x) {
        const int64_t row = top + signed_of(y);
        const int64_t column = left + signed_of(x);
        const bool has_pixel = row >= 0 && row < height && column >= 0 && column < width;
        const float* from =
            has_pixel ? input + (row * width + column) * signed_of(kBlock) : kNoPixel;
        store_channels<V>(window + (y * kIn + x) * kBlock, kWindow,
                          load_channels<V>(from, has_pixel ? plane : 0));
      }
    }
    transform_window<V>(window, kIn * kBlock, kWindow, target);
  }

  template <typename V>
  [[gnu::noinline]] void transform_window(const float* window, size_t row_step, size_t plane,
                                          float* target) const noexcept {
    constexpr size_t kLanes = V::kLanes;
    alignas(64) float rows[kElements * kLanes];
    for (size_t x = 0; x < kIn; ++x) {
      typename V::Register column[kIn], transformed[kIn];
      unrolled<kIn>(QRT_UNROLLED(y) {
        column[y] = load_channels<V>(window + y * row_step + x * kBlock, plane);
      });
      transform_inputs<F, V>(column, transformed);
      unrolled<kIn>(QRT_UNROLLED(y) { V::store(rows + (y * kIn + x) * kLanes, transformed[y]); });
    }
    const size_t element = element_step(scratch_.row);
    for (size_t y = 0; y < kIn; ++y) {
      typename V::Register row[kIn], transformed[kIn];
      unrolled<kIn>(QRT_UNROLLED(x) { row[x] = V::load(rows + (y * kIn + x) * kLanes); });
      transform_inputs<F, V>(row, transformed);
      unrolled<kIn>(
          QRT_UNROLLED(x) { V::store(target + (y * kIn + x) * element, transformed[x]); });
    }
  }

  // The products of output channels, `row` floats from tile to tile and `step` from element to element.
  void transform_products(size_t first_block, size_t blocks, const float* products, size_t row,
                          size_t step) const noexcept {
    const size_t plane = size_t{task_.out_height} * task_.out_width * kBlock;
    float* output = task_.output + first_block * plane;
    const float* bias = task_.bias == nullptr ? nullptr : task_.bias + first_block * kBlock;
    for (size_t i = 0; i < count_; ++i, products += row) {
      for_each_vector(blocks, [&](auto vector, size_t block) {
        const size_t channel = block * kBlock;
        finish_tile<typename decltype(vector)::Vector>(first_ + i, products + channel, step,
                                                       bias == nullptr ? nullptr : bias + channel,
                                                       output + block * plane, plane);
      });
    }
  }

  template <typename V>
  void finish_tile(size_t tile, const float* products, size_t step, const float* bias,
                   float* output, size_t plane) const noexcept {
    const auto begin = bias == nullptr ? V::zero() : V::load(bias);
    const size_t width = task_.out_width;
    const size_t y = tile / across_ * kOut;
    const size_t x = tile % across_ * kOut;
    float* to = output + (y * width + x) * kBlock;
    const size_t rows = smaller_of(kOut, task_.out_height - y);
    const size_t columns = smaller_of(kOut, width - x);
    if (rows == kOut && columns == kOut) {
      return transform_product<V>(products, step, begin, to, width * kBlock, plane);
    }
    constexpr size_t kTile = kOut * kOut * kBlock;
    alignas(64) float outputs[kTile * V::kLanes / kBlock];
    transform_product<V>(products, step, begin, outputs, kOut * kBlock, kTile);
    for (size_t line = 0; line < rows; ++line) {
      for (size_t at = 0; at < columns * kBlock; at += kBlock) {
        store_channels<V>(to + line * width * kBlock + at, plane,
                          load_channels<V>(outputs + line * kOut * kBlock + at, kTile));
      }
    }
  }

  template <typename V>
  [[gnu::noinline]] void transform_product(const float* product, size_t step,
                                           typename V::Register bias, float* output,
                                           size_t row_step, size_t plane) const noexcept {
    constexpr size_t kLanes = V::kLanes;
    alignas(64) float rows[kOut * kIn * kLanes];
    for (size_t x = 0; x < kIn; ++x) {
      typename V::Register column[kIn], transformed[kOut];
      unrolled<kIn>(QRT_UNROLLED(y) { column[y] = V::load(product + (y * kIn + x) * step); });
      transform_outputs<F, V>(column, transformed);
      unrolled<kOut>(QRT_UNROLLED(y) { V::store(rows + (y * kIn + x) * kLanes, transformed[y]); });
    }
    for (size_t y = 0; y < kOut; ++y) {
      typename V::Register row[kIn], transformed[kOut];
      unrolled<kIn>(QRT_UNROLLED(x) { row[x] = V::load(rows + (y * kIn + x) * kLanes); });
      transform_outputs<F, V>(row, transformed);
      float* to = output + y * row_step;
      unrolled<kOut>(QRT_UNROLLED(x) {
        store_channels<V>(to + x * kBlock, plane,
                          ending_.template ended<V>(V::plus(transformed[x], bias)));
      });
      for (size_t block = 0; block < kLanes / kBlock; ++block) {
        ending_.stored(to + block * plane, kOut * kBlock);
      }
    }
  }

  const ConvTask& task_;
  const matrix::ProductCores& cores_;
  const WinogradScratch& scratch_;
  size_t across_;
  size_t tiles_;
  Ending ending_;
  size_t first_ = 0;
  size_t count_ = 0;
};

}  // namespace
}  // namespace marlo::kernel::conv
