#include "qrt_core/runtime/tensor/tensor.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_core/runtime/tensor/transpose.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {

using utility::Assert;

namespace {

std::vector<uint32_t> row_major_strides(const std::vector<uint32_t>& dims) {
  std::vector<uint32_t> strides(dims.size());
  uint32_t stride = 1;
  for (size_t k = dims.size(); k-- > 0;) {
    strides[k] = stride;
    stride *= dims[k];
  }
  return strides;
}

std::vector<uint32_t> permuted(const std::vector<uint32_t>& dims,
                               const std::vector<uint32_t>& axes) {
  std::vector<uint32_t> result(axes.size());
  for (size_t k = 0; k < axes.size(); ++k) {
    Assert(axes[k] < dims.size(), "axis %u of a permutation is not below %zu, the number of dims",
           axes[k], dims.size());
    result[k] = dims[axes[k]];
  }
  return result;
}

// Strides from the first one on, of which `count` must be there.
const uint32_t* strides_for(size_t count, const std::vector<uint32_t>& strides) {
  if (strides.size() < count) {
    Assert(false, "indices of %zu dims don't go with a tensor of %zu", count, strides.size());
  }
  return strides.data();
}

}  // namespace

Tensor::Tensor(TensorShape tensor_shape, TensorHandle tensor_handle, Device* maker)
    : shape(std::move(tensor_shape)), handle(tensor_handle), device(maker) {}

Tensor::~Tensor() = default;

TensorCPU::TensorCPU(TensorShape tensor_shape, TensorHandle tensor_handle, Device* maker)
    : Tensor(std::move(tensor_shape), tensor_handle, maker),
      strides(row_major_strides(shape.dims)) {}

TensorCPU::~TensorCPU() = default;

const void* TensorCPU::Locate2D(uint32_t i0, uint32_t i1) const {
  const uint32_t* const s = strides_for(1, strides);
  return at(s[0] * i0 + i1);
}

const void* TensorCPU::Locate3D(uint32_t i0, uint32_t i1, uint32_t i2) const {
  const uint32_t* const s = strides_for(2, strides);
  return at(s[0] * i0 + s[1] * i1 + i2);
}

const void* TensorCPU::Locate4D(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t i3) const {
  const uint32_t* const s = strides_for(3, strides);
  return at(s[0] * i0 + s[1] * i1 + s[2] * i2 + i3);
}

const void* TensorCPU::Locate5D(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t i3,
                                uint32_t i4) const {
  const uint32_t* const s = strides_for(4, strides);
  return at(s[0] * i0 + s[1] * i1 + s[2] * i2 + s[3] * i3 + i4);
}

const void* TensorCPU::Locate6D(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t i3, uint32_t i4,
                                uint32_t i5) const {
  const uint32_t* const s = strides_for(5, strides);
  return at(s[0] * i0 + s[1] * i1 + s[2] * i2 + s[3] * i3 + s[4] * i4 + i5);
}

const void* TensorCPU::Locate7D(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t i3, uint32_t i4,
                                uint32_t i5, uint32_t i6) const {
  const uint32_t* const s = strides_for(6, strides);
  return at(s[0] * i0 + s[1] * i1 + s[2] * i2 + s[3] * i3 + s[4] * i4 + s[5] * i5 + i6);
}

const void* TensorCPU::Locate(const std::vector<uint32_t>& indices) const {
  const uint32_t* const s = strides_for(indices.size(), strides);
  uint32_t offset = 0;
  for (size_t k = 0; k < indices.size(); ++k) offset += s[k] * indices[k];
  return at(offset);
}

void* TensorCPU::Locate2D(uint32_t i0, uint32_t i1) {
  return const_cast<void*>(std::as_const(*this).Locate2D(i0, i1));
}

void* TensorCPU::Locate3D(uint32_t i0, uint32_t i1, uint32_t i2) {
  return const_cast<void*>(std::as_const(*this).Locate3D(i0, i1, i2));
}

void* TensorCPU::Locate4D(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t i3) {
  return const_cast<void*>(std::as_const(*this).Locate4D(i0, i1, i2, i3));
}

void* TensorCPU::Locate5D(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t i3, uint32_t i4) {
  return const_cast<void*>(std::as_const(*this).Locate5D(i0, i1, i2, i3, i4));
}

