#include "qrt_core/runtime/tensor/device_cpu.h"

#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "qrt_core/runtime/tensor/align_up_pool.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {

using utility::Assert;

namespace {

// Element counts and byte sizes are 32-bit numbers. A shape whose size wraps would get a buffer far
// smaller than what its dims promise to the kernels.
void refuse_wrapped_size(const TensorShape& shape) {
  constexpr uint64_t kMaxBytes = std::numeric_limits<uint32_t>::max();
  uint64_t bytes = ElementSize(shape.data_type);
  bool fits = true;
  for (const uint32_t size : shape.dims) {
    if (size == 0) return;
    if (fits) bytes *= size;
    fits = fits && bytes <= kMaxBytes;
  }
  Assert(fits, "a tensor of 4 GiB or more can't be made");
}

/// Returns a block to its pool unless a tensor has taken it over.
class BlockGuard {
 public:
  BlockGuard(MemoryPool* pool, void* address) : pool_(pool), address_(address) {}
  BlockGuard(const BlockGuard&) = delete;
  BlockGuard& operator=(const BlockGuard&) = delete;
  ~BlockGuard() {
    if (pool_ != nullptr) pool_->Free(address_);
  }
  void dismiss() { pool_ = nullptr; }

 private:
  MemoryPool* pool_;
  void* address_;
};

}  // namespace

std::function<void(void*)> TensorCPU::GetDeleter() {
  return [](void* object) {
    auto* tensor = static_cast<TensorCPU*>(object);
    static_cast<DeviceCPU*>(tensor->device)->static_pool->Free(tensor->handle.cpu);
    delete tensor;
  };
}

std::function<void(void*)> TensorCPU::GetDynamicDeleter() {
  return [](void* object) {
    auto* tensor = static_cast<TensorCPU*>(object);
    static_cast<DeviceCPU*>(tensor->device)->dynamic_pool->Free(tensor->handle.cpu);
    delete tensor;
  };
}

std::function<void(void*)> TensorCPU::external_deleter() {
  return [](void* object) { delete static_cast<TensorCPU*>(object); };
}

DeviceCPU::DeviceCPU(const CPUDeviceDesc& desc, const std::shared_ptr<MemoryPool>& pool,
                     const std::shared_ptr<ThreadPool>& threads,
                     const std::shared_ptr<MemoryPool>& dynamic)
    : descriptor(desc), thread_pool(threads), static_pool(pool), dynamic_pool(dynamic) {}

DeviceCPU::~DeviceCPU() {
  dynamic_pool.reset();
  static_pool.reset();
  thread_pool.reset();
}

std::shared_ptr<TensorCPU> DeviceCPU::create(TensorShape&& shape, const void* data,
                                             MemoryPool* pool, Deleter deleter) {
  Assert(pool != nullptr, "the device has no pool to make a tensor from");
  refuse_wrapped_size(shape);
  const uint32_t bytes = ByteSize(shape);
  void* address = pool->Allocate(bytes);
  if (address == nullptr) {
    // This pool counts the request as a block until it is taken back.
    if (auto* own = dynamic_cast<AlignUpPool*>(pool)) own->Free(nullptr);
    throw std::bad_alloc();
  }
  BlockGuard guard(pool, address);
  if (data != nullptr) std::memcpy(address, data, bytes);
  auto* tensor = new TensorCPU(std::move(shape), TensorHandle{address}, this);
  // From here on the deleter owns the block: a shared pointer that can't be made calls it.
  guard.dismiss();
  return std::shared_ptr<TensorCPU>(tensor, (tensor->*deleter)());
}

std::shared_ptr<TensorCPU> DeviceCPU::create_zero(TensorShape&& shape) {
  auto tensor = CreateTensor(std::move(shape), nullptr);
  std::memset(tensor->RawPointer(), 0, ByteSize(tensor->shape));
  return tensor;
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateTensor(TensorShape shape, const void* data) {
  if (dynamic_mode && dynamic_pool != nullptr) return CreateTensorDynamic(std::move(shape), data);
  return create(std::move(shape), data, static_pool.get(), &TensorCPU::GetDeleter);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateTensorDynamic(TensorShape shape, const void* data) {
  return create(std::move(shape), data, dynamic_pool.get(), &TensorCPU::GetDynamicDeleter);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateTensorExternal(TensorShape shape, void* data) {
  auto* tensor = new TensorCPU(std::move(shape), TensorHandle{data}, this);
  tensor->owns_buffer_ = false;
  return std::shared_ptr<TensorCPU>(tensor, tensor->external_deleter());
}

CPUDeviceDesc DetectCPUDevice() { return {}; }

std::shared_ptr<DeviceCPU> CreateDeviceCPU(const CPUDeviceDesc& desc,
                                           const std::shared_ptr<MemoryPool>& pool,
                                           const std::shared_ptr<ThreadPool>& threads,
                                           const std::shared_ptr<MemoryPool>& dynamicPool) {
  return std::make_shared<DeviceCPU>(desc, pool, threads, dynamicPool);
}

}  // namespace marlo::runtime
