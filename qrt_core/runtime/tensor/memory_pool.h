#pragma once

#include <cstdint>

namespace marlo::runtime {

/// A recycler of memory blocks. A pool belongs to one thread at a time.
class MemoryPool {
 public:
  virtual ~MemoryPool() = default;

  /// Gives every block that isn't in use back to the system.
  virtual void ReleaseFreeBlocks() = 0;

  /// A block of at least `size` bytes. A pool without memory throws std::bad_alloc, or returns null:
  /// a device then throws in its place, and gives nothing back to a pool of an application's own.
  virtual void* Allocate(uint64_t size) = 0;

  /// Takes a block back for reuse.
  virtual void Free(void* address) = 0;

  /// Bytes of all blocks, free and in use.
  virtual uint64_t TotalBytes() = 0;
};

}  // namespace marlo::runtime
