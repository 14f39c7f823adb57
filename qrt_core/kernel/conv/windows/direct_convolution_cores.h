#pragma once

#include <cstddef>

#include "qrt_core/kernel/conv/steps/conv_params.h"

// Convolutions with small windows over a padded input. They add onto the output, but for those from
// planes to blocks, which start from the bias or zero and write it; they take window and stride
// from the task's parameters, and know no groups and no dilation.

namespace marlo::kernel::conv {

/// Columns that are gathered and multiplied together.
constexpr size_t kWindowColumns = 32;

/// @name Four lanes
/// @{
void window_chw_sse(const ConvTask& task) noexcept;
void window_stride2_chw_sse(const ConvTask& task) noexcept;
void window_c4_sse(const ConvTask& task) noexcept;        ///< for large planes
void window_c4_depth_sse(const ConvTask& task) noexcept;  ///< for small planes
void window_c8_sse(const ConvTask& task) noexcept;
void window_chw_to_c4_sse(const ConvTask& task) noexcept;
/// @}

/// @name Eight lanes, unfused
/// @{
void window_chw_avx(const ConvTask& task) noexcept;
void window_c8_avx(const ConvTask& task) noexcept;
void window_chw_to_c8_avx(const ConvTask& task) noexcept;
/// Leaves an odd last row and an odd last column as they are.
void window_c8_to_chw_avx(const ConvTask& task) noexcept;
/// A product of weights in panels of 8, 4 and 1 output channels with the columns of the input: it
/// starts from the bias and writes the output. `columns` has room for `kWindowColumns` of them, of
/// in_blocks * kernel_y * kernel_x floats each.
void window_columns_avx(const ConvTask& task, float* columns) noexcept;
/// @}

/// @name Eight lanes, fused
/// @{
void window_c4_fma(const ConvTask& task) noexcept;
void window_c8_fma(const ConvTask& task) noexcept;
void window_chw_to_c4_fma(const ConvTask& task) noexcept;
void window_c4_to_chw_fma(const ConvTask& task) noexcept;
/// @}

}  // namespace marlo::kernel::conv
