#pragma once

#include "qrt_core/kernel/conv/conv_params.h"

// Depthwise convolutions over a padded input: each channel has a filter of its own. Channels are
// those that `Conv2dParams::groups` fills blocks with. Over planes they add onto the output; over
// blocks they start from the bias or zero and write it.

namespace marlo::kernel::conv {

/// @name Four lanes
/// @{
void depthwise_3x3_chw_sse(const ConvTask& task) noexcept;
void depthwise_3x3_stride2_chw_sse(const ConvTask& task) noexcept;
void depthwise_3x3_c4_sse(const ConvTask& task) noexcept;
/// @}

/// @name Eight lanes, unfused
/// @{
void depthwise_3x3_c8_avx(const ConvTask& task) noexcept;
void depthwise_5x5_c8_avx(const ConvTask& task) noexcept;
/// @}

/// @name Eight lanes, fused
/// @{
void depthwise_3x3_c8_fma(const ConvTask& task) noexcept;
/// Pairs of pixels in pairs of rows are fused; an odd last column and row aren't.
void depthwise_3x3_c4_fma(const ConvTask& task) noexcept;
void depthwise_3x3_stride2_c4_fma(const ConvTask& task) noexcept;
/// @}

}  // namespace marlo::kernel::conv
