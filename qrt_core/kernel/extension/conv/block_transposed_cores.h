#pragma once

#include <cstdint>

#include "qrt_core/kernel/conv/steps/conv_params.h"

namespace marlo::kernel::conv {

/// How far apart the taps of a transposed filter are that one output meets, along a direction: an input
/// lies under every `stride`-th place only, and taps are `dilation` places apart.
[[gnu::always_inline]] inline constexpr uint32_t taps_apart(uint32_t stride,
                                                            uint32_t dilation) noexcept {
  uint32_t divisor = stride;
  for (uint32_t rest = dilation; rest != 0;) {
    const uint32_t next = divisor % rest;
    divisor = rest;
    rest = next;
  }
  return stride / divisor;
}

// Transposed convolutions in C8HW8 of any window, stride, dilation, padding and groups of whole blocks,
// with an epilogue. They start from the bias, fuse products and sums, and store every output once.

/// Weights packed in widths of 16 and 8 output channels.
void block_transposed_fma(const ConvTask& task) noexcept;

/// Weights packed in widths of 32, 16 and 8 output channels.
void block_transposed_avx512(const ConvTask& task) noexcept;

}  // namespace marlo::kernel::conv
