#pragma once

#include "qrt_core/kernel/vectors_internal.h"

// Vectors of channels in C8HW8. Internal to the file that includes it.

namespace marlo::kernel::conv {
namespace {

inline constexpr size_t kChannelBlock = 8;

/// What a window reads beside the picture.
alignas(32) inline constexpr float kNoPixel[kChannelBlock] = {};

/// A vector of one pixel's channels, from one block of 8 or from two.
/// @param plane floats from a block to the next
template <typename Vector>
[[gnu::always_inline]] inline typename Vector::Register load_channels(const float* from,
                                                                      size_t plane) noexcept {
  if constexpr (Vector::kLanes == kChannelBlock) {
    return Vector::load(from);
  } else {
    return Vector::load_halves(from, from + plane);
  }
}

/// The way back.
template <typename Vector>
[[gnu::always_inline]] inline void store_channels(float* to, size_t plane,
                                                  typename Vector::Register x) noexcept {
  if constexpr (Vector::kLanes == kChannelBlock) {
    Vector::store(to, x);
  } else {
    Vector::store_halves(to, to + plane, x);
  }
}

/// Those of two pixels side by side.
template <typename Vector>
[[gnu::always_inline]] inline void store_two_pixels(float* to, size_t plane,
                                                    typename Vector::Register left,
                                                    typename Vector::Register right) noexcept {
  if constexpr (Vector::kLanes == kChannelBlock) {
    Vector::store(to, left);
    Vector::store(to + kChannelBlock, right);
  } else {
    Vector::store_halves(to, to + plane, left, right);
  }
}

}  // namespace
}  // namespace marlo::kernel::conv
