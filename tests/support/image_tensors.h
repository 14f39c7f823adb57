#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "qrt_core/runtime/tensor/device_cpu.h"
#include "tests/support/guarded_bytes.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/numbers.h"
#include "tests/support/pace.h"
#include "tests/support/test_context.h"

// Pictures as tensors, for tests of the image operations.

namespace marlo::test {

using TensorPointer = std::shared_ptr<runtime::Tensor>;

constexpr uint32_t kLargestSide = 67;

/// Calls `test(height, width)` for all sizes from 1 to 67 in both directions; where everything is slow, for all of one
/// direction beside the sizes where vectors end.
template <typename Test>
void for_each_size(Test&& test) {
  if (runs_slowly()) {
    const std::vector<uint32_t> others{1, 2, 15, 16, 17, 33, kLargestSide};
    for (uint32_t side = 1; side <= kLargestSide; ++side) {
      for (const uint32_t other : others) {
        test(side, other);
        test(other, side);
      }
    }
    return;
  }
  for (uint32_t height = 1; height <= kLargestSide; ++height) {
    for (uint32_t width = 1; width <= kLargestSide; ++width) test(height, width);
  }
}

/// Random bytes that are the same on every machine.
inline std::vector<uint8_t> random_bytes(size_t count, uint32_t seed) {
  std::mt19937 engine(seed);
  std::vector<uint8_t> bytes(count);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(engine() >> 11);
  return bytes;
}

/// Makes tensors for image operations. Inputs and outputs end where a page without access begins.
class ImageTensors {
 public:
  using Dims = std::vector<uint32_t>;

  explicit ImageTensors(size_t alignment = 4) : context_(alignment) {}

  operator std::shared_ptr<runtime::Context>() const { return context_; }
  const std::shared_ptr<runtime::DeviceCPU>& device() const { return context_.device(); }
  HostilePool& pool() { return context_.pool(); }

  /// An external tensor over a copy of `bytes`, whatever its dims say.
  TensorPointer input(const Dims& dims, runtime::DataType type, runtime::LayoutType layout,
                      const void* bytes, size_t size) {
    const auto buffer = std::make_shared<GuardedBytes>(size);
    if (size > 0) std::memcpy(buffer->data(), bytes, size);
    const auto tensor = device()->CreateTensorExternal({dims, type, layout}, buffer->data());
    // The buffer goes with the tensor.
    return {tensor.get(), [tensor, buffer](runtime::Tensor*) {}};
  }

  TensorPointer bytes(const Dims& dims, runtime::LayoutType layout,
                      const std::vector<uint8_t>& values) {
    return input(dims, runtime::DataType::UINT8, layout, values.data(), values.size());
  }

  TensorPointer floats(const Dims& dims, runtime::LayoutType layout,
                       const std::vector<float>& values) {
    return input(dims, runtime::DataType::FLOAT32, layout, values.data(),
                 values.size() * sizeof(float));
  }

  /// An external tensor whose bytes are all `fill`.
  TensorPointer output(const Dims& dims, runtime::DataType type, runtime::LayoutType layout,
                       uint8_t fill = 0xA5) {
    const std::vector<uint8_t> bytes(runtime::ByteSize({dims, type, layout}), fill);
    return input(dims, type, layout, bytes.data(), bytes.size());
  }

  TensorPointer byte_output(const Dims& dims, runtime::LayoutType layout, uint8_t fill = 0xA5) {
    return output(dims, runtime::DataType::UINT8, layout, fill);
  }

 private:
  TestContext context_;
};

/// The bytes of a tensor.
inline std::vector<uint8_t> bytes_of(const TensorPointer& tensor) {
  const auto* first = static_cast<const uint8_t*>(tensor->handle.cpu);
  return {first, first + runtime::ByteSize(tensor->shape)};
}

/// Whether two arrays are the same; tells of the first difference.
template <typename T>
testing::AssertionResult same_elements(const std::vector<T>& found,
                                       const std::vector<T>& expected) {
  if (found.size() != expected.size()) {
    return testing::AssertionFailure()
           << found.size() << " elements instead of " << expected.size();
  }
  const auto [a, b] = std::mismatch(found.begin(), found.end(), expected.begin());
  if (a == found.end()) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "element " << a - found.begin() << " of " << found.size()
                                     << " is " << +*a << " instead of " << +*b;
}

/// What a failed operation said.
struct Refusal {
  std::string text;                ///< of the exception; empty if there was none
  std::vector<std::string> lines;  ///< that were logged
};

inline Refusal refusal_of(const std::function<void()>& operation) {
  LogCapture log;
  Refusal refusal;
  refusal.text = failure_of(operation);
  refusal.lines = log.lines();
  return refusal;
}

/// Expects an operation to fail with a message, which is logged too.
inline void expect_message(const std::string& message, const std::function<void()>& operation) {
  const Refusal refusal = refusal_of(operation);
  EXPECT_EQ(refusal.text, "[QRT]: " + message + "\n");
  EXPECT_EQ(refusal.lines, std::vector<std::string>{"[QRT]: " + message + "\n"});
}

/// Expects an operation to fail without a message and without a line in the log.
inline void expect_silent_failure(const std::function<void()>& operation) {
  const Refusal refusal = refusal_of(operation);
  EXPECT_EQ(refusal.text, "[QRT]: ");
  EXPECT_TRUE(refusal.lines.empty());
}

}  // namespace marlo::test
