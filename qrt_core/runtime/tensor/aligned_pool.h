#pragma once

#include <cstddef>

#include "qrt_core/runtime/tensor/block_table.h"
#include "qrt_core/runtime/tensor/memory_pool.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

/// A pool that reuses a block only for a request that fills at least three quarters of it, which
/// bounds the waste. Applications may give it to `CreateDeviceCPU`.
class QRT_API AlignedPool final : public MemoryPool {
 public:
  /// A pool with an alignment of 16 bytes.
  AlignedPool();

  /// @param alignment of addresses, in bytes: a power of two
  /// @throws std::runtime_error if it isn't one
  explicit AlignedPool(size_t alignment);

  AlignedPool(const AlignedPool&) = delete;
  AlignedPool& operator=(const AlignedPool&) = delete;

  /// Frees what is free; names each block still in use on standard error and leaves it allocated.
  ~AlignedPool() override;

  void ReleaseFreeBlocks() override;

  /// @throws std::bad_alloc when the system has no memory left
  void* Allocate(uint64_t size) override;

  /// Takes a block back. An address that isn't in use but came from a pool of this kind goes back
  /// to the system at once; null does nothing.
  void Free(void* address) override;

  uint64_t TotalBytes() override;

 private:
  BlockTable blocks_;
  float reuse_ratio_ = 0.75f;
  uint32_t padding_ = 64;
  uint64_t alignment_;
};

}  // namespace marlo::runtime
