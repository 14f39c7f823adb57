#include "qrt_core/runtime/tensor/weight_pool.h"

#include <malloc.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <new>

#include "qrt_core/utility/log.h"

namespace marlo::runtime {
namespace {

// An allocator that is given larger and larger blocks back keeps blocks of that size the next time, and
// weights among the texts that they are made of would hold the pages of both. AddressSanitizer sees
// the ends of its own blocks only.
#if defined(__has_feature)  // Clang's way to say it
#if __has_feature(address_sanitizer)
#define QRT_SANITIZED_BLOCKS
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(QRT_SANITIZED_BLOCKS)
constexpr uint64_t kLeastOfPages = std::numeric_limits<uint64_t>::max();
#else
constexpr uint64_t kLeastOfPages = 128 * 1024;
#endif
constexpr size_t kPage = 4096;  // or a multiple of it

}  // namespace

WeightPool::WeightPool(size_t alignment) : alignment_(std::max(alignment, sizeof(void*))) {
  const bool power_of_two = alignment != 0 && (alignment & (alignment - 1)) == 0;
  utility::Assert(power_of_two, "alignment %zu of a memory pool is not a power of two", alignment);
}

WeightPool::~WeightPool() { release_free_block(); }

void* WeightPool::Allocate(uint64_t size) {
  void* address = nullptr;
  // A block of no bytes has an address too.
  const uint64_t bytes = std::max<uint64_t>(size, 1);
  if (bytes > std::numeric_limits<int64_t>::max()) throw std::bad_alloc();
  if (bytes >= kLeastOfPages && alignment_ <= kPage) {
    address = map_pages(bytes);
    if (address == nullptr) throw std::bad_alloc();
    return address;
  }
  if (posix_memalign(&address, alignment_, bytes) != 0) throw std::bad_alloc();
  bytes_ += malloc_usable_size(address);
  return address;
}

// Null where the system has no pages left.
void* WeightPool::map_pages(uint64_t size) {
  const size_t whole = (size + kPage - 1) / kPage * kPage;
  const std::lock_guard<std::mutex> lock(lock_);
  if (void* const waiting = take_free_block(whole)) return waiting;
  // All of it is about to be written: pages that are there at once cost half of those that are missed one by one.
  void* const address = mmap(nullptr, whole, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
  if (address == MAP_FAILED) return nullptr;
  try {
    pages_[address] = {whole, whole};
  } catch (...) {
    munmap(address, whole);
    throw;
  }
  bytes_ += whole;
  return address;
}

// Null where none waits that fits well enough.
void* WeightPool::take_free_block(size_t asked) {
  constexpr size_t kMostTimes = 4;
  if (free_block_ == nullptr || asked > free_size_ || asked * kMostTimes < free_size_) {
    return nullptr;
  }
  void* const block = free_block_;
  pages_[block] = {asked, free_size_};
  bytes_ += free_size_;
  free_block_ = nullptr;
  return block;
}

void WeightPool::release_free_block() {
  if (free_block_ != nullptr) munmap(free_block_, free_size_);
  free_block_ = nullptr;
}

bool WeightPool::unmap_pages(void* address) {
  const std::lock_guard<std::mutex> lock(lock_);
  const auto found = pages_.find(address);
  if (found == pages_.end()) return false;
  const size_t size = found->second.size;
  pages_.erase(found);
  bytes_ -= size;
  if (keeps_free_block_ && (free_block_ == nullptr || size >= free_size_)) {
    release_free_block();
    free_block_ = address;
    free_size_ = size;
  } else {
    munmap(address, size);
  }
  return true;
}

void WeightPool::KeepFreeBlock() {
  const std::lock_guard<std::mutex> lock(lock_);
  keeps_free_block_ = true;
}

void WeightPool::ReleaseFreeBlocks() {
  const std::lock_guard<std::mutex> lock(lock_);
  keeps_free_block_ = false;
  release_free_block();
  for (auto& [address, pages] : pages_) {
    if (pages.size == pages.asked) continue;
    munmap(static_cast<char*>(address) + pages.asked, pages.size - pages.asked);
    bytes_ -= pages.size - pages.asked;
    pages.size = pages.asked;
  }
}

void WeightPool::Free(void* address) {
  if (address == nullptr || unmap_pages(address)) return;
  bytes_ -= malloc_usable_size(address);
  std::free(address);
}

}  // namespace marlo::runtime
