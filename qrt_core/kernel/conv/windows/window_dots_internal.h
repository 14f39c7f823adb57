#pragma once

#include "qrt_core/kernel/conv/steps/conv_params.h"
#include "qrt_core/kernel/vectors_internal.h"

// Convolutions with a window over a padded blocked input, whose weights have the input channel
// fastest: vectors of inputs meet vectors of weights, and the lanes are summed at the end. Internal
// to the file that includes it.

namespace marlo::kernel::conv {
namespace {

/// Adds a convolution at stride 1 onto its output. A vector holds all channels of one pixel, or,
/// where a block is half a vector, those of two neighbours in a row. A tile is `kOuts` output
/// channels by `kGroups` such vectors. The second pixel of a row's last vector may stand behind the
/// row, where the padded copy has room.
///
/// `Target` says where the sums of a tile go: `Target::add(task, channel, row, column, pixels,
/// sums)`, with one vector for each output channel and `pixels` pixels in each.
template <typename Vector, size_t kInBlock, size_t kOuts, size_t kGroups, typename Target>
class WindowDots {
  using Register = typename Vector::Register;
  static constexpr size_t kPixels = Vector::kLanes / kInBlock;  // of a vector

  struct Group {
    const float* window;
    size_t row;
    size_t column;
    size_t pixels;
  };

 public:
  /// @param rows, columns of the output that are computed
  WindowDots(const ConvTask& task, size_t rows, size_t columns) noexcept
      : task_(task),
        rows_(rows),
        columns_(columns),
        in_row_(size_t{task.in_width} * kInBlock),
        in_plane_(in_row_ * task.in_height) {}

  /// Output channels from `channel` on. Weights of channel c, input block k and tap t begin at
  /// weight + c * out_step + (k * taps + t) * tap_step.
  void run(size_t channel, const float* weight, size_t out_step, size_t tap_step) const noexcept {
    const size_t in_row = parts_of(columns_, kPixels);
    for_even_parts(rows_ * in_row, kGroups, [&](size_t first, size_t groups) {
      with_static<kGroups>(groups, [&](auto kCount) {
        run_tile<kCount.value>(first, in_row, channel, weight, out_step, tap_step);
      });
    });
  }

 private:
  Group group_at(size_t index, size_t in_row) const noexcept {
    const size_t row = index / in_row;
    const size_t column = index % in_row * kPixels;
    return {task_.input + row * in_row_ + column * kInBlock, row, column,
            smaller_of(columns_ - column, kPixels)};
  }

  template <size_t kCount>
  [[gnu::noinline]] void run_tile(size_t first, size_t in_row, size_t channel, const float* weight,
                                  size_t out_step, size_t tap_step) const noexcept {
    const float* windows[kCount];
    unrolled<kCount>(QRT_UNROLLED(g) { windows[g] = group_at(first + g, in_row).window; });
    Register sums[kOuts][kCount];
    unrolled<kOuts>(
        QRT_UNROLLED(o) { unrolled<kCount>(QRT_UNROLLED(g) { sums[o][g] = Vector::zero(); }); });
    const size_t run = task_.params.kernel_x;
    const size_t rows = task_.params.kernel_y;
    size_t plane = 0;
    for (size_t k = 0; k < task_.in_blocks; ++k, plane += in_plane_) {
      size_t at = plane;
      for (size_t row = 0; row < rows; ++row, at += in_row_ - run * kInBlock) {
        for (size_t column = 0; column < run; ++column, at += kInBlock, weight += tap_step) {
          Register inputs[kCount];
          unrolled<kCount>(QRT_UNROLLED(g) { inputs[g] = Vector::load(windows[g] + at); });
          unrolled<kOuts>(QRT_UNROLLED(o) {
            const Register w = Vector::template repeat<kInBlock>(weight + o * out_step);
            unrolled<kCount>(
                QRT_UNROLLED(g) { sums[o][g] = Vector::plus_product(sums[o][g], inputs[g], w); });
          });
        }
      }
    }
    unrolled<kCount>(QRT_UNROLLED(g) {
      const Group group = group_at(first + g, in_row);
      Register ends[kOuts];
      unrolled<kOuts>(QRT_UNROLLED(o) { ends[o] = sums[o][g]; });
      Target::add(task_, channel, group.row, group.column, group.pixels, ends);
    });
  }

  const ConvTask& task_;
  size_t rows_;
  size_t columns_;
  size_t in_row_;
  size_t in_plane_;
};

/// The sum of four lanes.
inline float sum_of_lanes(__m128 x) noexcept {
  const __m128 pairs = _mm_add_ps(x, _mm_movehl_ps(x, x));
  return _mm_cvtss_f32(_mm_add_ss(pairs, _mm_shuffle_ps(pairs, pairs, 1)));
}

#ifdef __AVX__

/// Sums of a block of four output channels over two pixels go to those pixels of a blocked output.
struct IntoBlocksOf4 {
  static void add(const ConvTask& task, size_t channel, size_t row, size_t column, size_t pixels,
                  const __m256 (&sums)[4]) noexcept {
    float* output =
        task.output + (channel / 4 * task.out_height + row) * task.out_width * 4 + column * 4;
    const __m256 both =
        _mm256_hadd_ps(_mm256_hadd_ps(sums[0], sums[1]), _mm256_hadd_ps(sums[2], sums[3]));
    if (pixels == 2) {
      _mm256_storeu_ps(output, _mm256_add_ps(_mm256_loadu_ps(output), both));
    } else {
      _mm_storeu_ps(output, _mm_add_ps(_mm_loadu_ps(output), _mm256_castps256_ps128(both)));
    }
  }
};

/// Sums over two pixels of four channels go to planes.
struct PairsIntoPlanes {
  template <size_t kOuts>
  static void add(const ConvTask& task, size_t channel, size_t row, size_t column, size_t pixels,
                  const __m256 (&sums)[kOuts]) noexcept {
    for (size_t o = 0; o < kOuts; ++o) {
      float* output =
          task.output + ((channel + o) * task.out_height + row) * task.out_width + column;
      output[0] += sum_of_lanes(_mm256_castps256_ps128(sums[o]));
      if (pixels == 2) output[1] += sum_of_lanes(_mm256_extractf128_ps(sums[o], 1));
    }
  }
};

/// The sum over one pixel of eight channels goes to a plane.
struct PixelsIntoPlanes {
  template <size_t kOuts>
  static void add(const ConvTask& task, size_t channel, size_t row, size_t column, size_t,
                  const __m256 (&sums)[kOuts]) noexcept {
    for (size_t o = 0; o < kOuts; ++o) {
      const __m128 halves =
          _mm_add_ps(_mm256_castps256_ps128(sums[o]), _mm256_extractf128_ps(sums[o], 1));
      task.output[((channel + o) * task.out_height + row) * task.out_width + column] +=
          sum_of_lanes(halves);
    }
  }
};

#endif

}  // namespace
}  // namespace marlo::kernel::conv
