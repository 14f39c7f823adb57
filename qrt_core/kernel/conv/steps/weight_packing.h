#pragma once

#include <memory>

#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_core/runtime/tensor/tensor.h"

// Convolution weights in the order in which the cores read them.

namespace marlo::kernel::functional {

/// @name Packing of dense weights
/// A new tensor with the weights of [G, N, C, H, W] in blocks of output channels n and of input
/// channels c. Channels that don't fill a block are left out.
/// @return null unless `weight` is a FLOAT32 tensor of layout GNCHW in main memory
/// @{

/// [G, N/4, C/4, H, W, c, n], layout 12
std::shared_ptr<runtime::TensorCPU> Function_Weight_GNCHW_To_GN4C4HW4n4c_SSE(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
/// [G, N/4, C/4, H, W, n, c], layout 12 too
std::shared_ptr<runtime::TensorCPU> Function_Weight_GNCHW_To_GN4C4HW4n4c_AVX(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
/// [G, N/8, C/8, H, W, c, n], layout 36
std::shared_ptr<runtime::TensorCPU> Function_Weight_GNCHW_To_GN8C8HW8n8c(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
/// [G, N/4, C/8, H, W, n, c], layout 37
std::shared_ptr<runtime::TensorCPU> Function_Weight_GNCHW_To_GN4C8HW8(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
/// [G, N/8, C/4, H, W, n, c], layout 38
std::shared_ptr<runtime::TensorCPU> Function_Weight_GNCHW_To_GN8C4HW4(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
/// [G, N/4, C, H, W, n], layout 19
std::shared_ptr<runtime::TensorCPU> Function_Weight_GNCHW_To_GN4CHWn4(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
/// [G, N/8, C, H, W, n], layout 20
std::shared_ptr<runtime::TensorCPU> Function_Weight_GNCHW_To_GN8CHWn8(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
/// [G, N, C/8, H, W, c], layout 20 too
std::shared_ptr<runtime::TensorCPU> Function_Weight_GNCHW_To_GNC8HWc8(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
/// [G, N, C/4, H, W, c], layout 19 too
std::shared_ptr<runtime::TensorCPU> Function_Weight_GNCHW_To_GNC4HWc4(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
/// @}

/// @name Packing of depthwise weights
/// The same with groups in blocks: groups that don't fill a block are left out.
/// @{

/// [G/4, N, C, H, W, g], layout 17
std::shared_ptr<runtime::TensorCPU> Function_Weight_GNCHW_To_G4NCHWg4(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
/// [G/8, N, C, H, W, g], layout 18
std::shared_ptr<runtime::TensorCPU> Function_Weight_GNCHW_To_G8NCHWg8(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
/// @}

}  // namespace marlo::kernel::functional
