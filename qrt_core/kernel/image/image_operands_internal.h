#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <memory>

#include "qrt_core/runtime/tensor/tensor.h"
#include "qrt_core/utility/log.h"

// What the image operations and functions check of their tensors.
//
// Many operations are documented to check nothing. What would lead them out of a buffer is refused
// all the same, with a text that begins with the operation's name.

namespace marlo::kernel::image {

using runtime::DataType;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::Tensor;
using runtime::TensorCPU;

/// Height and width in pixels.
struct Size {
  uint32_t height = 0;
  uint32_t width = 0;
  bool operator==(const Size&) const = default;
  uint64_t pixels() const { return static_cast<uint64_t>(height) * width; }
  Size turned() const { return {width, height}; }
};

/// The product, or the largest number where it is larger.
inline uint64_t saturated_product(uint64_t a, uint64_t b) {
  uint64_t product = 0;
  return __builtin_mul_overflow(a, b, &product) ? std::numeric_limits<uint64_t>::max() : product;
}

/// Bytes of a tensor's buffer, without the 32-bit limit of `ByteSize`.
inline uint64_t buffer_bytes(const Tensor& tensor) {
  uint64_t bytes = runtime::ElementSize(tensor.shape.data_type);
  for (const uint32_t size : tensor.shape.dims) bytes = saturated_product(bytes, size);
  return bytes;
}

inline bool has_layout(const Tensor& tensor, LayoutType layout) {
  return tensor.shape.layout == layout;
}

inline bool in_main_memory(const Tensor& tensor) {
  return tensor.shape.location == LocationType::MainMemory;
}

/// Fails with "operation: text" unless `condition` holds.
inline void demand(bool condition, const char* operation, const char* text) {
  if (!condition) utility::Assert(false, "%s: %s", operation, text);
}

/// Fails without a message unless `condition` holds.
inline void demand_silently(bool condition) { utility::Assert(condition, nullptr); }

/// The input or the output of a class's operation.
/// @throws std::runtime_error for a null pointer, and for a tensor that isn't a `TensorCPU`
inline TensorCPU& operand(const std::shared_ptr<Tensor>& tensor, const char* operation) {
  auto* const found = dynamic_cast<TensorCPU*>(tensor.get());
  demand(found != nullptr, operation, "both tensors must be tensors of the CPU");
  return *found;
}

/// Two sizes of a tensor, from dims[first] on.
/// @throws std::runtime_error for a tensor of fewer dims
inline Size size_at(const Tensor& tensor, size_t first, const char* operation) {
  const auto& dims = tensor.shape.dims;
  if (dims.size() < first + 2) {
    utility::Assert(false, "%s: a tensor has %zu dims, and %zu are needed", operation, dims.size(),
                    first + 2);
  }
  return {dims[first], dims[first + 1]};
}

/// Fails unless the buffer of a tensor holds `bytes`.
inline void demand_bytes(const Tensor& tensor, uint64_t bytes, const char* operation) {
  if (bytes <= buffer_bytes(tensor) && bytes < std::numeric_limits<uint64_t>::max()) return;
  utility::Assert(false, "%s: a tensor of %llu bytes is too small, %llu bytes are needed",
                  operation, static_cast<unsigned long long>(buffer_bytes(tensor)),
                  static_cast<unsigned long long>(bytes));
}

template <typename T>
const T* elements(const Tensor& tensor) {
  return static_cast<const T*>(tensor.handle.cpu);
}

template <typename T>
T* elements(Tensor& tensor) {
  return static_cast<T*>(tensor.handle.cpu);
}

/// Truncates toward zero. Numbers beyond 2^30, which no coordinate needs, become +-2^30, and NaN
/// becomes -2^30.
inline int truncated(float number) {
  constexpr float kLimit = 0x1p30f;
  if (!(number > -kLimit)) return static_cast<int>(-kLimit);
  return static_cast<int>(number < kLimit ? number : kLimit);
}

}  // namespace marlo::kernel::image
