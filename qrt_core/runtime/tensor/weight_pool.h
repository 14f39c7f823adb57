#pragma once

#include <atomic>
#include <cstddef>
#include <mutex>
#include <unordered_map>

#include "qrt_core/runtime/tensor/memory_pool.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

/// A pool for weights, which live as long as their network: each block comes
/// from the system and goes back to it at once. Large ones have pages of their
/// own, so that nothing of them stays behind among what else the process has
/// allocated meanwhile.
///
/// Unlike other pools any number of threads may use it at a time, so that
/// networks that share weights can be released in any order, on any thread.
class QRT_API WeightPool final : public MemoryPool {
 public:
  /// @param alignment of addresses, in bytes: a power of two
  /// @throws std::runtime_error if it isn't one
  explicit WeightPool(size_t alignment);

  /// Does nothing: no block waits to be used again.
  void ReleaseFreeBlocks() override {}
  /// @throws std::bad_alloc when the system has no memory left
  void* Allocate(uint64_t size) override;
  /// Takes a block of this pool back; null does nothing.
  void Free(void* address) override;
  /// Bytes of all blocks in use, as the system counts them.
  uint64_t TotalBytes() override { return bytes_; }

 private:
  void* map_pages(uint64_t size);
  bool unmap_pages(void* address);

  std::atomic<uint64_t> bytes_{0};
  size_t alignment_;
  std::mutex lock_;                          // of what follows
  std::unordered_map<void*, size_t> pages_;  // sizes of the large blocks
};

}  // namespace marlo::runtime
