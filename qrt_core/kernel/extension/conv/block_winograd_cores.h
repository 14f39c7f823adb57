#pragma once

#include <cstddef>

#include "qrt_core/kernel/conv/steps/conv_params.h"
#include "qrt_core/kernel/extension/matrix/matrix_product_cores.h"

namespace marlo::kernel::conv {

/// Floats from one tile's transformed inputs to the next one's, which don't lie a multiple of 4 KiB
/// apart: tiles of a product read several rows at a time.
constexpr size_t winograd_row(size_t channels) {
  return channels % 1024 == 0 ? channels + 16 : channels;
}

/// Floats from one element's rows to the next one's; an element is read or written beside all others.
constexpr size_t winograd_element(size_t tiles, size_t row) { return tiles * row + 16; }

/// Floats of scratch for tiles of `size` x `size` outputs. @param panel of a product's columns
constexpr size_t winograd_scratch(size_t size, size_t tiles, size_t channels, size_t panel) {
  return (size + 2) * (size + 2) *
         (winograd_element(tiles, winograd_row(channels)) + winograd_element(tiles, panel));
}

/// A 3 x 3 convolution at stride 1 in C8HW8 by minimal filtering, F(m x m, 3 x 3), with any paddings and
/// an epilogue. It takes the input itself and adds the bias last.
/// @param task its weights are transformed and packed by `pack_filters`
/// @param scratch `winograd_scratch` floats
/// @param tiles of outputs that are computed at a time, above 0
using WinogradCore = void (*)(const ConvTask& task, float* scratch, size_t tiles) noexcept;

void winograd_4x4_fma(const ConvTask& task, float* scratch, size_t tiles) noexcept;
void winograd_6x6_fma(const ConvTask& task, float* scratch, size_t tiles) noexcept;
void winograd_4x4_avx512(const ConvTask& task, float* scratch, size_t tiles) noexcept;
void winograd_6x6_avx512(const ConvTask& task, float* scratch, size_t tiles) noexcept;

}  // namespace marlo::kernel::conv
