#pragma once

#include "qrt_core/kernel/conv/steps/conv_params.h"

// Depthwise convolutions: each channel has a filter of its own. Channels are those that
// `Conv2dParams::groups` fills blocks with. Over planes the input is padded and the sums are added
// onto the output. Over blocks the input has no margins: what lies outside is multiplied as zero,
// read from `zeros`, a row of the input's width or at least of one pixel; the sums start from the
// bias or zero and are written.

namespace marlo::kernel::conv {

/// @name Four lanes
/// @{
void depthwise_3x3_chw_sse(const ConvTask& task) noexcept;
void depthwise_3x3_stride2_chw_sse(const ConvTask& task) noexcept;
void depthwise_3x3_c4_sse(const ConvTask& task, const float* zeros) noexcept;
void depthwise_3x3_stride2_c4_sse(const ConvTask& task, const float* zeros) noexcept;
/// @}

/// @name Eight lanes, unfused
/// @{
void depthwise_3x3_stride2_c8_avx(const ConvTask& task, const float* zeros) noexcept;
void depthwise_5x5_c8_avx(const ConvTask& task, const float* zeros) noexcept;
void depthwise_5x5_stride2_c8_avx(const ConvTask& task, const float* zeros) noexcept;
/// @}

/// @name Eight lanes, fused
/// @{
void depthwise_3x3_c8_fma(const ConvTask& task, const float* zeros) noexcept;
/// Pairs of pixels in pairs of rows are fused; an odd last column and row aren't.
void depthwise_3x3_c4_fma(const ConvTask& task, const float* zeros) noexcept;
void depthwise_3x3_stride2_c4_fma(const ConvTask& task, const float* zeros) noexcept;
/// @}

}  // namespace marlo::kernel::conv
