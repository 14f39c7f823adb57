#pragma once

#include <cstdint>

#include "qrt_core/kernel/conv/steps/conv_params.h"
#include "qrt_core/kernel/vectors_internal.h"

// Depthwise convolutions over blocks, a lane for each channel. Internal to the file that includes
// it.

namespace marlo::kernel::conv {
namespace {

/// Neighbouring pixels of which each fills a vector.
template <typename Vector, size_t kStride>
struct WholePixels {
  static constexpr size_t kBlock = Vector::kLanes;
  static constexpr size_t kPixels = 1;
  static typename Vector::Register load(const float* from) noexcept { return Vector::load(from); }
  static typename Vector::Register weight(const float* from) noexcept { return Vector::load(from); }

  /// The inputs from which one tap of the vector is loaded, at `column` of what `at` finds.
  template <typename At>
  static typename Vector::Register load_each(int64_t column, At at) noexcept {
    return Vector::load(at(column));
  }
};

/// Pairs of pixels that share a vector.
template <typename Vector, size_t kStride>
struct PairedPixels {
  static constexpr size_t kBlock = Vector::kLanes / 2;
  static constexpr size_t kPixels = 2;
  static typename Vector::Register load(const float* from) noexcept {
    if constexpr (kStride == 1) return Vector::load(from);
    return Vector::load_halves(from, from + kStride * kBlock);
  }
  static typename Vector::Register weight(const float* from) noexcept {
    return Vector::template repeat<kBlock>(from);
  }

  template <typename At>
  static typename Vector::Register load_each(int64_t column, At at) noexcept {
    return Vector::load_halves(at(column), at(column + static_cast<int64_t>(kStride)));
  }
};

/// How kernels without an epilogue end.
struct NoEnding {
  explicit NoEnding(Epilogue) noexcept {}
  template <typename Vector>
  [[gnu::always_inline]] typename Vector::Register ended(
      typename Vector::Register x) const noexcept {
    return x;
  }
  void stored(float*, size_t) const noexcept {}
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
/// at a time; each sum takes the window's rows and columns in order. An input is loaded once for
/// all sums of its row; those in the margins are read from `zeros`, which holds a row of the input.
/// `Ending` says what becomes of a sum before and after it is stored.
template <typename Vector, template <typename, size_t> typename PixelsOf, size_t kSize,
          size_t kStride, size_t kMost, typename Ending = NoEnding>
class DepthwiseTiles {
  using Register = typename Vector::Register;
  using Pixels = PixelsOf<Vector, kStride>;
  static constexpr size_t kBlock = Pixels::kBlock;
  static constexpr size_t kTaps = kSize * kSize;
  static constexpr size_t kStep = kStride * Pixels::kPixels;  // columns between vectors
  static constexpr size_t kMargin = kSize / 2;  // columns of a margin that tiles reach into
  // Whether planes as wide as a tile are code of their own: what small windows gain by a loop without a choice.
  static constexpr bool kHasNarrowPlanes = kSize == 3;
#ifdef QRT_SMALL_TILES
  static constexpr size_t kTile = kMost < 4 ? kMost : 4;
#else
  static constexpr size_t kTile = kMost;
#endif

 public:
  DepthwiseTiles(const ConvTask& task, const float* zeros, const DepthwiseArea& area) noexcept
      : task_(task),
        zeros_(zeros),
        area_(area),
        ending_(task.epilogue),
        vectors_(area.columns / Pixels::kPixels) {
    const size_t left = task.params.padding_l;
    const size_t beyond = left < kMargin ? 0 : left - kMargin;
    const size_t first = (beyond + kStride - 1) / kStride;
    const size_t behind = first > area.first_column ? first - area.first_column : 0;
    inner_begin_ = smaller_of(vectors_, (behind + Pixels::kPixels - 1) / Pixels::kPixels);
    const size_t width = left + task.in_width + kMargin;
    const size_t inner = width < kSize ? 0 : (width - kSize) / kStride + 1;
    const size_t before = inner > area.first_column ? inner - area.first_column : 0;
    inner_end_ = smaller_of(vectors_, before / Pixels::kPixels);
    if (inner_end_ < inner_begin_) inner_end_ = inner_begin_;
    const size_t inside = inner_end_ - inner_begin_;
    const size_t tiles = parts_of(inside, kTile);
    if (tiles == 0) return;
    tile_ = inside / tiles;
    larger_end_ = inner_begin_ + inside % tiles * (tile_ + 1);
  }

  void run() const noexcept {
    const Conv2dParams& p = task_.params;
    const size_t filters = size_t{p.in_channels_per_group} * p.out_channels_per_group;
    if (filters == 0) return;  // more groups than channels: there are no weights
    const size_t in_plane = size_t{task_.in_height} * task_.in_width * kBlock;
    const size_t out_plane = size_t{task_.out_height} * task_.out_width * kBlock;
    for (size_t block = 0; block < p.groups / kBlock; ++block) {
      const float* weights = task_.weight + block * filters * kTaps * kBlock;
      const float* bias = task_.bias == nullptr ? nullptr : task_.bias + block * kBlock;
      const float* input = task_.input + block * in_plane;
      float* output = task_.output + block * out_plane + area_.first_column * kBlock;
      if (kHasNarrowPlanes && vectors_ != 0 && inner_end_ - inner_begin_ == vectors_ &&
          vectors_ <= kTile) {
        with_static<kTile>(vectors_, [&](auto kCount) {
          run_narrow_plane<kCount.value>(input, weights, bias, output);
        });
        continue;
      }
      for (size_t y = area_.first_row; y < area_.first_row + area_.rows; ++y) {
        run_row({rows_from(input, y), weights, bias}, output + y * task_.out_width * kBlock);
      }
    }
  }

