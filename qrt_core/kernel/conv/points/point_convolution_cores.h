#pragma once

#include "qrt_core/kernel/conv/steps/conv_params.h"

// 1x1 convolutions as products of matrices. All of them start from the bias in the task, or from
// zero, and write every output that has weights. Strides are those in the task's parameters, 1 or 2
// as the name says; there is no padding.
//
// A sum begins with the bias and takes the input channels in order, unless said otherwise: kernels
// that agree in fusing agree to the last bit.

namespace marlo::kernel::conv {

/// @name Four lanes
/// @{
void point_chw_sse(const ConvTask& task) noexcept;
void point_c4_m1_sse(const ConvTask& task) noexcept;
void point_c4_m2_sse(const ConvTask& task) noexcept;
void point_c8_sse(const ConvTask& task) noexcept;
void point_stride2_chw_sse(const ConvTask& task) noexcept;
void point_stride2_c4_sse(const ConvTask& task) noexcept;
void point_stride2_c8_sse(const ConvTask& task) noexcept;
/// @}

/// @name Eight lanes, unfused
/// @{
void point_stride2_c8_avx(const ConvTask& task) noexcept;
/// Sums lane by lane over the blocks of input channels, then over the lanes.
void point_c8_to_chw_avx(const ConvTask& task) noexcept;
/// @}

/// @name Eight lanes, fused
/// @{
void point_chw_fma(const ConvTask& task) noexcept;
void point_c8_m1_fma(const ConvTask& task) noexcept;
/// The last pixels, as many as don't fill a group of eight, are not fused.
void point_c8_m2_fma(const ConvTask& task) noexcept;
void point_c8_m3_fma(const ConvTask& task) noexcept;
/// @}

/// @name Eight lanes, fused, over weights with the input channel fastest
/// These sum lane by lane over the blocks of input channels, then over the lanes.
/// @{
void point_c4_fma(const ConvTask& task) noexcept;
void point_c8_to_c4_fma(const ConvTask& task) noexcept;
void point_c4_to_c8_fma(const ConvTask& task) noexcept;
/// @}

/// By `Sgemm`, in whose order it sums; the bias is added to the result.
void point_chw_sgemm(const ConvTask& task) noexcept;

}  // namespace marlo::kernel::conv