void* TensorCPU::Locate6D(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t i3, uint32_t i4,
                          uint32_t i5) {
  return const_cast<void*>(std::as_const(*this).Locate6D(i0, i1, i2, i3, i4, i5));
}

void* TensorCPU::Locate7D(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t i3, uint32_t i4,
                          uint32_t i5, uint32_t i6) {
  return const_cast<void*>(std::as_const(*this).Locate7D(i0, i1, i2, i3, i4, i5, i6));
}

void* TensorCPU::Locate(const std::vector<uint32_t>& indices) {
  return const_cast<void*>(std::as_const(*this).Locate(indices));
}

void TensorCPU::TakeShape(TensorShape new_shape) {
  Assert(ByteSize(new_shape) <= ByteSize(shape),
         "a shape of %u bytes doesn't fit into a buffer of %u", ByteSize(new_shape),
         ByteSize(shape));
  std::vector<uint32_t> new_strides = row_major_strides(new_shape.dims);
  shape = std::move(new_shape);
  strides = std::move(new_strides);
}

std::shared_ptr<TensorCPU> TensorCPU::Reshape(std::vector<int32_t> new_dims) {
  std::vector<uint32_t> sizes(new_dims.size());
  // 64 bits and a stop above the element count, so that a product can't wrap to a size that fits.
  const uint64_t count = ElementCount(shape);
  uint64_t known = 1;
  size_t inferred = 0;
  int marked = 0;
  for (size_t k = 0; k < new_dims.size(); ++k) {
    if (new_dims[k] > 0) {
      sizes[k] = static_cast<uint32_t>(new_dims[k]);
      if (known <= count) known *= sizes[k];
    } else {
      inferred = k;
      ++marked;
    }
  }
  Assert(marked < 2, nullptr);
  Assert(count >= known, nullptr);
  Assert(count % known == 0, nullptr);
  if (marked == 1) sizes[inferred] = static_cast<uint32_t>(count / known);

  Assert(RawPointer() != nullptr, "a tensor without a buffer can't be copied");
  const TensorShape new_shape(std::move(sizes), shape.data_type, shape.layout, shape.location);
  auto* maker = static_cast<DeviceCPU*>(device);
  auto result = maker->CreateTensor(new_shape, nullptr);
  std::memcpy(result->RawPointer(), RawPointer(), ByteSize(new_shape));
  return result;
}

std::shared_ptr<TensorCPU> TensorCPU::Permute(std::vector<uint32_t> axes) {
  const TensorShape new_shape(permuted(shape.dims, axes), shape.data_type, LayoutType::FLEXIABLE,
                              shape.location);
  auto result = static_cast<DeviceCPU*>(device)->CreateTensor(new_shape, nullptr);
  TransposeBuffer(RawPointer(), shape.dims, ElementSize(shape.data_type), axes,
                  result->RawPointer());
  return result;
}

void TransposeBuffer(const void* source, const std::vector<uint32_t>& source_dims,
                     uint32_t element_size, const std::vector<uint32_t>& axes, void* target) {
  Assert(source != nullptr, "Input shared pointer is null.");
  Assert(target != nullptr, "Output shared pointer is null.");
  Assert(element_size != 0, "bytes per element must be >= 1.");
  Assert(source_dims.size() == axes.size(),
         "dimensions of shape must be equal to tranpose axes's.");
  for (size_t k = 0; k < axes.size(); ++k) {
    // Elements of the target would be left unset.
    const auto here = axes.begin() + static_cast<std::ptrdiff_t>(k);
    Assert(std::find(axes.begin(), here, axes[k]) == here, "axis %u stands twice in a permutation",
           axes[k]);
  }
  const std::vector<uint32_t> target_dims = permuted(source_dims, axes);
  const std::vector<uint32_t> source_strides = row_major_strides(source_dims);
  const std::vector<uint32_t> target_strides = row_major_strides(target_dims);
  std::vector<TransposeAxis> steps;
  for (size_t k = 0; k < axes.size(); ++k) {
    steps.push_back({target_dims[k], size_t{source_strides[axes[k]]} * element_size,
                     size_t{target_strides[k]} * element_size});
  }
  transpose(source, std::move(steps), element_size, target);
}

}  // namespace marlo::runtime
