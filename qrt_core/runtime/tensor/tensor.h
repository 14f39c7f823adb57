#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "qrt_core/runtime/tensor/tensor_shape.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

class DeviceCPU;

/// Base of the back ends' devices. A device belongs to one thread at a time.
class Device : public std::enable_shared_from_this<Device> {
 public:
  virtual ~Device() = default;
};

/// A back end's reference to a buffer. Plain data: any number of threads may read it while none
/// changes it.
union TensorHandle {
  void* cpu;  ///< address of the first element
};

/// Owner of one buffer. Tensors are made by a device and held by shared pointer.
///
/// Any number of threads may read one tensor's numbers while none writes them. The last pointer to
/// it must go on the thread that its device belongs to, because the buffer goes back to a pool.
class QRT_API Tensor : public std::enable_shared_from_this<Tensor> {
 public:
  /// Takes the buffer of `handle`, which the deleter of the class gives back. Devices call it.
  Tensor(TensorShape shape, TensorHandle handle, Device* device);
  Tensor(const Tensor&) = delete;
  Tensor& operator=(const Tensor&) = delete;
  virtual ~Tensor();

 private:
  virtual std::function<void(void*)> GetDeleter() = 0;

 public:
  TensorShape shape;    ///< as given at construction
  TensorHandle handle;  ///< the buffer
  Device* device;       ///< the maker, not owned; it must outlive the tensor
};

/// A tensor in main memory: a buffer in row-major order of its dims.
///
/// `Locate*` compute addresses and check no index.
class QRT_API TensorCPU final : public Tensor {
 public:
  /// Address of the first element.
  void* RawPointer() { return handle.cpu; }
  /// Address of the first element.
  const void* RawPointer() const { return handle.cpu; }

  /// @name Addresses by indices
  /// @{

  /// Address of the element at the given indices. The last index is added without a stride, so
  /// that `LocateND` on a tensor of more than N dims addresses within its innermost rows.
  /// @throws std::runtime_error for a tensor of fewer than N - 1 dims
  void* Locate1D(uint32_t i0) { return at(i0); }
  void* Locate2D(uint32_t i0, uint32_t i1);
  void* Locate3D(uint32_t i0, uint32_t i1, uint32_t i2);
  void* Locate4D(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t i3);
  void* Locate5D(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t i3, uint32_t i4);
  void* Locate6D(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t i3, uint32_t i4, uint32_t i5);
  void* Locate7D(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t i3, uint32_t i4, uint32_t i5,
                 uint32_t i6);
  const void* Locate1D(uint32_t i0) const { return at(i0); }
  const void* Locate2D(uint32_t i0, uint32_t i1) const;
  const void* Locate3D(uint32_t i0, uint32_t i1, uint32_t i2) const;
  const void* Locate4D(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t i3) const;
  const void* Locate5D(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t i3, uint32_t i4) const;
  const void* Locate6D(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t i3, uint32_t i4,
                       uint32_t i5) const;
  const void* Locate7D(uint32_t i0, uint32_t i1, uint32_t i2, uint32_t i3, uint32_t i4, uint32_t i5,
                       uint32_t i6) const;

  /// @}

  /// Address of the sub-block at a vector of indices, each with its stride.
  /// @throws std::runtime_error for more indices than dims
  void* Locate(const std::vector<uint32_t>& indices);
  /// Address of the sub-block at a vector of indices, each with its stride.
  const void* Locate(const std::vector<uint32_t>& indices) const;

  /// A copy with other dims, and with a default `extra`.
  ///
  /// One entry of zero or less is inferred. Without such an entry the new element count may be a
  /// divisor of the old one; the first elements are then copied.
  /// @throws std::runtime_error if several entries are to be inferred, if the element count
  ///   isn't divisible by the product of the given ones, or for a tensor on a null pointer
  std::shared_ptr<TensorCPU> Reshape(std::vector<int32_t> dims);

  /// Gives the buffer another shape, as a kernel does that works in place.
  /// @throws std::runtime_error if that needs more bytes than the shape that it has
  void TakeShape(TensorShape new_shape);

  /// A copy with transposed axes: dims[i] of the result is dims[axes[i]]. Its layout is FLEXIABLE.
  /// @throws std::runtime_error if `axes` isn't as long as the dims, or names an axis twice or
  ///   one that isn't there
  std::shared_ptr<TensorCPU> Permute(std::vector<uint32_t> axes);

  /// Whether the buffer came from a pool of the device, and is as long as the shape says. The
  /// buffer of an external tensor is its caller's, who alone knows where it ends.
  bool owns_buffer() const { return owns_buffer_; }

  /// Elements from one index to the next, per dimension: the last is 1.
  std::vector<uint32_t> strides;

 private:
  friend class DeviceCPU;

  TensorCPU(TensorShape shape, TensorHandle handle, Device* device);
  ~TensorCPU() override;

  std::function<void(void*)> GetDeleter() override;
  std::function<void(void*)> GetDynamicDeleter();
  std::function<void(void*)> external_deleter();

  /// Address of an element offset, in the 32-bit arithmetic of `ByteSize`.
  void* at(uint32_t offset) const {
    return static_cast<char*>(handle.cpu) + offset * ElementSize(shape.data_type);
  }

  bool owns_buffer_ = true;
};

/// Copies `source` into `target` with transposed axes, one element of `element_size` bytes at a
/// time.
/// @throws std::runtime_error for a null buffer, an element size of 0, or axes that don't fit
QRT_API void TransposeBuffer(const void* source, const std::vector<uint32_t>& source_dims,
                             uint32_t element_size, const std::vector<uint32_t>& axes,
                             void* target);

}  // namespace marlo::runtime
