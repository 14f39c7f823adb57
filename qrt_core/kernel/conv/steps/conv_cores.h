#pragma once

#include "qrt_core/kernel/conv/steps/conv_params.h"

namespace marlo::runtime {
class DeviceCPU;
}

namespace marlo::kernel::conv {

/// Adds a convolution onto `task.output`.
using Core = void (*)(const ConvTask& task) noexcept;

/// A convolution in several steps with tensors of its own between them, which come from `device`.
/// @throws whatever the device throws when it has no memory
using Method = void (*)(const ConvTask& task, runtime::DeviceCPU& device);

/// Any kernel, stride, dilation and groups. Each input channel's window is summed from zero in row
/// order, and the sum is then added to the output.
void direct_portable(const ConvTask& task) noexcept;

/// The transposed form of any of these, as a gather without a padded copy: the filter runs
/// backwards over the inputs that reach an output, and each product is added to the output at once.
void transposed_portable(const ConvTask& task) noexcept;

}  // namespace marlo::kernel::conv
