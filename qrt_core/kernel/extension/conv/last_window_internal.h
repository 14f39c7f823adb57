#pragma once

#include "qrt_core/kernel/conv/steps/conv_params.h"
#include "qrt_core/kernel/extension/conv/epilogue_internal.h"
#include "qrt_core/kernel/extension/conv/last_window_cores.h"
#include "qrt_core/kernel/extension/conv/window_axis_internal.h"
#include "qrt_core/kernel/vectors_internal.h"

// Convolutions from C8HW8 to planes. Lanes are input channels, so that a few output channels waste
// none. Internal to the file that includes it.

namespace marlo::kernel::conv {
namespace {

/// One output row after the other, and of each a few output channels at a time.
class LastWindow {
  static constexpr size_t kBlock = 8;

 public:
  explicit LastWindow(const ConvTask& task) noexcept
      : task_(task),
        y_(rows_of(task)),
        x_(columns_of(task)),
        in_plane_(size_t{task.in_height} * task.in_width * kBlock),
        taps_(size_t{task.params.kernel_y} * task.params.kernel_x) {}

  /// @tparam Vector of as many pixels as it holds blocks of 8 lanes
  template <typename Vector>
  void run() const noexcept {
    const Ending ending(task_.epilogue);
    const size_t out_plane = size_t{task_.out_height} * task_.out_width;
    const size_t outs = task_.params.out_channels;
    for (size_t first = 0; first < outs; first += kLastChannels) {
      const size_t count = smaller_of(outs - first, kLastChannels);
      const float* weight = task_.weight + first * task_.in_blocks * taps_ * kBlock;
      for (size_t row = 0; row < task_.out_height; ++row) {
        float* output = task_.output + first * out_plane + row * task_.out_width;
        with_static<kLastChannels>(count, [&](auto kOuts) {
          Row<Vector, kOuts.value>(*this, ending, weight, bias_of(first), output, row).run();
        });
        for (size_t o = 0; o < count; ++o) ending.stored(output + o * out_plane, task_.out_width);
      }
    }
  }

 private:
  template <typename Vector, size_t kOuts>
  class Row {
    using Register = typename Vector::Register;
    static constexpr size_t kTogether = Vector::kLanes / kBlock;  // pixels in a vector
    // Sums that registers hold beside the inputs of a tap and a weight.
    static constexpr size_t kVectors = Vector::kLanes == 16 ? 28 / (kOuts + 1) : 15 / (kOuts + 1);
    static constexpr size_t kMost = kVectors > 8 ? 8 : kVectors;

   public:
    Row(const LastWindow& window, const Ending& ending, const float* weight, const float* bias,
        float* output, size_t row) noexcept
        : w_(window),
          ending_(ending),
          weight_(weight),
          bias_(bias),
          output_(output),
          top_(static_cast<int64_t>(row * w_.y_.stride) - w_.y_.padding),
          rows_(places_of(w_.y_, top_, top_)) {}

    void run() const noexcept {
      const size_t width = w_.task_.out_width;
      // Pixels whose windows lie in the picture from the first column to the last.
      size_t begin = 0;
      while (begin < width && left_of(begin) < 0) single(begin++);
      const size_t end = end_of_whole();
      const size_t vectors = end > begin ? (end - begin) / kTogether : 0;
      for_even_parts(vectors, kMost, [&](size_t first, size_t count) {
        const size_t column = begin + first * kTogether;
        with_static<kMost>(count, [&](auto kCount) {
          w_.x_.stride == 1 ? tile<Vector, kCount.value, true>(column, columns_at(column))
                            : tile<Vector, kCount.value, false>(column, columns_at(column));
        });
      });
      begin += vectors * kTogether;
      while (begin < width) single(begin++);
    }

   private:
    int64_t left_of(size_t column) const noexcept {
      return static_cast<int64_t>(column * w_.x_.stride) - w_.x_.padding;
    }

    WindowPlaces columns_at(size_t column) const noexcept {
      return places_of(w_.x_, left_of(column), left_of(column));
    }

    /// Behind the last pixel whose window ends in the picture.
    size_t end_of_whole() const noexcept {
      const auto reach = static_cast<int64_t>((w_.x_.kernel - 1) * w_.x_.dilation);
      const int64_t last = static_cast<int64_t>(w_.x_.inputs) - 1 - reach + w_.x_.padding;
      return last < 0 ? 0 : smaller_of(w_.x_.outputs, static_cast<size_t>(last) / w_.x_.stride + 1);
    }

    void single(size_t column) const noexcept {
      tile<FusedVector, 1, true>(column, columns_at(column));
    }

