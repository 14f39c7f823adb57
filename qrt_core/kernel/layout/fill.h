#pragma once

#include <cstddef>
#include <memory>

#include "qrt_core/kernel/layout/fill_cores.h"
#include "qrt_core/runtime/tensor/tensor.h"

// The bias of a convolution's output: its initial state, onto which a core adds, or a last step.

namespace marlo::kernel {

/// @name Bias
/// Gives every element of channel c of `output` the c-th value of `bias`, a [groups, channels per
/// group] tensor of layout GN. A blocked form takes 0 for a channel beyond the bias.
/// @return 0, or -2 unless both are FLOAT32 in main memory and of these layouts
/// @{
int FillBias_CHW_Float_Fallback(std::shared_ptr<runtime::TensorCPU> bias,
                                std::shared_ptr<runtime::TensorCPU> output);
int FillBias_CL_Float_Fallback(std::shared_ptr<runtime::TensorCPU> bias,
                               std::shared_ptr<runtime::TensorCPU> output);
int FillBias_CHW_Float_SSE(std::shared_ptr<runtime::TensorCPU> bias,
                           std::shared_ptr<runtime::TensorCPU> output);
int FillBias_C4HW4_Float_SSE(std::shared_ptr<runtime::TensorCPU> bias,
                             std::shared_ptr<runtime::TensorCPU> output);
int FillBias_C8HW8_Float_SSE(std::shared_ptr<runtime::TensorCPU> bias,
                             std::shared_ptr<runtime::TensorCPU> output);
int FillBias_CHW_Float_AVX(std::shared_ptr<runtime::TensorCPU> bias,
                           std::shared_ptr<runtime::TensorCPU> output);
int FillBias_C8HW8_Float_AVX(std::shared_ptr<runtime::TensorCPU> bias,
                             std::shared_ptr<runtime::TensorCPU> output);
/// @}

/// @name Bias after the sum
/// As above, but adds the bias to what the output holds: for kernels whose product leaves no room
/// for an initial state.
/// @{
int AddBias_CHW_Float_SSE(std::shared_ptr<runtime::TensorCPU> bias,
                          std::shared_ptr<runtime::TensorCPU> output);
int AddBias_C8HW8_Float_AVX(std::shared_ptr<runtime::TensorCPU> bias,
                            std::shared_ptr<runtime::TensorCPU> output);
/// @}

/// Runs `core` over each of `planes` planes of `plane_floats` floats with the values of its `block`
/// channels. Where a block is a channel, planes beyond the `channels` values are left alone; other
/// blocks take 0 for channels beyond them.
void fill_channels(const float* values, size_t channels, float* output, size_t planes,
                   size_t plane_floats, size_t block, fill::Core core) noexcept;

/// Clears a tensor.
/// @return 0, or -2 unless it is FLOAT32 in main memory
int FillZero_Float(std::shared_ptr<runtime::TensorCPU> output);

}  // namespace marlo::kernel
