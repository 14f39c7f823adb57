#pragma once

#include "qrt_core/kernel/conv/steps/conv_cores.h"

namespace marlo::kernel::conv {

/// @name F(2 x 2, 3 x 3)
/// Both give the same bits: of a tile's 16 elements each is summed from zero over the input
/// channels in their order, product by product. `task.input` is padded to an even size,
/// `task.weight` holds transformed filters.
/// @{
void winograd_by_filter_sse(const ConvTask& task, runtime::DeviceCPU& device);
/// Two output channels at a time, which halves the reading of transformed inputs.
void winograd_by_filter_pairs_sse(const ConvTask& task, runtime::DeviceCPU& device);
/// @}

}  // namespace marlo::kernel::conv
