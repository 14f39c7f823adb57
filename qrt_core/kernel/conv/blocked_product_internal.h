#pragma once

#include "qrt_core/kernel/matrix/vectors_internal.h"

// The product of a matrix of weights with the pixels of blocked planes: what a 1x1 convolution is.
// Weights have the output channel fastest, so that each input is broadcast and meets a vector of
// output channels. Internal to the file that includes it.

namespace marlo::kernel::conv {
namespace {

/// One product: output block n = bias block n, or zero, plus the sum over input blocks k and their
/// lanes of weight [n][k][lane] times input block k. Distances are in floats.
struct BlockedProduct {
  const float* input = nullptr;
  size_t in_plane = 0;  ///< from one block of channels to the next
  size_t in_row = 0;
  size_t in_blocks = 0;
  const float* weight = nullptr;
  size_t weight_plane = 0;      ///< from the weights of one output block to those of the next
  const float* bias = nullptr;  ///< null for none
  float* output = nullptr;
  size_t out_plane = 0;
  size_t out_row = 0;
  size_t out_blocks = 0;
  size_t rows = 1;
  size_t pixels = 0;  ///< of a row
};

/// Sums stay in registers over this many input channels, whose weights for one tile stay in L1.
constexpr size_t kProductDepth = 512;

/// The inputs of so many tiles stay in L2 while all output channels pass over them.
constexpr size_t kPanelTiles = 32;

/// Computes products in tiles of up to `kMostBlocks` output blocks by as many pixels as keep 12
/// sums in registers; with two processors' worth of multipliers and a latency of four cycles, eight
/// are needed to keep them busy. Rows and blocks are shared out evenly among the tiles, which
/// leaves no small tiles at an end. Each sum begins with the bias and runs over the input channels
/// in order, whatever its tile.
template <typename Vector, size_t kBlock, size_t kStride, size_t kMostBlocks>
class BlockedProductTiles {
  using Register = typename Vector::Register;
  static constexpr size_t kParts = kBlock / Vector::kLanes;  // vectors of a block
  static constexpr size_t kBlockWeights = kBlock * kBlock;
  static constexpr size_t kDepth = kProductDepth / kBlock;  // in blocks
  static constexpr size_t kLine = 64 / sizeof(float);

  static constexpr size_t most_pixels(size_t blocks) {
    const size_t most = 12 / (blocks * kParts);
    return most < 8 ? most : 8;
  }

  struct Tile {
    const float* input;
    const float* weight;
    const float* ahead;  // weights that will be needed soon
    const float* bias;
    float* output;
    size_t depth;  // in blocks
    bool is_first;
  };

 public:
  explicit BlockedProductTiles(const BlockedProduct& product) noexcept : product_(product) {}

  void run() const noexcept {
    size_t first = 0;
    do {
      const size_t depth = smaller_of(product_.in_blocks - first, kDepth);
      for_each_panel(first, depth);
      first += depth;
    } while (first < product_.in_blocks);
  }

 private:
  void for_each_panel(size_t first, size_t depth) const noexcept {
    const size_t groups = parts_of(product_.out_blocks, kMostBlocks);
    const size_t tiles = parts_of(product_.pixels, most_pixels(kMostBlocks));
    const size_t panel_rows = tiles >= kPanelTiles ? 1 : kPanelTiles / tiles;
    for (size_t row = 0; row < product_.rows; row += panel_rows) {
      const size_t end_row = smaller_of(row + panel_rows, product_.rows);
      for (size_t tile = 0; tile < tiles; tile += kPanelTiles) {
        const size_t begin = part_begin(tile, tiles, product_.pixels);
        const size_t end =
            part_begin(smaller_of(tile + kPanelTiles, tiles), tiles, product_.pixels);
        for (size_t group = 0; group < groups; ++group) {
          const size_t block = part_begin(group, groups, product_.out_blocks);
          const size_t next = part_begin(group + 1, groups, product_.out_blocks);
          panel<kMostBlocks>(next - block, {row, end_row, begin, end, block, first, depth});
        }
      }
    }
  }

  // Rows and pixels of a panel, the first of its output blocks, and a range of input blocks.
  struct Panel {
    size_t row, end_row;
    size_t begin, end;
    size_t block;
    size_t first, depth;
  };

