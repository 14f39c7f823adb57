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
  WeightPool(const WeightPool&) = delete;
  WeightPool& operator=(const WeightPool&) = delete;
  ~WeightPool() override;

  /// From now on the last large block that was given back waits to be used again: weights are decoded, packed
  /// and dropped one after the other. It may serve for one that is somewhat smaller.
  void KeepFreeBlock();
  /// Ends that: the block goes back to the system, and so do the ends of those that were larger than was asked for.
  void ReleaseFreeBlocks() override;
  /// @throws std::bad_alloc when the system has no memory left
  void* Allocate(uint64_t size) override;
  /// Takes a block of this pool back; null does nothing.
  void Free(void* address) override;
  /// Bytes of all blocks in use, as the system counts them.
  uint64_t TotalBytes() override { return bytes_; }

 private:
  // A large block, in whole pages.
  struct Pages {
    size_t asked = 0;
    size_t size = 0;  // more, where it was a larger one before
  };

  void* map_pages(uint64_t size);
  bool unmap_pages(void* address);
  void* take_free_block(size_t asked);
  void release_free_block();

  std::atomic<uint64_t> bytes_{0};
  size_t alignment_;
  std::mutex lock_;                         // of what follows
  std::unordered_map<void*, Pages> pages_;  // the large blocks
  bool keeps_free_block_ = false;
  void* free_block_ = nullptr;
  size_t free_size_ = 0;
};

}  // namespace marlo::runtime
