#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/engine/kernel.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

// What tests of kernels that only move data share: elements that can't be mistaken for each other,
// and where the element of a channel and a pixel stands.

namespace marlo::test {

/// `count` floats of all kinds, NaNs and denormals among them, no two with the same bits.
inline std::vector<float> distinct_floats(size_t count) {
  std::vector<float> numbers(count);
  for (size_t i = 0; i < count; ++i) {
    numbers[i] = float_of(static_cast<uint32_t>(i) * 2654435761u + 0x12345677u);
  }
  return numbers;
}

/// The bytes of a tensor.
inline std::vector<unsigned char> bytes_of(const runtime::Tensor& tensor) {
  std::vector<unsigned char> bytes(runtime::ByteSize(tensor.shape));
  if (!bytes.empty()) std::memcpy(bytes.data(), tensor.handle.cpu, bytes.size());
  return bytes;
}

/// Expects the same bits at each index.
inline void expect_same_bits(const std::vector<float>& expected, const std::vector<float>& found) {
  ASSERT_EQ(expected.size(), found.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    ASSERT_EQ(bits_of(expected[i]), bits_of(found[i])) << "at element " << i;
  }
}

/// A stack of planes whose channels stand in blocks of `block`; 1 for planes.
struct BlockedDims {
  uint32_t channels;
  uint32_t height;
  uint32_t width;
  uint32_t block;

  size_t pixels() const { return static_cast<size_t>(height) * width; }

  size_t blocks() const { return (channels + block - 1) / block; }

  std::vector<uint32_t> dims() const {
    if (block == 1) return {channels, height, width};
    return {static_cast<uint32_t>(blocks()), height, width, block};
  }

  /// Place of channel c, row h, column w among all elements.
  size_t place(size_t c, size_t h, size_t w) const {
    return ((c / block * height + h) * width + w) * block + c % block;
  }
};

/// `source` rearranged; channels that only fill the last block become zero.
template <typename Element>
std::vector<Element> rearranged(const std::vector<Element>& source, const BlockedDims& from,
                                const BlockedDims& to) {
  std::vector<Element> target(to.blocks() * to.block * to.pixels(), Element{0});
  for (size_t c = 0; c < from.channels; ++c) {
    for (size_t h = 0; h < from.height; ++h) {
      for (size_t w = 0; w < from.width; ++w) {
        target[to.place(c, h, w)] = source[from.place(c, h, w)];
      }
    }
  }
  return target;
}

/// A tensor of any data type that holds the numbers 1, 2, 3 ... as bytes, modulo 251.
inline std::shared_ptr<runtime::TensorCPU> counting_tensor(TestContext& context,
                                                           runtime::TensorShape shape) {
  std::vector<unsigned char> bytes(runtime::ByteSize(shape) + 1);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i % 251 + 1);
  return context.device()->CreateTensor(std::move(shape), bytes.data());
}

/// An empty tensor of a shape.
inline std::shared_ptr<runtime::TensorCPU> blank(
    TestContext& context, std::vector<uint32_t> dims, runtime::LayoutType layout,
    runtime::DataType type = {},
    runtime::LocationType location = runtime::LocationType::MainMemory) {
  return context.device()->CreateTensor(
      runtime::TensorShape(std::move(dims), type, layout, location), nullptr);
}

/// The one output that a kernel appends for one input.
inline std::shared_ptr<runtime::Tensor> output_of(runtime::IKernel& kernel,
                                                  const std::shared_ptr<runtime::Tensor>& input,
                                                  TestContext& context) {
  runtime::IKernel::Tensors outputs;
  EXPECT_EQ(kernel.Forward({input}, outputs, context), 0);
  EXPECT_EQ(outputs.size(), 1u);
  return outputs.empty() ? nullptr : outputs[0];
}

}  // namespace marlo::test
