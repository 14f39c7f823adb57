#pragma once

#include <cstddef>

#include "qrt_core/kernel/conv/steps/conv_params.h"

namespace marlo::kernel::conv {

/// How many output channels are computed together; what is left of them is one narrower group.
inline constexpr size_t kLastChannels = 4;

// Convolutions from C8HW8 to planes, a few of them as a rule, of any window, stride, dilation and
// paddings, with an epilogue. A sum's lanes are the channels of a block: each adds up its products over
// blocks, rows and columns in this order, fused, and at the end the lanes and the bias are added.
// Weights are [out / kLastChannels][in / 8][row][column][out % kLastChannels][in % 8].

void last_window_fma(const ConvTask& task) noexcept;

/// Two pixels in a vector.
void last_window_avx512(const ConvTask& task) noexcept;

}  // namespace marlo::kernel::conv
