#include "qrt_core/runtime/tensor/weight_pool.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <new>

#include "qrt_core/utility/log.h"

namespace marlo::runtime {

WeightPool::WeightPool(size_t alignment) : alignment_(std::max(alignment, sizeof(void*))) {
  const bool power_of_two = alignment != 0 && (alignment & (alignment - 1)) == 0;
  utility::Assert(power_of_two, "alignment %zu of a memory pool is not a power of two", alignment);
}

void* WeightPool::Allocate(uint64_t size) {
  void* address = nullptr;
  // A block of no bytes has an address too.
  const uint64_t bytes = std::max<uint64_t>(size, 1);
  if (bytes > std::numeric_limits<int64_t>::max() ||
      posix_memalign(&address, alignment_, bytes) != 0) {
    throw std::bad_alloc();
  }
  bytes_ += malloc_usable_size(address);
  return address;
}

void WeightPool::Free(void* address) {
  if (address == nullptr) return;
  bytes_ -= malloc_usable_size(address);
  std::free(address);
}

}  // namespace marlo::runtime