  template <size_t kBlocks>
  void panel(size_t blocks, const Panel& panel_of) const noexcept {
    if constexpr (kBlocks > 1) {
      if (blocks < kBlocks) return panel<kBlocks - 1>(blocks, panel_of);
    }
    constexpr size_t kPixels = most_pixels(kBlocks);
    const BlockedProduct& p = product_;
    const size_t pixels = panel_of.end - panel_of.begin;
    const size_t tiles = parts_of(pixels, kPixels);
    const float* weight = p.weight + panel_of.block * p.weight_plane;
    size_t count = 0;
    for (size_t row = panel_of.row; row < panel_of.end_row; ++row) {
      const float* input = p.input + panel_of.first * p.in_plane + row * p.in_row;
      float* output = p.output + panel_of.block * p.out_plane + row * p.out_row;
      size_t begin = panel_of.begin;
      for (size_t index = 1; index <= tiles; ++index, ++count) {
        const size_t end = panel_of.begin + part_begin(index, tiles, pixels);
        const Tile tile = {input + begin * kStride * kBlock,
                           weight + panel_of.first * kBlockWeights,
                           ahead(panel_of, kBlocks, count),
                           p.bias == nullptr ? nullptr : p.bias + panel_of.block * kBlock,
                           output + begin * kBlock,
                           panel_of.depth,
                           panel_of.first == 0};
        sized_tile<kBlocks, kPixels>(end - begin, tile);
        begin = end;
      }
    }
  }

  // The line of weights from which tile `count` fetches, a line for each input block: together the
  // tiles fetch what the next output blocks need. With few pixels, reading weights is most of the
  // work.
  const float* ahead(const Panel& panel_of, size_t blocks, size_t count) const noexcept {
    constexpr size_t kLines = kBlockWeights / kLine;  // of one block pair
    const size_t block = panel_of.block + blocks + count / kLines;
    if (count >= kLines * kMostBlocks || block >= product_.out_blocks) return product_.weight;
    return product_.weight + block * product_.weight_plane + panel_of.first * kBlockWeights +
           count % kLines * panel_of.depth * kLine;
  }

  template <size_t kBlocks, size_t kPixels>
  void sized_tile(size_t pixels, const Tile& tile) const noexcept {
    if constexpr (kPixels > 1) {
      if (pixels < kPixels) return sized_tile<kBlocks, kPixels - 1>(pixels, tile);
    }
    run_tile<kBlocks, kPixels>(tile);
  }

  template <size_t kBlocks, size_t kPixels>
  [[gnu::noinline]] void run_tile(const Tile& tile) const noexcept {
    constexpr size_t kVectors = kBlocks * kParts;
    const size_t in_plane = product_.in_plane;
    const size_t weight_plane = product_.weight_plane;
    const size_t out_plane = product_.out_plane;
    const auto output = [&](size_t v, size_t pixel) __attribute__((always_inline)) {
      return tile.output + v / kParts * out_plane + pixel * kBlock + v % kParts * Vector::kLanes;
    };
    Register sums[kVectors][kPixels];
    start<kVectors, kPixels>(tile, output, sums);

    const float* input = tile.input;
    const float* weight = tile.weight;
    const float* ahead = tile.ahead;
    for (size_t k = 0; k < tile.depth; ++k) {
      _mm_prefetch(reinterpret_cast<const char*>(ahead), _MM_HINT_T0);
      unrolled<kBlock>(QRT_UNROLLED(lane) {
        Register weights[kVectors];
        unrolled<kVectors>(QRT_UNROLLED(v) {
          weights[v] = Vector::load(weight + v / kParts * weight_plane + lane * kBlock +
                                    v % kParts * Vector::kLanes);
        });
        unrolled<kPixels>(QRT_UNROLLED(pixel) {
          const Register x = Vector::splat(input + pixel * kStride * kBlock + lane);
          unrolled<kVectors>(QRT_UNROLLED(v) {
            sums[v][pixel] = Vector::plus_product(sums[v][pixel], x, weights[v]);
          });
        });
      });
      input += in_plane;
      weight += kBlockWeights;
      ahead += kLine;
    }
    unrolled<kVectors>(QRT_UNROLLED(v) {
      unrolled<kPixels>(QRT_UNROLLED(pixel) { Vector::store(output(v, pixel), sums[v][pixel]); });
    });
  }

  template <size_t kVectors, size_t kPixels, typename Output>
  [[gnu::always_inline]] static void start(const Tile& tile, Output output,
                                           Register (&sums)[kVectors][kPixels]) noexcept {
    unrolled<kVectors>(QRT_UNROLLED(v) {
      if (!tile.is_first) {
        unrolled<kPixels>(QRT_UNROLLED(pixel) { sums[v][pixel] = Vector::load(output(v, pixel)); });
        return;
      }
      const Register begin =
          tile.bias == nullptr ? Vector::zero() : Vector::load(tile.bias + v * Vector::kLanes);
      unrolled<kPixels>(QRT_UNROLLED(pixel) { sums[v][pixel] = begin; });
    });
  }

  const BlockedProduct& product_;
};

}  // namespace
}  // namespace marlo::kernel::conv
