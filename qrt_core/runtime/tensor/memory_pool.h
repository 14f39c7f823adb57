#pragma once

#include <cstdint>

namespace marlo::runtime {

/// A recycler of memory blocks. A pool belongs to one thread at a time.
class MemoryPool {
 public:
  virtual ~MemoryPool() = default;

  /// Gives every block that isn't in use back to the system.
  virtual void ReleaseFreeBlocks() = 0;

  /// A block of at least `size` bytes.
  virtual void* Allocate(uint64_t size) = 0;

  /// Takes a block back for reuse.
  virtual void Free(void* address) = 0;

  /// Bytes of all blocks, free and in use.
  virtual uint64_t TotalBytes() = 0;
};

}  // namespace marlo::runtime
