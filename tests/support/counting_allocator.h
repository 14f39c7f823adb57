#pragma once

// Counts every call to the system allocator that the running thread makes, and can make the
// operators new, and requests for aligned blocks, fail. It replaces allocation functions of the
// whole program: include it in exactly one file of a test program.

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "tests/support/allocator_counts.h"
#include "tests/support/sanitizer.h"

namespace marlo::test {
namespace counting {

inline void* allocate(size_t size) {
  if (calls_to_failure != 0 && --calls_to_failure == 0) throw std::bad_alloc();
  void* address = std::malloc(size);
  if (address == nullptr) throw std::bad_alloc();
  ++objects;
  return address;
}

inline void release(void* address) noexcept {
  if (address != nullptr) --objects;
  std::free(address);
}

}  // namespace counting
}  // namespace marlo::test

void* operator new(size_t size) { return marlo::test::counting::allocate(size); }
void* operator new[](size_t size) { return marlo::test::counting::allocate(size); }
void operator delete(void* address) noexcept { marlo::test::counting::release(address); }
void operator delete[](void* address) noexcept { marlo::test::counting::release(address); }
void operator delete(void* address, size_t) noexcept { marlo::test::counting::release(address); }
void operator delete[](void* address, size_t) noexcept { marlo::test::counting::release(address); }

#ifdef QRT_UNDER_SANITIZER

// The sanitizer's own allocator reports each block that it hands out.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*malloc_hook)(const volatile void*,
                                                                             size_t),
                                                         void (*free_hook)(const volatile void*));

namespace marlo::test::counting {
inline const int hooks = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, size_t) { ++calls; }, [](const volatile void*) {});
}

#else

extern "C" {

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* address, size_t size);
void* __libc_memalign(size_t alignment, size_t size);

void* malloc(size_t size) noexcept {
  ++marlo::test::counting::calls;
  return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) noexcept {
  ++marlo::test::counting::calls;
  return __libc_calloc(count, size);
}

void* realloc(void* address, size_t size) noexcept {
  ++marlo::test::counting::calls;
  return __libc_realloc(address, size);
}

void* aligned_alloc(size_t alignment, size_t size) noexcept {
  ++marlo::test::counting::calls;
  return __libc_memalign(alignment, size);
}

int posix_memalign(void** address, size_t alignment, size_t size) noexcept {
  ++marlo::test::counting::calls;
  uint64_t& to_failure = marlo::test::counting::blocks_to_failure;
  if (to_failure != 0 && --to_failure == 0) return ENOMEM;
  *address = __libc_memalign(alignment, size);
  return *address == nullptr ? ENOMEM : 0;
}
}

#endif
