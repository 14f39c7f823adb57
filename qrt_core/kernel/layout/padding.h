#pragma once

#include <cstdint>
#include <memory>

#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_core/runtime/tensor/tensor.h"
#include "qrt_core/utility/export.h"

namespace marlo::kernel {

/// The widths of a frame. Plain data: any number of threads may read it while none changes it.
struct Frame {
  uint32_t left = 0;    ///< before each row
  uint32_t right = 0;   ///< behind each row
  uint32_t top = 0;     ///< rows above the picture
  uint32_t bottom = 0;  ///< rows below it

  /// Whether nothing is framed.
  bool is_empty() const { return left == 0 && right == 0 && top == 0 && bottom == 0; }
};

/// Copies `planes` pictures of `height` rows of `width` floats into a frame of `value`; `frame`
/// counts floats in the horizontal direction. Rows are copied whole, and only the frame is filled.
QRT_API void frame_planes(const float* from, size_t planes, size_t height, size_t width,
                          const Frame& frame, float value, float* to) noexcept;

/// @name Padding of planes
/// A new tensor from `device` with the picture of `input` inside a margin of `left`, `right`, `top`
/// and `bottom` pixels that holds `value`: [C, H, W] becomes [C, H + top + bottom, W + left +
/// right], and blocked forms likewise. Also without any margin it is a copy.
/// @return null unless `input` is a FLOAT32 tensor of the layout in the name, in main memory
/// @throws std::runtime_error without a device, and for a picture that no tensor can hold
/// @{
QRT_API std::shared_ptr<runtime::TensorCPU> Padding_HW_MainMemory_CHW_Float_Fallback_M1(
    std::shared_ptr<runtime::TensorCPU> input, uint32_t left, uint32_t right, uint32_t top,
    uint32_t bottom, float value, std::shared_ptr<runtime::DeviceCPU> device);
QRT_API std::shared_ptr<runtime::TensorCPU> Padding_HW_MainMemory_C4HW4_Float_SSE_M1(
    std::shared_ptr<runtime::TensorCPU> input, uint32_t left, uint32_t right, uint32_t top,
    uint32_t bottom, float value, std::shared_ptr<runtime::DeviceCPU> device);
QRT_API std::shared_ptr<runtime::TensorCPU> Padding_HW_MainMemory_C8HW8_Float_SSE_M1(
    std::shared_ptr<runtime::TensorCPU> input, uint32_t left, uint32_t right, uint32_t top,
    uint32_t bottom, float value, std::shared_ptr<runtime::DeviceCPU> device);
QRT_API std::shared_ptr<runtime::TensorCPU> Padding_HW_MainMemory_C8HW8_Float_AVX_M1(
    std::shared_ptr<runtime::TensorCPU> input, uint32_t left, uint32_t right, uint32_t top,
    uint32_t bottom, float value, std::shared_ptr<runtime::DeviceCPU> device);
QRT_API std::shared_ptr<runtime::TensorCPU> Padding_HW_MainMemory_C8HW8_Float_AVX_M2(
    std::shared_ptr<runtime::TensorCPU> input, uint32_t left, uint32_t right, uint32_t top,
    uint32_t bottom, float value, std::shared_ptr<runtime::DeviceCPU> device);
/// @}

/// @name Padding of planes with zeros
/// As above with a value of 0.
/// @{
QRT_API std::shared_ptr<runtime::TensorCPU> Padding_HW_MainMemory_CHW_Float_AVX_M1(
    std::shared_ptr<runtime::TensorCPU> input, uint32_t left, uint32_t right, uint32_t top,
    uint32_t bottom, std::shared_ptr<runtime::DeviceCPU> device);
/// @}

/// Padding of rows: [C, L] becomes [C, front + L + back].
/// @return null unless `input` is a FLOAT32 tensor of layout CL in main memory
/// @throws std::runtime_error without a device, and for a row that no tensor can hold
QRT_API std::shared_ptr<runtime::TensorCPU> Padding_L_MainMemory_CL_Float_Fallback_M1(
    std::shared_ptr<runtime::TensorCPU> input, uint32_t front, uint32_t back, float value,
    std::shared_ptr<runtime::DeviceCPU> device);

}  // namespace marlo::kernel
