#pragma once

#include "qrt_core/runtime/engine/kernel.h"
#include "qrt_core/runtime/tensor/tensor.h"
#include "qrt_core/utility/log.h"

namespace marlo::kernel {

/// Whether a shape is that of floats in main memory.
inline bool is_float_in_main_memory(const runtime::TensorShape& shape) {
  return shape.data_type == runtime::DataType::FLOAT32 &&
         shape.location == runtime::LocationType::MainMemory;
}

/// Whether a vector holds exactly one tensor, and that in main memory.
inline bool is_one_in_main_memory(const runtime::IKernel::Tensors& tensors) {
  return tensors.size() == 1 && tensors[0] != nullptr &&
         tensors[0]->shape.location == runtime::LocationType::MainMemory;
}

/// Whether a vector holds exactly one FLOAT32 tensor in main memory.
inline bool is_one_float(const runtime::IKernel::Tensors& tensors) {
  return is_one_in_main_memory(tensors) &&
         tensors[0]->shape.data_type == runtime::DataType::FLOAT32;
}

/// Whether a vector holds exactly one FLOAT32 tensor of a layout in main memory.
inline bool is_one_float_of(const runtime::IKernel::Tensors& tensors, runtime::LayoutType layout) {
  return is_one_float(tensors) && tensors[0]->shape.layout == layout;
}

/// A kernel's `CheckConfig` for a verdict.
inline int config_verdict(bool acceptable) {
  return acceptable ? runtime::KERNEL_OK : runtime::KERNEL_REFUSED;
}

/// The result of `CheckInputs` and `CheckOutputs` for a verdict.
inline int tensor_verdict(bool acceptable) {
  return acceptable ? runtime::KERNEL_OK : runtime::KERNEL_BAD_TENSOR;
}

/// The one input of a kernel that reads floats.
/// @throws std::runtime_error unless its elements are as large as floats; the kernel would read
///   beyond any other
inline runtime::TensorCPU& float_input(const char* kernel,
                                       const runtime::IKernel::Tensors& inputs) {
  const bool readable = runtime::ElementSize(inputs[0]->shape.data_type) == sizeof(float);
  if (!readable) utility::Assert(false, "%s: the input must be a FLOAT32 tensor", kernel);
  return static_cast<runtime::TensorCPU&>(*inputs[0]);
}

}  // namespace marlo::kernel
