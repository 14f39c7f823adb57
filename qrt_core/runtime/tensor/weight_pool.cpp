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
  void* const address =
      mmap(nullptr, whole, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (address == MAP_FAILED) return nullptr;
  try {
    pages_.emplace(address, whole);
  } catch (...) {
    munmap(address, whole);
    throw;
  }
  bytes_ += whole;
  return address;
}

bool WeightPool::unmap_pages(void* address) {
  const std::lock_guard<std::mutex> lock(lock_);
  const auto found = pages_.find(address);
  if (found == pages_.end()) return false;
  munmap(address, found->second);
  bytes_ -= found->second;
  pages_.erase(found);
  return true;
}

void WeightPool::Free(void* address) {
  if (address == nullptr || unmap_pages(address)) return;
  bytes_ -= malloc_usable_size(address);
  std::free(address);
}

}  // namespace marlo::runtime
