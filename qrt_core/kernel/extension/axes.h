#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "qrt_core/kernel/kernel_class.h"

// What operators over any axes share: the axes themselves, strides, and dims that broadcast.

namespace marlo::kernel {

class Expectations;

namespace axes {

using Dims = std::vector<uint32_t>;   ///< outermost first
using Strides = std::vector<size_t>;  ///< in elements, as many as dims

/// Whether elements lie in the order of the dims: neither C4HW4 nor C8HW8.
inline bool is_in_order(const runtime::TensorShape& shape) {
  return runtime::BlockSize(shape.layout) == 1;
}

/// Whether inputs are `count` FLOAT32 tensors in main memory, in the order of their dims.
bool are_plain(const KernelFamily::Shapes& inputs, size_t count);
bool are_plain(const runtime::IKernel::Tensors& tensors, size_t count);

/// Notes inputs that aren't.
bool expect_plain(const KernelFamily::Shapes& inputs, size_t count, Expectations& expected);

/// Notes a layout code other than those in which elements lie in the order of the dims: another one
/// would claim what isn't so.
void expect_layout(uint32_t layout, Expectations& expected);

/// The place of an axis among `rank`, counted from the end where it is negative; `rank` for none.
inline size_t axis_of(int32_t axis, size_t rank) {
  const int64_t place = axis < 0 ? axis + static_cast<int64_t>(rank) : axis;
  return place < 0 || place >= static_cast<int64_t>(rank) ? rank : static_cast<size_t>(place);
}

/// Product of the dims from `first` up to `end`.
size_t count_of(const Dims& dims, size_t first, size_t end);
inline size_t count_of(const Dims& dims) { return count_of(dims, 0, dims.size()); }

/// Of dense elements.
Strides strides_of(const Dims& dims);

/// The dims to which both broadcast. @return false if they don't
bool broadcast(const Dims& a, const Dims& b, Dims& result);

/// The strides with which a tensor of `dims` is read along dims that it broadcasts to: 0 where it
/// is repeated.
Strides broadcast_strides(const Dims& dims, const Dims& to);

/// The offset of each combination of indices of `dims` under `strides`, in order.
class Walk {
 public:
  /// At the first combination. Both outlive the walk.
  Walk(const Dims& dims, const Strides& strides) : dims_(dims), strides_(strides) {
    index_.resize(dims.size());
  }
  size_t offset() const { return offset_; }  ///< of the combination, in elements
  void next();                               ///< to the next one; behind the last to the first

 private:
  const Dims& dims_;
  const Strides& strides_;
  Dims index_;
  size_t offset_ = 0;
};

/// The floats of a tensor.
inline const float* floats_of(const runtime::Tensor& tensor) {
  return static_cast<const float*>(static_cast<const runtime::TensorCPU&>(tensor).RawPointer());
}
inline float* floats_of(runtime::Tensor& tensor) {
  return static_cast<float*>(static_cast<runtime::TensorCPU&>(tensor).RawPointer());
}

/// A FLOAT32 tensor of these dims, without a meaning of its axes.
inline runtime::TensorShape plain_shape(Dims dims) {
  return {std::move(dims), runtime::DataType::FLOAT32, runtime::LayoutType::FLEXIABLE};
}

}  // namespace axes
}  // namespace marlo::kernel
