#pragma once

#include "qrt_core/kernel/conv/steps/conv_params.h"
#include "qrt_core/kernel/vectors_internal.h"

// Transposed 3x3 convolutions at stride 2. Internal to the file that includes it.
//
// Each output is computed once instead of adding each input to nine: along a dimension, output
// 2 i + 1 reads tap 1 of input i, and output 2 i reads tap 2 of input i - 1 and tap 0 of input i.
// The first and the last output read the one of them that is there. What isn't there isn't
// multiplied either: a tap that is infinite reaches only the outputs of its inputs.

namespace marlo::kernel::conv {
namespace {

/// Outputs of one parity, along a dimension, that read the same taps. They stand two apart.
struct ScatterRange {
  size_t output;  ///< the first of them
  size_t input;   ///< the first one's first input
  size_t count;
  size_t taps;    ///< how many each of them reads, from inputs side by side
  size_t tap[2];  ///< of the filter
};

/// All outputs of one parity.
struct ScatterRanges {
  size_t count;
  ScatterRange range[3];

  ScatterRanges(size_t inputs, size_t parity) noexcept
      : count(parity != 0 ? 1 : 3),
        range{{0, 0, 1, 1, {0, 0}},
              {2, 0, inputs - 1, 2, {2, 0}},
              {2 * inputs, inputs - 1, 1, 1, {2, 0}}} {
    if (parity != 0) range[0] = {1, 0, inputs, 1, {1, 0}};
  }
};

/// Adds a transposed convolution onto its output, in tiles of up to `kMostBlocks` blocks by as many
/// pixels as keep 12 sums in registers. A sum takes the input blocks in order, of each the upper
/// input row before the lower one and the left input before the right one, and within an input the
/// channels.
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

  // The taps of an output: where their weights and their inputs are.
  struct Taps {
    size_t count = 0;
    size_t weight[4];
    size_t input[4];
  };

  // Pixels side by side, or one below the other.
  struct Line {
    const float* input;
    float* output;
    size_t pixels;
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
    for_even_parts(task_.out_blocks, kMostBlocks, [this](size_t block, size_t count) {
      with_static<kMostBlocks>(count, [&](auto kBlocks) {
        for (size_t parity = 0; parity < 4; ++parity) {
          run_parity<kBlocks.value>(block, parity / 2, parity % 2);
        }
      });
    });
  }

 private:
  template <size_t kBlocks>
  void run_parity(size_t block, size_t odd_row, size_t odd_column) const noexcept {
    const ScatterRanges rows(task_.in_height, odd_row);
    const ScatterRanges columns(task_.in_width, odd_column);
    for (size_t i = 0; i < rows.count; ++i) {
      for (size_t j = 0; j < columns.count; ++j) {
        run_region<kBlocks>(block, rows.range[i], columns.range[j]);
      }
    }
  }

  template <size_t kBlocks>
  void run_region(size_t block, const ScatterRange& rows,
                  const ScatterRange& columns) const noexcept {
    Taps taps;
    for (size_t i = 0; i < rows.taps; ++i) {
      for (size_t j = 0; j < columns.taps; ++j, ++taps.count) {
        taps.weight[taps.count] = (rows.tap[i] * 3 + columns.tap[j]) * kBlockWeights;
        taps.input[taps.count] = i * in_row_ + j * kBlock;
      }
    }
    const float* weight = task_.weight + block * weight_plane_;
    Line line = {
        task_.input + rows.input * in_row_ + columns.input * kBlock,
        task_.output + block * out_plane_ + rows.output * out_row_ + columns.output * kBlock,
        columns.count};
    if (columns.count == 1) {  // at the left and right edge
      line.pixels = rows.count;
      return run_line<kBlocks, true>(taps, line, weight);
    }
    for (size_t row = 0; row < rows.count; ++row) {
      run_line<kBlocks, false>(taps, line, weight);
      line.input += in_row_;
      line.output += 2 * out_row_;
    }
  }

  template <bool kVertical>
  size_t in_step() const noexcept {
    return kVertical ? in_row_ : kBlock;
  }

  template <bool kVertical>
  size_t out_step() const noexcept {
    return 2 * (kVertical ? out_row_ : kBlock);
  }

  template <size_t kBlocks, bool kVertical>
  void run_line(const Taps& taps, const Line& line, const float* weight) const noexcept {
    constexpr size_t kMostPixels = most_pixels(kBlocks);
    for_even_parts(line.pixels, kMostPixels, [&](size_t begin, size_t count) {
      const Line part = {line.input + begin * in_step<kVertical>(),
                         line.output + begin * out_step<kVertical>(), count};
      with_static<kMostPixels>(count, [&](auto kPixels) {
        run_tile<kBlocks, kPixels.value, kVertical>(taps, part, weight);
      });
    });
  }

  template <size_t kBlocks, size_t kPixels, bool kVertical>
  [[gnu::noinline]] void run_tile(const Taps& taps, const Line& line,
                                  const float* weight) const noexcept {
    constexpr size_t kVectors = kBlocks * kParts;
    const size_t weight_plane = weight_plane_;
    const auto place = [&](size_t v, size_t pixel) __attribute__((always_inline)) {
      return line.output + v / kParts * out_plane_ + pixel * out_step<kVertical>() +
             v % kParts * Vector::kLanes;
    };
    const float* inputs[kPixels];
    unrolled<kPixels>(
        QRT_UNROLLED(pixel) { inputs[pixel] = line.input + pixel * in_step<kVertical>(); });
    Register sums[kVectors][kPixels];
    unrolled<kVectors>(QRT_UNROLLED(v) {
      unrolled<kPixels>(QRT_UNROLLED(pixel) { sums[v][pixel] = Vector::load(place(v, pixel)); });
    });
    size_t plane = 0;
    for (size_t k = 0; k < task_.in_blocks; ++k, plane += in_plane_) {
      for (size_t tap = 0; tap < taps.count; ++tap) {
        const size_t at = plane + taps.input[tap];
        const float* w = weight + taps.weight[tap];
        unrolled<kBlock>(QRT_UNROLLED(lane) {
          Register weights[kVectors];
          unrolled<kVectors>(QRT_UNROLLED(v) {
            weights[v] = Vector::load(w + v / kParts * weight_plane + lane * kBlock +
                                      v % kParts * Vector::kLanes);
          });
          unrolled<kPixels>(QRT_UNROLLED(pixel) {
            const Register x = Vector::splat(inputs[pixel] + at + lane);
            unrolled<kVectors>(QRT_UNROLLED(v) {
              sums[v][pixel] = Vector::plus_product(sums[v][pixel], x, weights[v]);
            });
          });
        });
      }
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