 private:
  // The rows of the input under a window.
  struct Rows {
    const float* row[kSize];
  };

  struct Source {
    Rows rows;
    const float* weights;
    const float* bias;
  };

  Rows rows_from(const float* input, size_t y) const noexcept {
    Rows rows;
    for (size_t i = 0; i < kSize; ++i) {
      const size_t padded = y * kStride + i;
      const bool inside =
          padded >= task_.params.padding_t && padded - task_.params.padding_t < task_.in_height;
      rows.row[i] =
          inside ? input + (padded - task_.params.padding_t) * task_.in_width * kBlock : zeros_;
    }
    return rows;
  }

  void run_row(const Source& source, float* output) const noexcept {
    constexpr size_t kOutStep = Pixels::kPixels * kBlock;
    size_t i = 0;
    for (; i < inner_begin_; ++i) run_at_edge(source, i, output + i * kOutStep);
    while (i < inner_end_) {
      const size_t vectors = i < larger_end_ ? tile_ + 1 : tile_;
      with_static<kTile>(
          vectors, [&](auto kCount) { run_tile<kCount.value>(source, i, output + i * kOutStep); });
      i += vectors;
    }
    for (; i < vectors_; ++i) run_at_edge(source, i, output + i * kOutStep);
  }

  template <size_t kCount>
  void run_narrow_plane(const float* input, const float* weights, const float* bias,
                        float* output) const noexcept {
    for (size_t y = area_.first_row; y < area_.first_row + area_.rows; ++y) {
      run_tile<kCount>({rows_from(input, y), weights, bias}, 0,
                       output + y * task_.out_width * kBlock);
    }
  }

  // The input column under the first tap of a vector, counted from the picture's first.
  int64_t column_of(size_t vector) const noexcept {
    const size_t padded = (area_.first_column + vector * Pixels::kPixels) * kStride;
    return static_cast<int64_t>(padded) - static_cast<int64_t>(task_.params.padding_l);
  }

  template <size_t kCount>
  [[gnu::always_inline]] void run_tile(const Source& source, size_t vector,
                                       float* output) const noexcept {
    constexpr size_t kColumns = (kCount - 1) * kStep + kSize;
    const int64_t first = column_of(vector);
    Register sums[kCount];
    const Register begin = source.bias == nullptr ? Vector::zero() : Pixels::weight(source.bias);
    unrolled<kCount>(QRT_UNROLLED(i) { sums[i] = begin; });
    unrolled<kSize>(QRT_UNROLLED(row) {
      const float* weights = source.weights + row * kSize * kBlock;
      Register w[kSize];
      unrolled<kSize>(QRT_UNROLLED(i) { w[i] = in_order(Pixels::weight(weights + i * kBlock)); });
      unrolled<kColumns>(QRT_UNROLLED(column) {
        const bool may_be_outside = column < kMargin || column >= kColumns - kMargin;
        const Register x = in_order(
            load(source.rows.row[row], first + static_cast<int64_t>(column), may_be_outside));
        unrolled<kCount>(QRT_UNROLLED(i) {
          if (column < i * kStep || column >= i * kStep + kSize) return;
          sums[i] = Vector::plus_product(sums[i], x, w[column - i * kStep]);
        });
      });
    });
    unrolled<kCount>(QRT_UNROLLED(i) {
      Vector::store(output + i * Pixels::kPixels * kBlock, ending_.template ended<Vector>(sums[i]));
    });
    ending_.stored(output, kCount * Pixels::kPixels * kBlock);
  }

  // One vector whose windows reach far into the margins beside the picture.
  void run_at_edge(const Source& source, size_t vector, float* output) const noexcept {
    const int64_t first = column_of(vector);
    Register sum = source.bias == nullptr ? Vector::zero() : Pixels::weight(source.bias);
    for (size_t row = 0; row < kSize; ++row) {
      for (size_t column = 0; column < kSize; ++column) {
        const Register x = load(source.rows.row[row], first + static_cast<int64_t>(column), true);
        const Register w = Pixels::weight(source.weights + (row * kSize + column) * kBlock);
        sum = Vector::plus_product(sum, x, w);
      }
    }
    Vector::store(output, ending_.template ended<Vector>(sum));
    ending_.stored(output, Pixels::kPixels * kBlock);
  }

  // The inputs of one tap, from a row or, where they are outside, zero.
  [[gnu::always_inline]] Register load(const float* row, int64_t column,
                                       bool may_be_outside) const noexcept {
    const int64_t block = kBlock;
    if (!may_be_outside) return Pixels::load(row + column * block);
    return Pixels::load_each(column, [&](int64_t at) {
      const bool inside = static_cast<uint64_t>(at) < task_.in_width;
      return inside ? row + at * block : zeros_;
    });
  }

  const ConvTask& task_;
  const float* zeros_;
  DepthwiseArea area_;
  Ending ending_;
  size_t vectors_;
  size_t inner_begin_;  // vectors from here to the end reach at most kMargin columns outside
  size_t inner_end_;
  size_t tile_ = 1;        // vectors of a tile; those are shared out evenly,
  size_t larger_end_ = 0;  // and up to here tiles have one more
};

inline DepthwiseArea whole_area(const ConvTask& task) noexcept {
  return {0, task.out_height, 0, task.out_width};
}

}  // namespace
}  // namespace marlo::kernel::conv
