#pragma once

#include <memory>

#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_core/runtime/tensor/tensor.h"
#include "qrt_core/utility/export.h"

// Moves between planar and blocked tensors, for use outside of a network.
//
// Element (c, h, w) of a CHW tensor is element (c / n, h, w, c % n) of a CnHWn tensor. Nothing is
// computed: the bytes of each element arrive unchanged.

namespace marlo::kernel {

/// @name Portable conversions
/// A new tensor from `device` with the elements of `input`, of any data type, in the other layout.
///
/// To CHW: [B, H, W, n] becomes [B * n, H, W] with the `extra` of the input. Channels that only
/// fill the last block come out as planes like all others; whoever filled them cuts them off. From
/// CHW: [C, H, W] becomes [C / n rounded up, H, W, n] with a default `extra`; the channels that
/// fill the last block are zero.
/// @return null unless `input` has the layout before `_To_` and is in main memory
/// @throws std::runtime_error if the dims don't fit the layout
/// @{
QRT_API std::shared_ptr<runtime::TensorCPU> Function_Tensor_C4HW4_To_CHW_Fallback(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::DeviceCPU> device);
QRT_API std::shared_ptr<runtime::TensorCPU> Function_Tensor_C8HW8_To_CHW_Fallback(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::DeviceCPU> device);
QRT_API std::shared_ptr<runtime::TensorCPU> Function_Tensor_CHW_To_C4HW4_Fallback(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::DeviceCPU> device);
/// @}

namespace functional {

/// @name Vector conversions
/// The portable conversions for FLOAT32, at the speed of memory. An AVX form needs a processor with
/// AVX.
/// @return null unless `input` has the layout before `_To_` and is in main memory
/// @throws std::runtime_error if the dims don't fit the layout, or if the elements aren't as large
///   as floats
/// @{
QRT_API std::shared_ptr<runtime::TensorCPU> Function_Tensor_C4HW4_To_CHW_SSE(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::DeviceCPU> device);
QRT_API std::shared_ptr<runtime::TensorCPU> Function_Tensor_C8HW8_To_CHW_SSE(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::DeviceCPU> device);
QRT_API std::shared_ptr<runtime::TensorCPU> Function_Tensor_CHW_To_C4HW4_SSE(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::DeviceCPU> device);
QRT_API std::shared_ptr<runtime::TensorCPU> Function_Tensor_C8HW8_To_CHW_AVX(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::DeviceCPU> device);
/// The result holds blocks of 8, [C / 8 rounded up, H, W, 8], but carries the layout code of C4HW4.
/// Callers that hand it on to kernels for C8HW8 set the code themselves.
QRT_API std::shared_ptr<runtime::TensorCPU> Function_Tensor_CHW_To_C8HW8_AVX(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::DeviceCPU> device);
/// @}

/// @name Transforms
/// Fill an existing tensor with the elements of another one. Both hold FLOAT32; the dims are those
/// of the layouts in the name, [C, H, W] and [C / n, H, W, n], with the same pixels on both sides.
/// The blocked tensor, or the one with the larger blocks, says how many channels are moved; the
/// other one has at least as many. Layout codes aren't looked at.
///
/// M1 forms are the simple ones, for small planes; M2 forms are for large ones. The result is the
/// same.
/// @throws std::runtime_error if the tensors don't fit each other or the name
/// @{
QRT_API void LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::TensorCPU> output);
QRT_API void LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::TensorCPU> output);
QRT_API void LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::TensorCPU> output);
QRT_API void LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::TensorCPU> output);
QRT_API void LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::TensorCPU> output);
QRT_API void LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M2(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::TensorCPU> output);
QRT_API void LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::TensorCPU> output);
QRT_API void LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::TensorCPU> output);
QRT_API void LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::TensorCPU> output);
QRT_API void LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M2(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::TensorCPU> output);
QRT_API void LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M1(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::TensorCPU> output);
QRT_API void LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2(
    std::shared_ptr<runtime::TensorCPU> input, std::shared_ptr<runtime::TensorCPU> output);
/// @}

}  // namespace functional
}  // namespace marlo::kernel
