#include "qrt_core/runtime/tensor/align_up_pool.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "qrt_core/utility/log.h"

namespace marlo::runtime {

using utility::Assert;

namespace {

constexpr size_t kDefaultAlignment = 16;

void* allocate_aligned(uint64_t size, uint64_t alignment) {
  void* address = nullptr;
  // The system call takes no alignment below that of a pointer.
  const auto granule = std::max<uint64_t>(alignment, sizeof(void*));
  return posix_memalign(&address, granule, size) == 0 ? address : nullptr;
}

}  // namespace

AlignUpPool::AlignUpPool() : AlignUpPool(kDefaultAlignment) {}

AlignUpPool::AlignUpPool(const size_t& alignment) : alignment_(alignment) {
  const bool power_of_two = alignment != 0 && (alignment & (alignment - 1)) == 0;
  Assert(power_of_two, "alignment %zu of a memory pool is not a power of two", alignment);
}

AlignUpPool::~AlignUpPool() {
  Assert(blocks_.used_blocks().empty(), "Destory this pool too early!!");
  ReleaseFreeBlocks();
}

void AlignUpPool::ReleaseFreeBlocks() { blocks_.release_free_blocks(std::free); }

void* AlignUpPool::Allocate(uint64_t size) {
  const uint64_t overhead = padding_ + alignment_ - 1;
  if (size > std::numeric_limits<uint64_t>::max() - overhead) return nullptr;
  const uint64_t block_size = (size + overhead) & ~(alignment_ - 1);

  const auto& free_blocks = blocks_.free_blocks();
  for (size_t i = free_blocks.size(); i-- > 0;) {
    if (free_blocks[i].size >= block_size) return blocks_.reuse(i);
  }

  void* address = allocate_aligned(block_size, alignment_);
  try {
    blocks_.add(address, block_size);
  } catch (...) {
    std::free(address);
    throw;
  }
  return address;
}

void AlignUpPool::Free(void* address) {
  // Null stands for a request that the system refused: there is no block to hand out again.
  const bool known = address == nullptr ? blocks_.forget(address) : blocks_.release(address);
  if (!known) {
    Assert(false, "pointer(0x%ld) not in alignment memory pool !", reinterpret_cast<long>(address));
  }
}

uint64_t AlignUpPool::TotalBytes() { return blocks_.total_bytes(); }

}  // namespace marlo::runtime
