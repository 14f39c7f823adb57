#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "qrt_core/runtime/tensor/memory_pool.h"
#include "qrt_core/runtime/tensor/tensor.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

class ThreadPool;

/// A description of the processor. Nothing fills it and nothing reads it: which kernels run is the
/// model's configuration alone.
///
/// Plain data: any number of threads may read it while none changes it.
struct CPUDeviceDesc {
  uint64_t features = 0;                   ///< instruction sets, one bit each
  std::vector<uint32_t> core_ids;          ///< numbers of the cores
  uint64_t core_count = 0;                 ///< how many there are
  std::vector<uint32_t> core_frequencies;  ///< clock of each core
  uint64_t l1_bytes = 0;                   ///< first-level data cache of a core
  uint64_t l2_bytes = 0;                   ///< second-level cache
  uint64_t l3_bytes = 0;                   ///< third-level cache
  uint64_t memory_bytes = 0;               ///< main memory
};

/// The maker of tensors in main memory, with the pools that their buffers come from.
///
/// Tensors hold a raw pointer to their device, which must outlive them. A device, with its pools,
/// belongs to one thread at a time, and to one running pass.
class QRT_API DeviceCPU final : public Device {
 public:
  /// See `CreateDeviceCPU`.
  DeviceCPU(const CPUDeviceDesc& desc, const std::shared_ptr<MemoryPool>& pool,
            const std::shared_ptr<ThreadPool>& threads, const std::shared_ptr<MemoryPool>& dynamic);
  ~DeviceCPU() override;

  /// @name Basic factories
  /// A tensor of `shape`. `data`, where given, holds as many bytes as the shape needs and is
  /// copied; without it the buffer is left uninitialised.
  /// @throws std::runtime_error for a shape of 4 GiB or more, or for a missing pool; std::bad_alloc
  ///   when memory is exhausted
  /// @{

  /// Takes the buffer from the dynamic pool while the dynamic mode is on, else from the static one.
  std::shared_ptr<TensorCPU> CreateTensor(TensorShape shape, const void* data);
  /// Takes the buffer from the dynamic pool, which must exist.
  std::shared_ptr<TensorCPU> CreateTensorDynamic(TensorShape shape, const void* data);
  /// Uses the caller's `data` as the buffer; the caller keeps it alive and releases it.
  std::shared_ptr<TensorCPU> CreateTensorExternal(TensorShape shape, void* data);
  /// @}

  /// Sizes in the order of the layout's name: [c, h, w] for CHW, [c / 4, h, w, 4] for C4HW4, any
  /// for FLEXIABLE.
  using Dims = std::vector<unsigned int>;

  /// @name Tensors of given dims
  /// @{

  /// A tensor of the element type (F32, F16, S16 or U8) and the layout in the name. `data`, where
  /// given, is copied, without it the buffer is left uninitialised; an `External` form uses the
  /// caller's buffer, which must outlive the tensor.
  /// @throws std::runtime_error for a shape of 4 GiB or more; std::bad_alloc
  std::shared_ptr<TensorCPU> CreateF32CHWMainMem(const Dims& dims, const void* data);
  std::shared_ptr<TensorCPU> CreateF32CHWMainMemExternal(const Dims& dims, void* data);
  std::shared_ptr<TensorCPU> CreateF16CHWMainMem(const Dims& dims, const void* data);
  std::shared_ptr<TensorCPU> CreateF16C4HW4MainMem(const Dims& dims, const void* data);
  std::shared_ptr<TensorCPU> CreateF16C8HW8MainMem(const Dims& dims, const void* data);
  std::shared_ptr<TensorCPU> CreateF32FlexiableMainMemory(const Dims& dims, const void* data);
  std::shared_ptr<TensorCPU> CreateF32FlexiableMainMemExternal(const Dims& dims, void* data);
  std::shared_ptr<TensorCPU> CreateF16FlexiableMainMemory(const Dims& dims, const void* data);
  std::shared_ptr<TensorCPU> CreateF16FlexiableMainMemExternal(const Dims& dims, void* data);
  std::shared_ptr<TensorCPU> CreateS16CHWMainMem(const Dims& dims, const void* data);
  std::shared_ptr<TensorCPU> CreateS16CHWMainMemExternal(const Dims& dims, void* data);
  std::shared_ptr<TensorCPU> CreateU8CHWMainMem(const Dims& dims, const void* data);
  std::shared_ptr<TensorCPU> CreateU8CHWMainMemExternal(const Dims& dims, void* data);
  std::shared_ptr<TensorCPU> CreateU8HWCMainMem(const Dims& dims, const void* data);
  std::shared_ptr<TensorCPU> CreateU8HWCMainMemExternal(const Dims& dims, void* data);
  /// @}

  /// @name One-dimensional tensors
  /// @{

  /// A tensor [size] of layout C; `data` as above.
  std::shared_ptr<TensorCPU> CreateF32CMainMemory(const unsigned int& size, const void* data);
  std::shared_ptr<TensorCPU> CreateF32CMainMemExternal(const unsigned int& size, void* data);
  std::shared_ptr<TensorCPU> CreateF16CMainMemory(const unsigned int& size, const void* data);
  /// @}

  /// @name Tensors filled with zeros
  /// @{