    /// Neighbouring pixels, `kCount` vectors of them, whose windows have the same columns inside.
    template <typename V, size_t kCount, bool kIsDense>
    [[gnu::noinline]] void tile(size_t column, WindowPlaces columns) const noexcept {
      constexpr size_t kPixels = V::kLanes / kBlock;
      const size_t line = size_t{w_.task_.in_width} * kBlock;
      const size_t step = w_.x_.stride * kBlock;
      typename V::Register sums[kOuts][kCount];
      unrolled<kOuts>(
          QRT_UNROLLED(o) { unrolled<kCount>(QRT_UNROLLED(i) { sums[o][i] = V::zero(); }); });
      const int64_t corner =
          top_ * static_cast<int64_t>(line) + left_of(column) * static_cast<int64_t>(kBlock);
      for (size_t k = 0; k < w_.task_.in_blocks; ++k) {
        const float* input = w_.task_.input + k * w_.in_plane_;
        const float* weights = weight_ + k * w_.taps_ * kOuts * kBlock;
        for (size_t y = rows_.begin; y < rows_.end; ++y) {
          const float* from = weights + (y * w_.x_.kernel + columns.begin) * kOuts * kBlock;
          for (size_t x = columns.begin; x < columns.end; ++x, from += kOuts * kBlock) {
            const float* at = input + (corner + static_cast<int64_t>(y * w_.y_.dilation * line +
                                                                     x * w_.x_.dilation * kBlock));
            typename V::Register pixels[kCount];
            unrolled<kCount>(QRT_UNROLLED(i) {
              const float* pixel = at + i * kPixels * step;
              if constexpr (kPixels == 1 || kIsDense) {
                pixels[i] = V::load(pixel);
              } else {
                pixels[i] = V::load_halves(pixel, pixel + step);
              }
              // Pairs would be read again for each output channel, and lie across lines.
              if constexpr (kPixels > 1) pixels[i] = in_order(pixels[i]);
            });
            unrolled<kOuts>(QRT_UNROLLED(o) {
              const auto weight = V::template repeat<kBlock>(from + o * kBlock);
              unrolled<kCount>(
                  QRT_UNROLLED(i) { sums[o][i] = V::plus_product(sums[o][i], pixels[i], weight); });
            });
          }
        }
      }
      const size_t plane = size_t{w_.task_.out_height} * w_.task_.out_width;
      unrolled<kOuts>(QRT_UNROLLED(o) {
        store<V, kCount>(sums[o], bias_ == nullptr ? 0.0f : bias_[o], output_ + o * plane + column);
      });
    }

    /// Adds up the lanes of each pixel.
    template <typename V, size_t kCount>
    [[gnu::always_inline]] void store(const typename V::Register (&sums)[kCount], float bias,
                                      float* to) const noexcept {
      constexpr size_t kPixels = V::kLanes / kBlock;
      constexpr size_t kAtOnce = 8;
      constexpr size_t kRows = (kCount * kPixels + kAtOnce - 1) / kAtOnce * kAtOnce;
      alignas(64) float lanes[kRows * kBlock];
      unrolled<kCount>(QRT_UNROLLED(i) { V::store(lanes + i * V::kLanes, sums[i]); });
      for (size_t i = kCount * V::kLanes; i < kRows * kBlock; ++i) lanes[i] = 0.0f;
      for (size_t first = 0; first < kCount * kPixels; first += kAtOnce) {
        const __m256 eight = lane_sums(lanes + first * kBlock);
        const auto sum =
            ending_.template ended<FusedVector>(FusedVector::plus(eight, FusedVector::splat(bias)));
        FusedVector::store_first(to + first, smaller_of(kCount * kPixels - first, kAtOnce), sum);
      }
    }

    /// The sums of eight rows of eight: pairs of neighbours, pairs of these, and both halves.
    [[gnu::always_inline]] static __m256 lane_sums(const float* rows) noexcept {
      const auto pairs = [&](size_t i) __attribute__((always_inline)) {
        return _mm256_hadd_ps(_mm256_load_ps(rows + i * kBlock),
                              _mm256_load_ps(rows + (i + 1) * kBlock));
      };
      const __m256 low = _mm256_hadd_ps(pairs(0), pairs(2));
      const __m256 high = _mm256_hadd_ps(pairs(4), pairs(6));
      return _mm256_add_ps(_mm256_permute2f128_ps(low, high, 0x20),
                           _mm256_permute2f128_ps(low, high, 0x31));
    }

    const LastWindow& w_;
    const Ending& ending_;
    const float* weight_;
    const float* bias_;
    float* output_;
    int64_t top_;
    WindowPlaces rows_;
  };

  const float* bias_of(size_t first) const noexcept {
    return task_.bias == nullptr ? nullptr : task_.bias + first;
  }

  const ConvTask& task_;
  WindowAxis y_, x_;
  size_t in_plane_;
  size_t taps_;
};

}  // namespace
}  // namespace marlo::kernel::conv
