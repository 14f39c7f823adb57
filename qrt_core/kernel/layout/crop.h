#pragma once

#include <cstdint>
#include <memory>

#include "qrt_core/kernel/layout/padding.h"
#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_core/runtime/tensor/tensor.h"

namespace marlo::kernel {

/// Copies what lies inside a frame, of `planes` pictures of `height` rows of `width` floats with
/// the frame; `frame` counts floats in the horizontal direction.
void crop_planes(const float* from, size_t planes, size_t height, size_t width, const Frame& frame,
                 float* to) noexcept;

/// @name Cropping of planes
/// A new tensor from `device` with what is left of the picture when `left`, `right`, `top` and
/// `bottom` pixels have been cut off: [C, H, W] becomes [C, H - top - bottom, W - left - right],
/// and blocked forms likewise.
/// @return null unless `input` is a FLOAT32 tensor of the layout in the name, in main memory, from
///   which so much can be cut off
/// @{
std::shared_ptr<runtime::TensorCPU> Crop_HW_MainMemory_CHW_Float_Fallback_M1(
    std::shared_ptr<runtime::TensorCPU> input, uint32_t left, uint32_t right, uint32_t top,
    uint32_t bottom, std::shared_ptr<runtime::DeviceCPU> device);
std::shared_ptr<runtime::TensorCPU> Crop_HW_MainMemory_C4HW4_Float_SSE_M1(
    std::shared_ptr<runtime::TensorCPU> input, uint32_t left, uint32_t right, uint32_t top,
    uint32_t bottom, std::shared_ptr<runtime::DeviceCPU> device);
std::shared_ptr<runtime::TensorCPU> Crop_HW_MainMemory_C8HW8_Float_AVX_M1(
    std::shared_ptr<runtime::TensorCPU> input, uint32_t left, uint32_t right, uint32_t top,
    uint32_t bottom, std::shared_ptr<runtime::DeviceCPU> device);
/// @}

}  // namespace marlo::kernel
