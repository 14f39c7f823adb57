#pragma once

#include "qrt_core/kernel/matrix/vectors_internal.h"

// The product of weights with the pixels of blocked planes where the weights have the input channel
// fastest: input vectors meet weight vectors lane by lane, and horizontal adds end a sum. Internal
// to the file that includes it.

namespace marlo::kernel::conv {
namespace {

/// One product, as `BlockedProduct`. Outputs come in groups of four channels. Distances are in
/// floats.
struct DotProduct {
  const float* input = nullptr;
  size_t in_plane = 0;
  size_t in_blocks = 0;
  const float* weight = nullptr;  ///< [groups in blocks, in_blocks, channels, lanes]
  const float* bias = nullptr;    ///< null for none
  float* output = nullptr;
  size_t out_plane = 0;  ///< from one block of channels, or from one channel, to the next
  size_t out_channels = 0;
  size_t pixels = 0;
};

/// Neighbouring lanes added up: [a0+a1 b0+b1 a2+a3 b2+b3] of each half.
[[gnu::always_inline]] inline __m256 pair_sums(__m256 a, __m256 b) noexcept {
  const __m256 others = _mm256_blend_ps(b, a, 0xAA);
  return _mm256_add_ps(_mm256_blend_ps(a, b, 0xAA), _mm256_permute_ps(others, 0xB1));
}

/// Horizontal sums of each half, [a b c d | a b c d], as (lane 0 + lane 1) + (lane 2 + lane 3).
/// Three horizontal adds would do the same, and shuffle twice as much, on ports that products need.
[[gnu::always_inline]] inline __m256 folded(__m256 a, __m256 b, __m256 c, __m256 d) noexcept {
  const __m256d ab = _mm256_castps_pd(pair_sums(a, b));
  const __m256d cd = _mm256_castps_pd(pair_sums(c, d));
  return _mm256_add_ps(_mm256_castpd_ps(_mm256_blend_pd(ab, cd, 0xA)),
                       _mm256_castpd_ps(_mm256_shuffle_pd(ab, cd, 0x5)));
}

[[gnu::always_inline]] inline __m128 both_halves(__m256 x) noexcept {
  return _mm_add_ps(_mm256_castps256_ps128(x), _mm256_extractf128_ps(x, 1));
}

/// Blocks of four or eight input channels to blocks of four or eight output channels.
///
/// A vector holds two pixels of four channels or one of eight. Each of the 12 sums of a tile, four
/// output channels by three vectors, adds up lane by lane over all input channels of a pass and is
/// folded once at its end: folding takes a port that the products need, so doing it for every block
/// would cost more than the products.
template <typename Vector, size_t kInBlock, size_t kOutBlock>
class DotProductTiles {
  static constexpr size_t kPixelsOfVector = 8 / kInBlock;
  static constexpr size_t kVectors = 3;
  static constexpr size_t kGroupWeights = 4 * kInBlock;  // of one input block
  static constexpr size_t kWeightStep = kOutBlock * kInBlock;
  static constexpr size_t kDepth = 512 / kInBlock;  // in blocks
  static constexpr size_t kPanelFloats = 6144;      // of inputs, which stay in L1

  struct Tile {
    const float* input;
    const float* weight;
    const float* bias;
    float* output;
    size_t depth;
    size_t pixels;
    bool is_first;
  };

 public:
  explicit DotProductTiles(const DotProduct& product) noexcept : product_(product) {}

  void run() const noexcept {
    size_t first = 0;
    do {
      const size_t depth = smaller_of(product_.in_blocks - first, kDepth);
      run_pass(first, depth);
      first += depth;
    } while (first < product_.in_blocks);
  }