  /// A tensor of the element type and layout in the name, [size], [c, h, w] or of `dims`.
  std::shared_ptr<TensorCPU> CreateZeroF32CMainMem(const unsigned int& size);
  std::shared_ptr<TensorCPU> CreateZeroF16CMainMem(const unsigned int& size);
  std::shared_ptr<TensorCPU> CreateZeroF32CHWMainMem(const unsigned int& c, const unsigned int& h,
                                                     const unsigned int& w);
  std::shared_ptr<TensorCPU> CreateZeroF32FlexiableMainMem(const Dims& dims);
  std::shared_ptr<TensorCPU> CreateZeroF16FlexiableMainMem(const Dims& dims);
  /// @}

  /// One byte per sample, row by row without gaps; may be null.
  using Pixels = const void*;

  /// @name 8-bit pictures
  /// @{

  /// A UINT8 tensor: interleaved forms are [height, width, channels] of layout HWC, planar ones
  /// [3, height, width] of layout CHW. It doesn't record the order of its colours. `data` is copied
  /// where given; an `External` form uses the caller's buffer, which must outlive the tensor.
  std::shared_ptr<TensorCPU> CreateBGR888Tensor(const unsigned int& height,
                                                const unsigned int& width, Pixels data);
  std::shared_ptr<TensorCPU> CreateBGR888TensorExternal(const unsigned int& height,
                                                        const unsigned int& width, void* data);
  std::shared_ptr<TensorCPU> CreateRGB888Tensor(const unsigned int& height,
                                                const unsigned int& width, Pixels data);
  std::shared_ptr<TensorCPU> CreateRGB888TensorExternal(const unsigned int& height,
                                                        const unsigned int& width, void* data);
  std::shared_ptr<TensorCPU> CreateBGRA8888Tensor(const unsigned int& height,
                                                  const unsigned int& width, Pixels data);
  std::shared_ptr<TensorCPU> CreateBGRA8888TensorExternal(const unsigned int& height,
                                                          const unsigned int& width, void* data);
  std::shared_ptr<TensorCPU> CreateRGBA8888Tensor(const unsigned int& height,
                                                  const unsigned int& width, Pixels data);
  std::shared_ptr<TensorCPU> CreateRGBA8888TensorExternal(const unsigned int& height,
                                                          const unsigned int& width, void* data);
  std::shared_ptr<TensorCPU> CreateGray8Tensor(const unsigned int& height,
                                               const unsigned int& width, Pixels data);
  std::shared_ptr<TensorCPU> CreateGray8TensorExternal(const unsigned int& height,
                                                       const unsigned int& width, void* data);
  std::shared_ptr<TensorCPU> CreateYPlane8BitTensor(const unsigned int& height,
                                                    const unsigned int& width, Pixels data);
  std::shared_ptr<TensorCPU> CreateYPlane8BitTensorExternal(const unsigned int& height,
                                                            const unsigned int& width, void* data);
  std::shared_ptr<TensorCPU> CreateUVPlane8BitTensor(const unsigned int& height,
                                                     const unsigned int& width, Pixels data);
  std::shared_ptr<TensorCPU> CreateUVPlane8BitTensorExternal(const unsigned int& height,
                                                             const unsigned int& width, void* data);
  std::shared_ptr<TensorCPU> CreateBGRUInt8CHWTensor(const unsigned int& height,
                                                     const unsigned int& width, Pixels data);
  std::shared_ptr<TensorCPU> CreateBGRUInt8CHWTensorExternal(const unsigned int& height,
                                                             const unsigned int& width, void* data);
  std::shared_ptr<TensorCPU> CreateRGBUInt8CHWTensor(const unsigned int& height,
                                                     const unsigned int& width, Pixels data);
  std::shared_ptr<TensorCPU> CreateRGBUInt8CHWTensorExternal(const unsigned int& height,
                                                             const unsigned int& width, void* data);
  /// @}

  CPUDeviceDesc descriptor;                  ///< as given
  std::shared_ptr<ThreadPool> thread_pool;   ///< kept, never used
  std::shared_ptr<MemoryPool> static_pool;   ///< buffers that outlive a pass
  std::shared_ptr<MemoryPool> dynamic_pool;  ///< buffers of a running pass; may be empty
  bool dynamic_mode = false;                 ///< whether `CreateTensor` uses the dynamic pool

 private:
  using Deleter = std::function<void(void*)> (TensorCPU::*)();
  std::shared_ptr<TensorCPU> create(TensorShape&& shape, const void* data, MemoryPool* pool,
                                    Deleter deleter);
  std::shared_ptr<TensorCPU> create_zero(TensorShape&& shape);
};

/// A description of the processor with all fields zero: the library probes nothing.
QRT_API CPUDeviceDesc DetectCPUDevice();

/// A device on the given pools.
/// @param pool for tensors that outlive a pass; without it only external tensors can be made
/// @param dynamicPool for tensors of a pass; may be empty, then a pass uses `pool`
QRT_API std::shared_ptr<DeviceCPU> CreateDeviceCPU(const CPUDeviceDesc& desc,
                                                   const std::shared_ptr<MemoryPool>& pool,
                                                   const std::shared_ptr<ThreadPool>& threads,
                                                   const std::shared_ptr<MemoryPool>& dynamicPool);

}  // namespace marlo::runtime
