#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "qrt_core/runtime/tensor/tensor.h"
#include "qrt_core/utility/export.h"
#include "qrt_core/utility/half.h"

namespace marlo::runtime {

/// The elements of a tensor, in the order of its memory. They belong to the tensor, which must live
/// as long as they are used, and with it to one thread while they are written.
template <typename T>
class Elements {
 public:
  using value_type = std::remove_const_t<T>;  ///< as containers have it
  using iterator = T*;                        ///< as containers have it
  using const_iterator = T*;                  ///< the same: a view's constness is its elements'

  /// Of `size` elements from `data` on.
  Elements(T* data, size_t size) : data_(data), size_(size) {}

  /// The first one.
  T* data() const { return data_; }
  /// How many there are.
  size_t size() const { return size_; }
  /// Whether there are none.
  bool empty() const { return size_ == 0; }
  /// The first one, for loops.
  T* begin() const { return data_; }
  /// Behind the last one, for loops.
  T* end() const { return data_ + size_; }
  /// The one at `index`, which isn't checked.
  T& operator[](size_t index) const { return data_[index]; }

 private:
  T* data_;
  size_t size_;
};

/// The data type of the elements that `T` is the type of.
template <typename T>
constexpr DataType DataTypeOf() {
  if constexpr (std::is_same_v<T, float>) {
    return DataType::FLOAT32;
  } else if constexpr (std::is_same_v<T, half_float::half>) {
    return DataType::FLOAT16;
  } else if constexpr (std::is_same_v<T, int32_t>) {
    return DataType::INT32;
  } else if constexpr (std::is_same_v<T, int16_t>) {
    return DataType::INT16;
  } else if constexpr (std::is_same_v<T, int8_t>) {
    return DataType::INT8;
  } else if constexpr (std::is_same_v<T, uint32_t>) {
    return DataType::UINT32;
  } else if constexpr (std::is_same_v<T, uint16_t>) {
    return DataType::UINT16;
  } else {
    static_assert(std::is_same_v<T, uint8_t>, "no tensor has elements of this type");
    return DataType::UINT8;
  }
}

/// How many elements a tensor has, after a test that they are of `type` and can be read here.
/// `elements` calls it.
/// @throws std::runtime_error for a null pointer, another data type, a tensor that isn't in main
///   memory, or one without a buffer
[[nodiscard]] QRT_API size_t CountElements(const Tensor* tensor, DataType type);

/// The elements of a tensor as numbers of type `T`.
///
/// @code
/// for (float logit : elements<float>(*results.at(output)[0])) sum += std::exp(logit);
/// @endcode
///
/// @tparam T float, half_float::half, or an integer of 8, 16 or 32 bits, that of the tensor's data
///   type
/// @throws std::runtime_error if the tensor has another data type or isn't in main memory
template <typename T>
[[nodiscard]] Elements<const T> elements(const Tensor& tensor) {
  const size_t size = CountElements(&tensor, DataTypeOf<std::remove_const_t<T>>());
  return {static_cast<const T*>(tensor.handle.cpu), size};
}

/// The same, to be written.
template <typename T>
[[nodiscard]] Elements<T> elements(Tensor& tensor) {
  const size_t size = CountElements(&tensor, DataTypeOf<std::remove_const_t<T>>());
  return {static_cast<T*>(tensor.handle.cpu), size};
}

/// The same for a shared pointer to a tensor, which is const where the tensor is.
/// @throws std::runtime_error for a null pointer too
template <typename T, typename AnyTensor>
[[nodiscard]] auto elements(const std::shared_ptr<AnyTensor>& tensor) {
  (void)CountElements(tensor.get(), DataTypeOf<std::remove_const_t<T>>());
  return elements<T>(*tensor);
}

}  // namespace marlo::runtime
