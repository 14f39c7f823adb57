#include "qrt_core/runtime/tensor/aligned_pool.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "qrt_core/utility/log.h"

namespace marlo::runtime {

using utility::Assert;

namespace {

constexpr size_t kDefaultAlignment = 16;

class PoolExhausted : public std::bad_alloc {
 public:
  const char* what() const noexcept override { return "bad allocation"; }
};

// The system's own address stands in the 8 bytes before each block.
constexpr uint64_t kRawAddressSize = 8;

void* raw_address(void* address) {
  void* raw;
  std::memcpy(&raw, static_cast<char*>(address) - kRawAddressSize, sizeof raw);
  return raw;
}

void free_raw(void* address) { std::free(raw_address(address)); }

}  // namespace

AlignedPool::AlignedPool() : AlignedPool(kDefaultAlignment) {}

AlignedPool::AlignedPool(size_t alignment) : alignment_(alignment) {
  const bool power_of_two = alignment != 0 && (alignment & (alignment - 1)) == 0;
  Assert(power_of_two, "alignment %zu of a memory pool is not a power of two", alignment);
}

AlignedPool::~AlignedPool() {
  AlignedPool::ReleaseFreeBlocks();
  for (const auto& [address, size] : blocks_.used_blocks()) {
    std::fprintf(stderr, "%p still in use \n", address);
  }
}

void AlignedPool::ReleaseFreeBlocks() { blocks_.release_free_blocks(free_raw); }

void* AlignedPool::Allocate(uint64_t size) {
  const auto& free_blocks = blocks_.free_blocks();
  for (size_t i = 0; i < free_blocks.size(); ++i) {
    const uint64_t block_size = free_blocks[i].size;
    const float least = std::floor(static_cast<float>(block_size) * reuse_ratio_);
    if (block_size >= size && least <= static_cast<float>(size)) return blocks_.reuse(i);
  }

  const uint64_t overhead = alignment_ + kRawAddressSize + padding_;
  if (size > std::numeric_limits<uint64_t>::max() - overhead) throw PoolExhausted();
  void* raw = std::malloc(size + overhead);
  if (raw == nullptr) throw PoolExhausted();
  const auto first = reinterpret_cast<uintptr_t>(raw) + alignment_ + kRawAddressSize - 1;
  auto* address = reinterpret_cast<char*>(first & ~(alignment_ - 1));
  std::memcpy(address - kRawAddressSize, &raw, sizeof raw);
  try {
    blocks_.add(address, size);
  } catch (...) {
    std::free(raw);
    throw;
  }
  return address;
}

void AlignedPool::Free(void* address) {
  if (blocks_.release(address) || address == nullptr) return;
  free_raw(address);
}

uint64_t AlignedPool::TotalBytes() { return blocks_.total_bytes(); }

}  // namespace marlo::runtime