 private:
  void run_pass(size_t first, size_t depth) const noexcept {
    constexpr size_t kTilePixels = kVectors * kPixelsOfVector;
    const size_t pass_floats = depth * kInBlock;
    const size_t panel_tiles = pass_floats * kTilePixels >= kPanelFloats || pass_floats == 0
                                   ? 1
                                   : kPanelFloats / (pass_floats * kTilePixels);
    const size_t vectors = parts_of(product_.pixels, kPixelsOfVector);
    const size_t tiles = parts_of(vectors, kVectors);
    for (size_t tile = 0; tile < tiles; tile += panel_tiles) {
      const size_t end_tile = smaller_of(tile + panel_tiles, tiles);
      for (size_t channel = 0; channel < product_.out_channels; channel += 4) {
        for (size_t index = tile; index < end_tile; ++index) {
          const size_t begin = part_begin(index, tiles, vectors);
          const size_t end = part_begin(index + 1, tiles, vectors);
          sized_tile<kVectors>(end - begin,
                               tile_at(begin * kPixelsOfVector, channel, first, depth));
        }
      }
    }
  }

  Tile tile_at(size_t pixel, size_t channel, size_t first, size_t depth) const noexcept {
    const DotProduct& p = product_;
    const size_t block = channel / kOutBlock;
    const size_t in_block = channel % kOutBlock;
    return {p.input + first * p.in_plane + pixel * kInBlock,
            p.weight + (block * p.in_blocks + first) * kWeightStep + in_block * kInBlock,
            p.bias == nullptr ? nullptr : p.bias + channel,
            p.output + block * p.out_plane + pixel * kOutBlock + in_block,
            depth,
            p.pixels - pixel,
            first == 0};
  }

  template <size_t count>
  void sized_tile(size_t vectors, const Tile& tile) const noexcept {
    if constexpr (count > 1) {
      if (vectors < count) return sized_tile<count - 1>(vectors, tile);
    }
    run_tile<count>(tile);
  }

  template <size_t count>
  [[gnu::noinline]] void run_tile(const Tile& tile) const noexcept {
    __m256 sums[4][count];
    unrolled<4>(
        QRT_UNROLLED(n) { unrolled<count>(QRT_UNROLLED(v) { sums[n][v] = Vector::zero(); }); });
    const float* input = tile.input;
    const float* weight = tile.weight;
    for (size_t k = 0; k < tile.depth; ++k) {
      __m256 x[count];
      unrolled<count>(QRT_UNROLLED(v) { x[v] = Vector::load(input + 8 * v); });
      unrolled<4>(QRT_UNROLLED(n) {
        const __m256 w = weights_of(weight + n * kInBlock);
        unrolled<count>(
            QRT_UNROLLED(v) { sums[n][v] = Vector::plus_product(sums[n][v], x[v], w); });
      });
      input += product_.in_plane;
      weight += kWeightStep;
    }
    const __m128 bias = tile.bias == nullptr ? _mm_setzero_ps() : _mm_loadu_ps(tile.bias);
    unrolled<count>(QRT_UNROLLED(v) {
      const __m256 fold = folded(sums[0][v], sums[1][v], sums[2][v], sums[3][v]);
      float* output = tile.output + v * kPixelsOfVector * kOutBlock;
      if constexpr (kInBlock == 8) {
        add_pixel(tile, bias, both_halves(fold), output);
      } else {
        add_pixel(tile, bias, _mm256_castps256_ps128(fold), output);
        // The last vector of an odd number of pixels holds only one that is there.
        if (2 * v + 1 < smaller_of(tile.pixels, 2 * count)) {
          add_pixel(tile, bias, _mm256_extractf128_ps(fold, 1), output + kOutBlock);
        }
      }
    });
  }

  [[gnu::always_inline]] static void add_pixel(const Tile& tile, __m128 bias, __m128 sum,
                                               float* output) noexcept {
    const __m128 start = tile.is_first ? bias : _mm_loadu_ps(output);
    _mm_storeu_ps(output, _mm_add_ps(start, sum));
  }

  // The weights of one output channel: once for each pixel of a vector.
  [[gnu::always_inline]] static __m256 weights_of(const float* weight) noexcept {
    if constexpr (kInBlock == 8) return Vector::load(weight);
    return _mm256_broadcast_ps(reinterpret_cast<const __m128*>(weight));
  }

  const DotProduct& product_;
};

/// Blocks of eight input channels to planes of one output channel each: sums are folded over four
/// pixels of a row instead of over four channels.
template <typename Vector>
class DotProductRows {
  static constexpr size_t kPixels = 4;
  static constexpr size_t kChannels = 3;
  static constexpr size_t kDepth = 64;          // in blocks
  static constexpr size_t kPanelFloats = 6144;  // of inputs, which stay in L1

