#pragma once

#include "qrt_core/kernel/extension/conv/block_channels_internal.h"
#include "qrt_core/kernel/extension/conv/epilogue_internal.h"
#include "qrt_core/kernel/vectors_internal.h"

// The sums of a tile, pixels by vectors of output channels, from the bias to the store. Internal to the file that
// includes it.

namespace marlo::kernel::conv {
namespace {

/// Begins sums of neighbouring pixels with the bias, or with zero where there is none.
template <typename Vector, size_t kVectors, size_t kPixels>
[[gnu::always_inline]] inline void begin_sums(
    const float* bias, typename Vector::Register (&sums)[kVectors][kPixels]) noexcept {
  unrolled<kVectors>(QRT_UNROLLED(v) {
    const auto begin = bias == nullptr ? Vector::zero() : Vector::load(bias + v * Vector::kLanes);
    unrolled<kPixels>(QRT_UNROLLED(pixel) { sums[v][pixel] = begin; });
  });
}

/// Adds the products of one number of each pixel and of vectors of weights.
/// @param weight_at(v), input_at(pixel) where these stand
template <typename Vector, size_t kVectors, size_t kPixels, typename WeightAt, typename InputAt>
[[gnu::always_inline]] inline void add_products(
    typename Vector::Register (&sums)[kVectors][kPixels], WeightAt weight_at,
    InputAt input_at) noexcept {
  typename Vector::Register weights[kVectors];
  unrolled<kVectors>(QRT_UNROLLED(v) { weights[v] = Vector::load(weight_at(v)); });
  unrolled<kPixels>(QRT_UNROLLED(pixel) {
    const auto input = Vector::splat(input_at(pixel));
    unrolled<kVectors>(QRT_UNROLLED(v) {
      sums[v][pixel] = Vector::plus_product(sums[v][pixel], input, weights[v]);
    });
  });
}

/// What rectifiers do to sums before they are stored.
template <typename Vector, size_t kVectors, size_t kPixels>
[[gnu::always_inline]] inline void clamp_sums(
    const Ending& ending, typename Vector::Register (&sums)[kVectors][kPixels]) noexcept {
  if (!ending.clamps()) return;
  unrolled<kVectors>(QRT_UNROLLED(v) {
    unrolled<kPixels>(
        QRT_UNROLLED(pixel) { sums[v][pixel] = ending.template clamped<Vector>(sums[v][pixel]); });
  });
}

/// Ends what was computed of neighbouring pixels and stores it.
/// @param at where the first block of a pixel's channels stands, `plane` floats before the next
template <typename Vector, size_t kVectors, size_t kPixels, typename At>
[[gnu::always_inline]] inline void store_pixels(
    const Ending& ending, typename Vector::Register (&sums)[kVectors][kPixels], At at,
    size_t plane) noexcept {
  constexpr size_t kBlocks = Vector::kLanes / kChannelBlock;
  clamp_sums<Vector>(ending, sums);
  unrolled<kVectors>(QRT_UNROLLED(v) {
    unrolled<kPixels>(QRT_UNROLLED(pixel) {
      store_channels<Vector>(at(pixel) + v * kBlocks * plane, plane, sums[v][pixel]);
    });
  });
}

/// The same side by side. @param output of the first pixel's first block
template <typename Vector, size_t kVectors, size_t kPixels>
[[gnu::always_inline]] inline void store_sums(const Ending& ending,
                                              typename Vector::Register (&sums)[kVectors][kPixels],
                                              float* output, size_t plane) noexcept {
  constexpr size_t kBlocks = Vector::kLanes / kChannelBlock;
  clamp_sums<Vector>(ending, sums);
  unrolled<kVectors>(QRT_UNROLLED(v) {
    float* const to = output + v * kBlocks * plane;
    unrolled<kPixels / 2>(QRT_UNROLLED(pair) {
      store_two_pixels<Vector>(to + 2 * pair * kChannelBlock, plane, sums[v][2 * pair],
                               sums[v][2 * pair + 1]);
    });
    if constexpr (kPixels % 2 != 0) {
      store_channels<Vector>(to + (kPixels - 1) * kChannelBlock, plane, sums[v][kPixels - 1]);
    }
  });
}

/// The same, with what the epilogue does to stored results.
template <typename Vector, size_t kVectors, size_t kPixels>
[[gnu::always_inline]] inline void store_tile(const Ending& ending,
                                              typename Vector::Register (&sums)[kVectors][kPixels],
                                              float* output, size_t plane) noexcept {
  constexpr size_t kBlocks = Vector::kLanes / kChannelBlock;
  store_sums<Vector>(ending, sums, output, plane);
  unrolled<kVectors * kBlocks>(
      QRT_UNROLLED(block) { ending.stored(output + block * plane, kPixels * kChannelBlock); });
}

}  // namespace
}  // namespace marlo::kernel::conv
