#pragma once

#include "qrt_core/kernel/extension/conv/block_window_internal.h"

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
class ConstantSum {
  using V = FusedVector;

 public:
  [[gnu::always_inline]] void add(float factor, __m256 x) noexcept {
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
  [[gnu::always_inline]] __m256 value() const noexcept { return sum_; }

 private:
  __m256 sum_ = _mm256_setzero_ps();
  bool is_empty_ = true;
};

/// One column or row of a tile of inputs, transformed.
template <typename F>
[[gnu::always_inline]] inline void transform_inputs(const __m256 (&x)[F::kIn],
                                                    __m256 (&y)[F::kIn]) noexcept {
  const auto row = [&](size_t i) __attribute__((always_inline)) {
    ConstantSum sum;
    unrolled<F::kIn>(QRT_UNROLLED(j) { sum.add(F::kInput[i][j], x[j]); });
    return sum.value();
  };
  y[0] = row(0);
  y[F::kIn - 1] = row(F::kIn - 1);
  unrolled<F::kIn / 2 - 1>(QRT_UNROLLED(pair) {
    const size_t i = 2 * pair + 1;
    ConstantSum even, odd;
    unrolled<F::kIn>(QRT_UNROLLED(j) { (j % 2 == 0 ? even : odd).add(F::kInput[i][j], x[j]); });
    y[i] = _mm256_add_ps(even.value(), odd.value());
    y[i + 1] = _mm256_sub_ps(even.value(), odd.value());
  });
}

/// One column or row of products, transformed into outputs.
template <typename F>
[[gnu::always_inline]] inline void transform_outputs(const __m256 (&x)[F::kIn],
                                                     __m256 (&y)[F::kOut]) noexcept {
  __m256 sums[F::kIn / 2], differences[F::kIn / 2];
  unrolled<F::kIn / 2 - 1>(QRT_UNROLLED(pair) {
    sums[pair] = _mm256_add_ps(x[2 * pair + 1], x[2 * pair + 2]);
    differences[pair] = _mm256_sub_ps(x[2 * pair + 1], x[2 * pair + 2]);
  });
  unrolled<F::kOut>(QRT_UNROLLED(i) {
    ConstantSum sum;
    sum.add(F::kOutput[i][0], x[0]);
    unrolled<F::kIn / 2 - 1>(QRT_UNROLLED(pair) {
      sum.add(F::kOutput[i][2 * pair + 1], i % 2 == 0 ? sums[pair] : differences[pair]);
    });
    sum.add(F::kOutput[i][F::kIn - 1], x[F::kIn - 1]);
    y[i] = sum.value();
  });
}

/// A convolution by filtering `F`, whose filters are packed as [group of channels][element][in block]
/// [8][width of the group].
template <typename F>
class Winograd {
  static constexpr size_t kBlock = kChannelBlock;
  static constexpr size_t kIn = F::kIn;
  static constexpr size_t kOut = F::kOut;
  static constexpr size_t kElements = kIn * kIn;

 public:
  /// @param scratch room for the transformed inputs and products of `most` tiles: so many times the
  ///   input's channels and the widest group, times the elements of a tile
  Winograd(const ConvTask& task, float* scratch, size_t most) noexcept
      : task_(task),
        across_((task.out_width + kOut - 1) / kOut),
        tiles_(across_ * ((task.out_height + kOut - 1) / kOut)),
        most_(most),
        inputs_(scratch),
        products_(scratch + kElements * task.in_blocks * kBlock * most),
        ending_(task.epilogue) {}

  /// @param take calls `group<Vector, kVectors>` of what it is given for all widths in turn
  template <typename Take>
  void run(Take take) noexcept {
    for_each_part(tiles_, most_, [&](size_t first, size_t count) {
      if (count == 0) return;
      first_ = first;
      count_ = count;
      transform_all_inputs();
      weight_ = task_.weight;
      block_ = 0;
      take(*this);
    });
  }

  /// As many groups of `kVectors` vectors of output channels as are left.
  template <typename Vector, size_t kVectors>
  void groups() noexcept {
    constexpr size_t kBlocks = kVectors * Vector::kLanes / kBlock;
    ConvTask product = task_;
    product.params = {};
    Conv2dParams& p = product.params;
    p.kernel_x = p.kernel_y = p.stride_x = p.stride_y = p.dilation_x = p.dilation_y = 1;
    product.in_height = product.out_height = 1;
    product.in_width = product.out_width = static_cast<uint32_t>(count_);
    product.epilogue = Epilogue::none;
    const WindowPlane plane(product);
    const size_t weights = task_.in_blocks * kBlock * kBlocks * kBlock;
    for (; task_.out_blocks - block_ >= kBlocks; block_ += kBlocks) {
      for (size_t element = 0; element < kElements; ++element, weight_ += weights) {
        WindowChannels<Vector, kVectors>(
            plane, inputs_ + element * task_.in_blocks * kBlock * count_, weight_, nullptr,
            products_ + element * kBlocks * kBlock * count_)
            .run({0, 1, 0, count_});
      }
      for (size_t block = 0; block < kBlocks; ++block) {
        transform_products(block_ + block, products_ + block * kBlock * count_,
                           kBlocks * kBlock * count_);
      }
    }
  }

 private:
  static constexpr int64_t signed_of(size_t number) { return static_cast<int64_t>(number); }

  void transform_all_inputs() const noexcept {
    const size_t plane = size_t{task_.in_height} * task_.in_width * kBlock;
    for (size_t block = 0; block < task_.in_blocks; ++block) {
      const float* input = task_.input + block * plane;
      float* target = inputs_ + block * kBlock * count_;
      for (size_t i = 0; i < count_; ++i) transform_tile(input, first_ + i, target + i * kBlock);
    }
  }

