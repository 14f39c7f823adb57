#pragma once

#include "qrt_core/kernel/conv/steps/conv_params.h"

namespace marlo::kernel::conv {

// Depthwise convolutions in C8HW8 with an epilogue, as those of conv/depthwise_cores.h: `zeros` holds a
// row of the input. Products and sums are fused.

void block_depthwise_3x3_fma(const ConvTask& task, const float* zeros) noexcept;
void block_depthwise_3x3_stride2_fma(const ConvTask& task, const float* zeros) noexcept;
void block_depthwise_5x5_fma(const ConvTask& task, const float* zeros) noexcept;
void block_depthwise_5x5_stride2_fma(const ConvTask& task, const float* zeros) noexcept;
void block_depthwise_7x7_fma(const ConvTask& task, const float* zeros) noexcept;

/// Any window, stride and dilation; taps outside of the picture are left out.
void block_depthwise_any_fma(const ConvTask& task) noexcept;

/// Windows of one pixel: a factor and a summand for each channel. The output may be the input.
void block_scale_fma(const ConvTask& task) noexcept;

// Two pixels share a vector of the windows of 5 and 7 at stride 1.
void block_depthwise_3x3_avx512(const ConvTask& task, const float* zeros) noexcept;
void block_depthwise_3x3_stride2_avx512(const ConvTask& task, const float* zeros) noexcept;
void block_depthwise_5x5_avx512(const ConvTask& task, const float* zeros) noexcept;
void block_depthwise_5x5_stride2_avx512(const ConvTask& task, const float* zeros) noexcept;
void block_depthwise_7x7_avx512(const ConvTask& task, const float* zeros) noexcept;

}  // namespace marlo::kernel::conv
