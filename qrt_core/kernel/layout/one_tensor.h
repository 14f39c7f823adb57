#pragma once

#include <cstring>
#include <memory>
#include <utility>

#include "qrt_core/kernel/kernel_class.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/tensor/device_cpu.h"

// Steps of the kernels that make one tensor of one tensor and compute nothing.

namespace marlo::kernel {

/// The input of a kernel that takes tensors of any data type.
inline const runtime::TensorCPU& any_input(const runtime::IKernel::Tensors& inputs) {
  return static_cast<const runtime::TensorCPU&>(*inputs[0]);
}

/// The shape that a kernel infers from.
/// @throws std::runtime_error unless there is one
inline const runtime::TensorShape& any_shape(const char* kernel,
                                             const KernelFamily::Shapes& shapes) {
  utility::Assert(!shapes.empty(), "%s: the shape of the input is missing", kernel);
  return shapes[0];
}

/// Whether a tensor of shape `to` has more elements than one of shape `from`.
inline bool grows(const runtime::TensorShape& from, const runtime::TensorShape& to) {
  uint64_t count = 1;
  for (const uint32_t size : to.dims) {
    if (size == 0) return false;
    if (count <= runtime::ElementCount(from)) count *= size;
  }
  return count > runtime::ElementCount(from);
}

/// @throws std::runtime_error if an output of `shape` would need more bytes than its input has
inline void refuse_growth(const char* kernel, const runtime::TensorShape& input,
                          const runtime::TensorShape& shape) {
  utility::Assert(!grows(input, shape),
                  "%s: the new shape has more elements than the %u of the input", kernel,
                  runtime::ElementCount(input));
}

/// Appends an output of `shape` that holds the first bytes of the input.
inline void append_copy(const char* kernel, const runtime::TensorCPU& input,
                        runtime::TensorShape shape, const Pass& pass,
                        runtime::IKernel::Tensors& outputs) {
  refuse_growth(kernel, input.shape, shape);
  auto output = pass.create(std::move(shape));
  const uint32_t bytes = runtime::ByteSize(output->shape);
  if (bytes != 0) std::memcpy(output->RawPointer(), input.RawPointer(), bytes);
  outputs.push_back(std::move(output));
}

/// Appends an output of `shape` with the first bytes of the input: the input itself, if `row` may
/// write over it, or a copy.
inline void append_reshaped(const KernelRow& row, const runtime::IKernel::Tensors& inputs,
                            runtime::TensorShape shape, const Pass& pass,
                            runtime::IKernel::Tensors& outputs) {
  if (row.input_use == runtime::InputUse::reads) {
    append_copy(row.name, any_input(inputs), std::move(shape), pass, outputs);
    return;
  }
  refuse_growth(row.name, inputs[0]->shape, shape);
  outputs.push_back(inputs[0]);
  static_cast<runtime::TensorCPU&>(*outputs.back()).TakeShape(std::move(shape));
}

}  // namespace marlo::kernel