  struct Tile {
    const float* input;
    const float* weight;
    const float* bias;
    float* output;
    size_t depth;
    bool is_first;
  };

 public:
  explicit DotProductRows(const DotProduct& product) noexcept : product_(product) {}

  void run() const noexcept {
    size_t first = 0;
    do {
      const size_t depth = smaller_of(product_.in_blocks - first, kDepth);
      run_pass(first, depth);
      first += depth;
    } while (first < product_.in_blocks);
  }

 private:
  void run_pass(size_t first, size_t depth) const noexcept {
    const size_t tile_floats = depth * 8 * kPixels;
    const size_t panel = tile_floats >= kPanelFloats || tile_floats == 0
                             ? kPixels
                             : kPanelFloats / tile_floats * kPixels;
    for (size_t begin = 0; begin < product_.pixels; begin += panel) {
      const size_t end = smaller_of(begin + panel, product_.pixels);
      size_t channel = 0;
      for (; channel + kChannels <= product_.out_channels; channel += kChannels) {
        run_row<kChannels>(channel, begin, end, first, depth);
      }
      for (; channel < product_.out_channels; ++channel) {
        run_row<1>(channel, begin, end, first, depth);
      }
    }
  }

  template <size_t channels>
  void run_row(size_t channel, size_t begin, size_t end, size_t first,
               size_t depth) const noexcept {
    const DotProduct& p = product_;
    Tile tile = {p.input + first * p.in_plane + begin * 8,
                 p.weight + (channel * p.in_blocks + first) * 8,
                 p.bias == nullptr ? nullptr : p.bias + channel,
                 p.output + channel * p.out_plane + begin,
                 depth,
                 first == 0};
    for (; begin + kPixels <= end; begin += kPixels) {
      run_tile<channels, kPixels>(tile);
      tile.input += 8 * kPixels;
      tile.output += kPixels;
    }
    for (; begin < end; ++begin, tile.input += 8, ++tile.output) run_tile<channels, 1>(tile);
  }

  template <size_t channels, size_t pixels>
  [[gnu::noinline]] void run_tile(const Tile& tile) const noexcept {
    __m256 sums[channels][pixels];
    unrolled<channels>(
        QRT_UNROLLED(n) { unrolled<pixels>(QRT_UNROLLED(v) { sums[n][v] = Vector::zero(); }); });
    const float* input = tile.input;
    const float* weight = tile.weight;
    const size_t weight_row = product_.in_blocks * 8;
    for (size_t k = 0; k < tile.depth; ++k) {
      __m256 w[channels];
      unrolled<channels>(QRT_UNROLLED(n) { w[n] = Vector::load(weight + n * weight_row); });
      unrolled<pixels>(QRT_UNROLLED(v) {
        const __m256 x = Vector::load(input + 8 * v);
        unrolled<channels>(
            QRT_UNROLLED(n) { sums[n][v] = Vector::plus_product(sums[n][v], x, w[n]); });
      });
      input += product_.in_plane;
      weight += 8;
    }
    unrolled<channels>(QRT_UNROLLED(n) {
      float* output = tile.output + n * product_.out_plane;
      const float* bias = tile.bias == nullptr ? nullptr : tile.bias + n;
      if constexpr (pixels == kPixels) {
        const __m128 sum = both_halves(folded(sums[n][0], sums[n][1], sums[n][2], sums[n][3]));
        const __m128 first = bias == nullptr ? _mm_setzero_ps() : _mm_load1_ps(bias);
        const __m128 start = tile.is_first ? first : _mm_loadu_ps(output);
        _mm_storeu_ps(output, _mm_add_ps(start, sum));
      } else {
        const __m256 x = sums[n][0];
        const float first = bias == nullptr ? 0.0f : *bias;
        const float start = tile.is_first ? first : *output;
        *output = start + _mm_cvtss_f32(both_halves(folded(x, x, x, x)));
      }
    });
  }

  const DotProduct& product_;
};

}  // namespace
}  // namespace marlo::kernel::conv
