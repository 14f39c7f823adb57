#pragma once

#include "qrt_core/kernel/vectors_internal.h"

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
inline constexpr size_t kProductDepth = 512;

/// The inputs of so many tiles stay in L2 while all output channels pass over them.
inline constexpr size_t kPanelTiles = 32;

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
    const float* bias;
    float* output;
  };

  // Rows and pixels, a group of output blocks, and a range of input blocks.
  struct Panel {
    size_t row, end_row;
    size_t begin, end;
    size_t block, end_block;
    size_t first, depth;
  };

 public:
  explicit BlockedProductTiles(const BlockedProduct& product) noexcept : product_(product) {}

  void run() const noexcept {
    for_each_part(product_.in_blocks, kDepth,
                  [this](size_t first, size_t depth) { for_each_panel(first, depth); });
  }

 private:
  void for_each_panel(size_t first, size_t depth) const noexcept {
    const BlockedProduct& p = product_;
    const size_t tiles = parts_of(p.pixels, most_pixels(kMostBlocks));
    const size_t panels = parts_of(tiles, kPanelTiles);
    const size_t panel_rows = tiles >= kPanelTiles || tiles == 0 ? 1 : kPanelTiles / tiles;
    for (size_t row = 0; row < p.rows; row += panel_rows) {
      for (size_t index = 0; index < panels; ++index) {
        Panel panel = {};
        panel.row = row;
        panel.end_row = smaller_of(row + panel_rows, p.rows);
        panel.begin = part_begin(index, panels, p.pixels);
        panel.end = part_begin(index + 1, panels, p.pixels);
        panel.first = first;
        panel.depth = depth;
        for_even_parts(p.out_blocks, kMostBlocks, [&](size_t block, size_t count) {
          panel.block = block;
          panel.end_block = block + count;
          with_static<kMostBlocks>(count, [&](auto kBlocks) { run_panel<kBlocks.value>(panel); });
        });
      }
    }
  }

  template <size_t kBlocks>
  void run_panel(const Panel& panel) const noexcept {
    constexpr size_t kMostPixels = most_pixels(kBlocks);
    const BlockedProduct& p = product_;
    size_t done = 0;
    for (size_t row = panel.row; row < panel.end_row; ++row) {
      const float* input = p.input + panel.first * p.in_plane + row * p.in_row;
      float* output = p.output + panel.block * p.out_plane + row * p.out_row;
      for_even_tiles(panel.end - panel.begin, kMostPixels,
                     [&](size_t offset, size_t size, size_t count) {
                       const size_t pixel = panel.begin + offset;
                       const Tile tile = {
                           input + pixel * kStride * kBlock,
                           p.weight + panel.block * p.weight_plane + panel.first * kBlockWeights,
                           p.bias == nullptr ? nullptr : p.bias + panel.block * kBlock,
                           output + pixel * kBlock};
                       with_static<kMostPixels>(size, [&](auto kPixels) {
                         run_tiles<kBlocks, kPixels.value>(panel, tile, done, count);
                       });
                       done += count;
                     });
    }
  }

  // The line of weights from which tile `index` of a panel fetches, a line for each input block:
  // together the tiles fetch what the next output blocks need. With few pixels, reading weights is
  // most of the work.
  const float* ahead(const Panel& panel, size_t index) const noexcept {
    constexpr size_t kLines = kBlockWeights / kLine;  // of a pair of blocks
    size_t block = panel.end_block + index / kLines;
    if (index >= kLines * kMostBlocks || block >= product_.out_blocks) block = panel.block;
    return product_.weight + block * product_.weight_plane + panel.first * kBlockWeights +
           index % kLines * panel.depth * kLine;
  }

  // `count` tiles side by side, the first of which is the panel's tile `index`.
  template <size_t kBlocks, size_t kPixels>
  [[gnu::noinline]] void run_tiles(const Panel& panel, Tile tile, size_t index,
                                   size_t count) const noexcept {
    constexpr size_t kVectors = kBlocks * kParts;
    const size_t in_plane = product_.in_plane;
    const size_t weight_plane = product_.weight_plane;
    const size_t out_plane = product_.out_plane;
    for (const size_t end = index + count; index < end; ++index) {
      const auto output = [&](size_t v, size_t pixel) __attribute__((always_inline)) {
        return tile.output + v / kParts * out_plane + pixel * kBlock + v % kParts * Vector::kLanes;
      };
      Register sums[kVectors][kPixels];
      start<kVectors, kPixels>(panel.first == 0, tile, output, sums);

      const float* input = tile.input;
      const float* weight = tile.weight;
      const float* fetched = ahead(panel, index);
      for (size_t k = 0; k < panel.depth; ++k) {
        _mm_prefetch(reinterpret_cast<const char*>(fetched), _MM_HINT_T0);
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
        fetched += kLine;
      }
      unrolled<kVectors>(QRT_UNROLLED(v) {
        unrolled<kPixels>(QRT_UNROLLED(pixel) { Vector::store(output(v, pixel), sums[v][pixel]); });
      });
      tile.input += kPixels * kStride * kBlock;
      tile.output += kPixels * kBlock;
    }
  }

  template <size_t kVectors, size_t kPixels, typename Output>
  [[gnu::always_inline]] static void start(bool is_first, const Tile& tile, Output output,
                                           Register (&sums)[kVectors][kPixels]) noexcept {
    unrolled<kVectors>(QRT_UNROLLED(v) {
      if (!is_first) {
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