  void transform_tile(const float* input, size_t tile, float* target) const noexcept {
    const int64_t height = task_.in_height;
    const int64_t width = task_.in_width;
    const int64_t top = signed_of(tile / across_ * kOut) - signed_of(task_.params.padding_t);
    const int64_t left = signed_of(tile % across_ * kOut) - signed_of(task_.params.padding_l);
    const bool is_inside =
        top >= 0 && left >= 0 && top + signed_of(kIn) <= height && left + signed_of(kIn) <= width;
    if (is_inside) {
      transform_window(input + (top * width + left) * signed_of(kBlock), task_.in_width * kBlock,
                       target);
      return;
    }
    alignas(32) float window[kElements * kBlock];
    for (size_t y = 0; y < kIn; ++y) {
      for (size_t x = 0; x < kIn; ++x) {
        const int64_t row = top + signed_of(y);
        const int64_t column = left + signed_of(x);
        const bool has_pixel = row >= 0 && row < height && column >= 0 && column < width;
        const float* from =
            has_pixel ? input + (row * width + column) * signed_of(kBlock) : kNoPixel;
        FusedVector::store(window + (y * kIn + x) * kBlock, FusedVector::load(from));
      }
    }
    transform_window(window, kIn * kBlock, target);
  }

  [[gnu::noinline]] void transform_window(const float* window, size_t row_step,
                                          float* target) const noexcept {
    alignas(32) float rows[kElements * kBlock];
    for (size_t x = 0; x < kIn; ++x) {
      __m256 column[kIn], transformed[kIn];
      unrolled<kIn>(
          QRT_UNROLLED(y) { column[y] = FusedVector::load(window + y * row_step + x * kBlock); });
      transform_inputs<F>(column, transformed);
      unrolled<kIn>(
          QRT_UNROLLED(y) { FusedVector::store(rows + (y * kIn + x) * kBlock, transformed[y]); });
    }
    const size_t element = task_.in_blocks * kBlock * count_;
    for (size_t y = 0; y < kIn; ++y) {
      __m256 row[kIn], transformed[kIn];
      unrolled<kIn>(QRT_UNROLLED(x) { row[x] = FusedVector::load(rows + (y * kIn + x) * kBlock); });
      transform_inputs<F>(row, transformed);
      unrolled<kIn>(QRT_UNROLLED(x) {
        FusedVector::store(target + (y * kIn + x) * element, transformed[x]);
      });
    }
  }

  // The products of one output block, whose elements are `step` floats apart.
  void transform_products(size_t block, const float* products, size_t step) const noexcept {
    const __m256 bias = task_.bias == nullptr ? FusedVector::zero()
                                              : FusedVector::load(task_.bias + block * kBlock);
    const size_t height = task_.out_height;
    const size_t width = task_.out_width;
    float* output = task_.output + block * height * width * kBlock;
    for (size_t i = 0; i < count_; ++i) {
      const size_t y = (first_ + i) / across_ * kOut;
      const size_t x = (first_ + i) % across_ * kOut;
      float* to = output + (y * width + x) * kBlock;
      const size_t rows = smaller_of(kOut, height - y);
      const size_t columns = smaller_of(kOut, width - x);
      if (rows == kOut && columns == kOut) {
        transform_product(products + i * kBlock, step, bias, to, width * kBlock);
        continue;
      }
      alignas(32) float tile[kOut * kOut * kBlock];
      transform_product(products + i * kBlock, step, bias, tile, kOut * kBlock);
      for (size_t row = 0; row < rows; ++row) {
        for (size_t at = 0; at < columns * kBlock; at += kBlock) {
          FusedVector::store(to + row * width * kBlock + at,
                             FusedVector::load(tile + row * kOut * kBlock + at));
        }
      }
    }
  }

  [[gnu::noinline]] void transform_product(const float* product, size_t step, __m256 bias,
                                           float* output, size_t row_step) const noexcept {
    alignas(32) float rows[kOut * kIn * kBlock];
    for (size_t x = 0; x < kIn; ++x) {
      __m256 column[kIn], transformed[kOut];
      unrolled<kIn>(
          QRT_UNROLLED(y) { column[y] = FusedVector::load(product + (y * kIn + x) * step); });
      transform_outputs<F>(column, transformed);
      unrolled<kOut>(
          QRT_UNROLLED(y) { FusedVector::store(rows + (y * kIn + x) * kBlock, transformed[y]); });
    }
    for (size_t y = 0; y < kOut; ++y) {
      __m256 row[kIn], transformed[kOut];
      unrolled<kIn>(QRT_UNROLLED(x) { row[x] = FusedVector::load(rows + (y * kIn + x) * kBlock); });
      transform_outputs<F>(row, transformed);
      float* to = output + y * row_step;
      unrolled<kOut>(QRT_UNROLLED(x) {
        const __m256 sum = FusedVector::plus(transformed[x], bias);
        FusedVector::store(to + x * kBlock, ending_.template ended<FusedVector>(sum));
      });
      ending_.stored(to, kOut * kBlock);
    }
  }

  const ConvTask& task_;
  size_t across_;
  size_t tiles_;
  size_t most_;
  float* inputs_;
  float* products_;
  Ending ending_;
  size_t first_ = 0;
  size_t count_ = 0;
  const float* weight_ = nullptr;
  size_t block_ = 0;
};

}  // namespace
}  // namespace marlo::kernel::conv
