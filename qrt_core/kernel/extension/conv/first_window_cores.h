#pragma once

#include "qrt_core/kernel/conv/steps/conv_params.h"

namespace marlo::kernel::conv {

/// A convolution from planes to C8HW8 of any window, stride, dilation and paddings, with an epilogue. It
/// takes the input itself, starts from the bias, and fuses products and sums.
/// @param lines room for the lines under a window of all planes, as wide as the padded input
using FirstWindowCore = void (*)(const ConvTask& task, float* lines) noexcept;

/// Weights [group][channel][row][column][width] in widths of 16 and 8.
void first_window_fma(const ConvTask& task, float* lines) noexcept;

/// Widths of 32, 16 and 8.
void first_window_avx512(const ConvTask& task, float* lines) noexcept;

}  // namespace marlo::kernel::conv
