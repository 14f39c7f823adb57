#pragma once

#include "qrt_core/kernel/conv/steps/conv_params.h"

// Transposed 3x3 convolutions at stride 2, onto the full result: input (i, j) times the filter goes
// to the outputs from (2 i, 2 j) on. All of them add onto the output.

namespace marlo::kernel::conv {

// An output reads one, two or four taps, after whether its row and column are odd and whether it
// stands at an edge; sums take the input planes or blocks in order.

/// Weights are [out, in, 3, 3].
void scatter_chw_sse(const ConvTask& task) noexcept;

/// @name Over blocks
/// @{
void scatter_c4_sse(const ConvTask& task) noexcept;
void scatter_c8_avx(const ConvTask& task) noexcept;
/// @}

}  // namespace marlo::kernel::conv
