#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/tensor/context.h"

namespace marlo::kernel {

/// Shape of the bias of a convolution.
inline runtime::TensorShape bias_shape(uint32_t groups, uint32_t channels_per_group) {
  return runtime::TensorShape({groups, channels_per_group}, runtime::DataType::FLOAT32,
                              runtime::LayoutType::GN);
}

/// The floats in a Base64 text.
uint64_t numbers_in(const std::string& text);

/// Whether so many numbers are enough for a tensor of these dims.
bool holds(uint64_t numbers, const std::vector<uint32_t>& dims);

/// A FLOAT32 tensor of the numbers in a Base64 text.
/// @return null if the text holds fewer numbers than the shape needs, or without a CPU device
std::shared_ptr<runtime::TensorCPU> decode_weights(const std::string& text,
                                                   const runtime::TensorShape& shape,
                                                   const runtime::Context& context);

}  // namespace marlo::kernel
