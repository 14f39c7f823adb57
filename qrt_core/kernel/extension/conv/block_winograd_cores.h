#pragma once

#include <cstddef>

#include "qrt_core/kernel/conv/steps/conv_params.h"

namespace marlo::kernel::conv {

/// A 3 x 3 convolution at stride 1 in C8HW8 by minimal filtering, F(m x m, 3 x 3), with any paddings and
/// an epilogue. It takes the input itself and starts from the bias.
/// @param task its weights are transformed and packed by `pack_filters`
/// @param scratch for each element of a tile, (m + 2)^2 of them, and each of `tiles`, the channels of the
///   input and those of the widest group of output channels
/// @param tiles of outputs that are computed at a time, above 0
using WinogradCore = void (*)(const ConvTask& task, float* scratch, size_t tiles) noexcept;

/// Groups of 16 and 8 output channels.
void winograd_4x4_fma(const ConvTask& task, float* scratch, size_t tiles) noexcept;
void winograd_6x6_fma(const ConvTask& task, float* scratch, size_t tiles) noexcept;

/// Groups of 32, 16 and 8 output channels.
void winograd_4x4_avx512(const ConvTask& task, float* scratch, size_t tiles) noexcept;
void winograd_6x6_avx512(const ConvTask& task, float* scratch, size_t tiles) noexcept;

}  // namespace marlo::kernel::conv
