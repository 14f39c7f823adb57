#pragma once

#include <cstddef>

#include "qrt_core/runtime/tensor/block_table.h"
#include "qrt_core/runtime/tensor/memory_pool.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

/// The pool of `create_context`: sizes are rounded up to a granule, and a request takes the block
/// freed last among those that are large enough, however much larger it is.
///
/// Each block has 64 bytes more than was asked for, on which nothing in the library relies: its
/// kernels touch what is in their tensors. Every block must be back before the pool ends; otherwise its destructor
/// reports it and ends the process.
class QRT_API AlignUpPool final : public MemoryPool {
 public:
  /// A pool with an alignment of 16 bytes.
  AlignUpPool();

  /// @param alignment of addresses, and granule of sizes, in bytes: a power of two
  /// @throws std::runtime_error if it isn't one
  explicit AlignUpPool(const size_t& alignment);

  AlignUpPool(const AlignUpPool&) = delete;
  AlignUpPool& operator=(const AlignUpPool&) = delete;
  ~AlignUpPool() override;

  void ReleaseFreeBlocks() override;

  /// @return null when the system has no memory left. Such a request counts as a block in use, of
  ///   its size, until `Free(nullptr)` takes it back, and like any other it must be back before the
  ///   pool ends. (A device does that for its tensors; a request beyond all addresses counts as
  ///   nothing.)
  /// @throws std::bad_alloc when there is no memory to note a block down
  void* Allocate(uint64_t size) override;

  /// Needs no memory. Null is a valid address while a request that failed is in use.
  /// @throws std::runtime_error for an address that isn't in use
  void Free(void* address) override;

  uint64_t TotalBytes() override;

 private:
  BlockTable blocks_;
  uint64_t padding_ = 64;
  uint64_t alignment_;
};

}  // namespace marlo::runtime
