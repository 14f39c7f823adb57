#pragma once

#include "qrt_core/kernel/conv/conv_params.h"
#include "qrt_core/kernel/vectors_internal.h"

// Transposed 3x3 convolutions at stride 2 over blocks. Internal to the file that includes it.

namespace marlo::kernel::conv {
namespace {

/// Computes each output once instead of adding each input to nine: outputs of even rows read filter
/// rows 2 and 0 of the inputs above and below, those of odd rows filter row 1; columns likewise.
/// Four convolutions with small windows result, whose outputs stand two pixels apart.
template <typename Vector, size_t kBlock, size_t kMostBlocks>
class ScatterTiles {
  using Register = typename Vector::Register;
  static constexpr size_t kParts = kBlock / Vector::kLanes;
  static constexpr size_t kBlockWeights = kBlock * kBlock;
  static constexpr size_t kTaps = 9;

  static constexpr size_t most_pixels(size_t blocks) {
    const size_t most = 12 / (blocks * kParts);
    return most < 8 ? most : 8;
  }

  // The taps of the outputs of one parity: where their weights and their inputs are.
  struct Taps {
    size_t count = 0;
    size_t weight[4];
    size_t input[4];
  };

 public:
  explicit ScatterTiles(const ConvTask& task) noexcept
      : task_(task),
        in_row_(size_t{task.in_width} * kBlock),
        in_plane_(in_row_ * task.in_height),
        out_row_(size_t{task.out_width} * kBlock),
        out_plane_(out_row_ * task.out_height),
        weight_plane_(kTaps * kBlockWeights * task.in_blocks) {}

  void run() const noexcept {
    const size_t groups = parts_of(task_.out_blocks, kMostBlocks);
    for (size_t group = 0; group < groups; ++group) {
      const size_t begin = part_begin(group, groups, task_.out_blocks);
      const size_t end = part_begin(group + 1, groups, task_.out_blocks);
      for (size_t parity = 0; parity < 4; ++parity) {
        sweep<kMostBlocks>(end - begin, begin, parity / 2, parity % 2);
      }
    }
  }

 private:
  Taps taps_of(size_t odd_row, size_t odd_column) const noexcept {
    Taps taps;
    for (size_t ky = odd_row; ky < 3; ky += 2) {
      for (size_t kx = odd_column; kx < 3; kx += 2) {
        // Behind the margin, the input of tap 0 and 1 is the one at the output's place, that of tap
        // 2 the one before.
        const size_t row = ky == 2 ? 0 : 1;
        const size_t column = kx == 2 ? 0 : 1;
        taps.weight[taps.count] = (ky * 3 + kx) * kBlockWeights;
        taps.input[taps.count++] = row * in_row_ + column * kBlock;
      }
    }
    return taps;
  }

  template <size_t kBlocks>
  void sweep(size_t blocks, size_t block, size_t odd_row, size_t odd_column) const noexcept {
    if constexpr (kBlocks > 1) {
      if (blocks < kBlocks) return sweep<kBlocks - 1>(blocks, block, odd_row, odd_column);
    }
    constexpr size_t kPixels = most_pixels(kBlocks);
    const Taps taps = taps_of(odd_row, odd_column);
    const float* weight = task_.weight + block * weight_plane_;
    const size_t rows = (task_.out_height + 1 - odd_row) / 2;
    const size_t columns = (task_.out_width + 1 - odd_column) / 2;
    for (size_t i = 0; i < rows; ++i) {
      const float* input = task_.input + i * in_row_;
      float* output =
          task_.output + block * out_plane_ + (2 * i + odd_row) * out_row_ + odd_column * kBlock;
      for_even_tiles(columns, kPixels, [&](size_t begin, size_t size, size_t count) {
        for (size_t tile = 0; tile < count; ++tile) {
          const size_t at = begin + tile * size;
          sized_tile<kBlocks, kPixels>(size, taps, input + at * kBlock, weight,
                                       output + 2 * at * kBlock);
        }
      });
    }
  }

  template <size_t kBlocks, size_t kPixels>
  void sized_tile(size_t pixels, const Taps& taps, const float* input, const float* weight,
                  float* output) const noexcept {
    if constexpr (kPixels > 1) {
      if (pixels < kPixels) {
        return sized_tile<kBlocks, kPixels - 1>(pixels, taps, input, weight, output);
      }
    }
    run_tile<kBlocks, kPixels>(taps, input, weight, output);
  }

  template <size_t kBlocks, size_t kPixels>
  [[gnu::noinline]] void run_tile(const Taps& taps, const float* input, const float* weight,
                                  float* output) const noexcept {
    constexpr size_t kVectors = kBlocks * kParts;
    const size_t weight_plane = weight_plane_;
    const auto place = [&](size_t v, size_t pixel) __attribute__((always_inline)) {
      return output + v / kParts * out_plane_ + 2 * pixel * kBlock + v % kParts * Vector::kLanes;
    };
    Register sums[kVectors][kPixels];
    unrolled<kVectors>(QRT_UNROLLED(v) {
      unrolled<kPixels>(QRT_UNROLLED(pixel) { sums[v][pixel] = Vector::load(place(v, pixel)); });
    });
    for (size_t k = 0; k < task_.in_blocks; ++k) {
      for (size_t tap = 0; tap < taps.count; ++tap) {
        const float* x = input + taps.input[tap];
        const float* w = weight + taps.weight[tap];
        unrolled<kBlock>(QRT_UNROLLED(lane) {
          Register weights[kVectors];
          unrolled<kVectors>(QRT_UNROLLED(v) {
            weights[v] = Vector::load(w + v / kParts * weight_plane + lane * kBlock +
                                      v % kParts * Vector::kLanes);
          });
          unrolled<kPixels>(QRT_UNROLLED(pixel) {
            const Register splat = Vector::splat(x + pixel * kBlock + lane);
            unrolled<kVectors>(QRT_UNROLLED(v) {
              sums[v][pixel] = Vector::plus_product(sums[v][pixel], splat, weights[v]);
            });
          });
        });
      }
      input += in_plane_;
      weight += kTaps * kBlockWeights;
    }
    unrolled<kVectors>(QRT_UNROLLED(v) {
      unrolled<kPixels>(QRT_UNROLLED(pixel) { Vector::store(place(v, pixel), sums[v][pixel]); });
    });
  }

  const ConvTask& task_;
  size_t in_row_;
  size_t in_plane_;
  size_t out_row_;
  size_t out_plane_;
  size_t weight_plane_;
};

}  // namespace
}  // namespace marlo::kernel::conv
