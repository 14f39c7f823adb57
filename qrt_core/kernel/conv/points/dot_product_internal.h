#pragma once

#include "qrt_core/kernel/vectors_internal.h"

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
  static constexpr size_t kWeightStep = kOutBlock * kInBlock;
  static constexpr size_t kDepth = 128 / kInBlock;  // in blocks; more would crowd some sets of L1
  static constexpr size_t kPanelFloats = 6144;      // of inputs, which stay in L1
  static constexpr size_t kLine = 64 / sizeof(float);
  static constexpr size_t kLines = 4 * kInBlock / kLine;  // weights of a group, for an input block

  struct Tile {
    const float* input;
    float* output;
    size_t pixels;  // to the end of the plane
  };

  // A group of output channels, and a range of input blocks.
  struct Group {
    const float* weight;
    const float* next;  // weights of the group after it
    const float* bias;
    size_t depth;
    bool is_first;
  };

 public:
  explicit DotProductTiles(const DotProduct& product) noexcept : product_(product) {}

  void run() const noexcept {
    for_each_part(product_.in_blocks, kDepth,
                  [this](size_t first, size_t depth) { run_pass(first, depth); });
  }

 private:
  void run_pass(size_t first, size_t depth) const noexcept {
    const DotProduct& p = product_;
    const size_t vectors = parts_of(p.pixels, kPixelsOfVector);
    const size_t panels = depth == 0 ? 1 : parts_of(vectors * depth * 8, kPanelFloats);
    for (size_t panel = 0; panel < panels; ++panel) {
      const size_t begin = part_begin(panel, panels, vectors);
      const size_t end = part_begin(panel + 1, panels, vectors);
      for (size_t channel = 0; channel < p.out_channels; channel += 4) {
        const Group group = group_at(channel, first, depth);
        for_even_tiles(end - begin, kVectors, [&](size_t offset, size_t size, size_t count) {
          const size_t pixel = (begin + offset) * kPixelsOfVector;
          const Tile tile = {p.input + first * p.in_plane + pixel * kInBlock,
                             p.output + channel / kOutBlock * p.out_plane + pixel * kOutBlock +
                                 channel % kOutBlock,
                             p.pixels - pixel};
          with_static<kVectors>(
              size, [&](auto kSize) { run_tiles_to_end<kSize.value>(group, tile, count); });
        });
      }
    }
  }

  Group group_at(size_t channel, size_t first, size_t depth) const noexcept {
    const DotProduct& p = product_;
    const size_t next = channel + 4 < p.out_channels ? channel + 4 : 0;
    return {weights_at(channel, first), weights_at(next, first),
            p.bias == nullptr ? nullptr : p.bias + channel, depth, first == 0};
  }

  const float* weights_at(size_t channel, size_t block) const noexcept {
    return product_.weight + (channel / kOutBlock * product_.in_blocks + block) * kWeightStep +
           channel % kOutBlock * kInBlock;
  }

  // The last vector of an odd number of pixels holds only one that is there.
  template <size_t kSize>
  void run_tiles_to_end(const Group& group, Tile tile, size_t count) const noexcept {
    constexpr size_t kPixels = kSize * kPixelsOfVector;
    if (kPixelsOfVector == 1 || count * kPixels <= tile.pixels) {
      return run_tiles<kSize, true>(group, tile, count);
    }
    run_tiles<kSize, true>(group, tile, count - 1);
    tile.input += (count - 1) * kPixels * kInBlock;
    tile.output += (count - 1) * kPixels * kOutBlock;
    run_tiles<kSize, false>(group, tile, 1);
  }

  // `count` tiles of `size` vectors, side by side. `kWhole` says that the last vector is full, too.
  template <size_t size, bool kWhole>
  [[gnu::noinline]] void run_tiles(const Group& group, Tile tile, size_t count) const noexcept {
    constexpr size_t kPixels = size * kPixelsOfVector;
    const size_t in_plane = product_.in_plane;
    const __m128 bias = group.bias == nullptr ? _mm_setzero_ps() : _mm_loadu_ps(group.bias);
    for (size_t index = 0; index < count; ++index) {
      __m256 sums[4][size];
      unrolled<4>(
          QRT_UNROLLED(n) { unrolled<size>(QRT_UNROLLED(v) { sums[n][v] = Vector::zero(); }); });
      const float* input = tile.input;
      const float* weight = group.weight;
      const float* ahead = group.next + index % kLines * kLine;
      for (size_t k = 0; k < group.depth; ++k) {
        _mm_prefetch(reinterpret_cast<const char*>(ahead), _MM_HINT_T0);
        __m256 x[size];
        unrolled<size>(QRT_UNROLLED(v) {
          const float* from = input + 8 * v;
          x[v] = kWhole || v + 1 < size ? Vector::load(from) : Vector::load_first(from, kInBlock);
        });
        unrolled<4>(QRT_UNROLLED(n) {
          const __m256 w = weights_of(weight + n * kInBlock);
          unrolled<size>(
              QRT_UNROLLED(v) { sums[n][v] = Vector::plus_product(sums[n][v], x[v], w); });
        });
        input += in_plane;
        weight += kWeightStep;
        ahead += kWeightStep;
      }
      unrolled<size>(QRT_UNROLLED(v) {
        const __m256 sum = folded(sums[0][v], sums[1][v], sums[2][v], sums[3][v]);
        add_vector(group.is_first, kWhole || v + 1 < size, bias, sum,
                   tile.output + v * kPixelsOfVector * kOutBlock);
      });
      tile.input += kPixels * kInBlock;
      tile.output += kPixels * kOutBlock;
    }
  }

  [[gnu::always_inline]] static void add_vector(bool is_first, bool is_whole, __m128 bias,
                                                __m256 sum, float* output) noexcept {
    if constexpr (kInBlock == 8) {
      add_pixel(is_first, bias, both_halves(sum), output);
    } else {
      add_pixel(is_first, bias, _mm256_castps256_ps128(sum), output);
      if (!is_whole) return;
      add_pixel(is_first, bias, _mm256_extractf128_ps(sum, 1), output + kOutBlock);
    }
  }

  [[gnu::always_inline]] static void add_pixel(bool is_first, __m128 bias, __m128 sum,
                                               float* output) noexcept {
    const __m128 start = is_first ? bias : _mm_loadu_ps(output);
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
  static constexpr size_t kDepth = 128 / 8;     // in blocks
  static constexpr size_t kPanelFloats = 6144;  // of inputs, which stay in L1

  struct Tile {
    const float* input;
    float* output;
  };

  // Output channels, and a range of input blocks.
  struct Group {
    const float* weight;
    const float* next;  // weights of the channels after them
    const float* bias;
    size_t depth;
    bool is_first;
  };

 public:
  explicit DotProductRows(const DotProduct& product) noexcept : product_(product) {}

  void run() const noexcept {
    for_each_part(product_.in_blocks, kDepth,
                  [this](size_t first, size_t depth) { run_pass(first, depth); });
  }

 private:
  void run_pass(size_t first, size_t depth) const noexcept {
    const DotProduct& p = product_;
    const size_t tile_floats = depth * 8 * kPixels;
    const size_t tiles = tile_floats == 0 ? kPanelFloats : kPanelFloats / tile_floats;
    const size_t panel = kPixels * (tiles == 0 ? 1 : tiles);
    for (size_t begin = 0; begin < p.pixels; begin += panel) {
      const size_t pixels = smaller_of(panel, p.pixels - begin);
      for_even_parts(p.out_channels, kChannels, [&](size_t channel, size_t count) {
        const size_t next = channel + count;
        const Group group = {weights_at(channel, first),
                             weights_at(next < p.out_channels ? next : 0, first),
                             p.bias == nullptr ? nullptr : p.bias + channel, depth, first == 0};
        const Tile tile = {p.input + first * p.in_plane + begin * 8,
                           p.output + channel * p.out_plane + begin};
        with_static<kChannels>(
            count, [&](auto kCount) { run_channels<kCount.value>(group, tile, pixels); });
      });
    }
  }

  const float* weights_at(size_t channel, size_t block) const noexcept {
    return product_.weight + (channel * product_.in_blocks + block) * 8;
  }

  template <size_t channels>
  void run_channels(const Group& group, Tile tile, size_t pixels) const noexcept {
    const size_t whole = pixels / kPixels;
    if (whole != 0) run_tiles<channels, kPixels>(group, tile, whole);
    tile.input += whole * kPixels * 8;
    tile.output += whole * kPixels;
    if (pixels % kPixels != 0) run_tiles<channels, 1>(group, tile, pixels % kPixels);
  }

  // `count` tiles side by side, of four pixels or of one.
  template <size_t channels, size_t pixels>
  [[gnu::noinline]] void run_tiles(const Group& group, Tile tile, size_t count) const noexcept {
    const size_t in_plane = product_.in_plane;
    const size_t weight_row = product_.in_blocks * 8;
    for (size_t index = 0; index < count; ++index) {
      __m256 sums[channels][pixels];
      unrolled<channels>(
          QRT_UNROLLED(n) { unrolled<pixels>(QRT_UNROLLED(v) { sums[n][v] = Vector::zero(); }); });
      const float* input = tile.input;
      const float* weight = group.weight;
      const float* ahead = group.next + index % channels * weight_row;
      for (size_t k = 0; k < group.depth; ++k) {
        _mm_prefetch(reinterpret_cast<const char*>(ahead), _MM_HINT_T0);
        __m256 w[channels];
        unrolled<channels>(QRT_UNROLLED(n) { w[n] = Vector::load(weight + n * weight_row); });
        unrolled<pixels>(QRT_UNROLLED(v) {
          const __m256 x = Vector::load(input + 8 * v);
          unrolled<channels>(
              QRT_UNROLLED(n) { sums[n][v] = Vector::plus_product(sums[n][v], x, w[n]); });
        });
        input += in_plane;
        weight += 8;
        ahead += 8;
      }
      unrolled<channels>(QRT_UNROLLED(n) {
        float* output = tile.output + n * product_.out_plane;
        add_sums(group, n, sums[n], output);
      });
      tile.input += 8 * pixels;
      tile.output += pixels;
    }
  }

  template <size_t pixels>
  [[gnu::always_inline]] static void add_sums(const Group& group, size_t channel,
                                              const __m256 (&sums)[pixels],
                                              float* output) noexcept {
    if constexpr (pixels == kPixels) {
      const __m128 bias =
          group.bias == nullptr ? _mm_setzero_ps() : _mm_load1_ps(group.bias + channel);
      const __m128 start = group.is_first ? bias : _mm_loadu_ps(output);
      const __m128 sum = both_halves(folded(sums[0], sums[1], sums[2], sums[3]));
      _mm_storeu_ps(output, _mm_add_ps(start, sum));
    } else {
      const float bias = group.bias == nullptr ? 0.0f : group.bias[channel];
      const float start = group.is_first ? bias : *output;
      const __m256 x = sums[0];
      *output = start + _mm_cvtss_f32(both_halves(folded(x, x, x, x)));
    }
  }

  const DotProduct& product_;
};

}  // namespace
}  // namespace marlo::kernel::conv
