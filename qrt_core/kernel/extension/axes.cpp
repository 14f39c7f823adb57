#include "qrt_core/kernel/extension/axes.h"

#include <algorithm>

#include "qrt_core/kernel/tensor_checks.h"

namespace marlo::kernel::axes {

bool are_plain(const KernelFamily::Shapes& inputs, size_t count) {
  return inputs.size() == count &&
         std::all_of(inputs.begin(), inputs.end(), [](const runtime::TensorShape& shape) {
           return is_float_in_main_memory(shape) && is_in_order(shape);
         });
}

bool are_plain(const runtime::IKernel::Tensors& tensors, size_t count) {
  return tensors.size() == count &&
         std::all_of(tensors.begin(), tensors.end(), [](const auto& tensor) {
           return tensor != nullptr && is_float_in_main_memory(tensor->shape) &&
                  is_in_order(tensor->shape);
         });
}

size_t count_of(const Dims& dims, size_t first, size_t end) {
  size_t count = 1;
  for (size_t k = first; k < end; ++k) count *= dims[k];
  return count;
}

Strides strides_of(const Dims& dims) {
  Strides strides(dims.size());
  size_t stride = 1;
  for (size_t k = dims.size(); k-- > 0;) {
    strides[k] = stride;
    stride *= dims[k];
  }
  return strides;
}

bool broadcast(const Dims& a, const Dims& b, Dims& result) {
  result.assign(std::max(a.size(), b.size()), 1);
  for (size_t k = 1; k <= result.size(); ++k) {
    const uint32_t of_a = k <= a.size() ? a[a.size() - k] : 1;
    const uint32_t of_b = k <= b.size() ? b[b.size() - k] : 1;
    if (of_a != of_b && of_a != 1 && of_b != 1) return false;
    result[result.size() - k] = of_a == 1 ? of_b : of_a;
  }
  return true;
}

Strides broadcast_strides(const Dims& dims, const Dims& to) {
  const Strides dense = strides_of(dims);
  Strides strides(to.size(), 0);
  for (size_t k = 1; k <= dims.size(); ++k) {
    if (dims[dims.size() - k] != 1) strides[to.size() - k] = dense[dims.size() - k];
  }
  return strides;
}

void Walk::next() {
  for (size_t k = dims_.size(); k-- > 0;) {
    offset_ += strides_[k];
    if (++index_[k] < dims_[k]) return;
    offset_ -= strides_[k] * dims_[k];
    index_[k] = 0;
  }
}

}  // namespace marlo::kernel::axes
