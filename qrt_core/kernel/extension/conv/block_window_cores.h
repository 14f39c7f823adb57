#pragma once

#include "qrt_core/kernel/conv/steps/conv_params.h"

namespace marlo::kernel::conv {

// Convolutions in C8HW8 of any window, stride, dilation, padding and groups of whole blocks, with an
// epilogue. They take the input itself, start from the bias, and fuse products and sums.

/// Weights packed in widths of 16 and 8 output channels.
void block_window_fma(const ConvTask& task) noexcept;

/// Weights packed in widths of 32, 16 and 8 output channels.
void block_window_avx512(const ConvTask& task) noexcept;

}  // namespace marlo::kernel::conv
