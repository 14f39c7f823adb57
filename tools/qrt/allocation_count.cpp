#include "tools/qrt/allocation_count.h"

#include <cstdlib>
#include <new>

namespace {

thread_local uint64_t taken = 0;

}  // namespace

// Clang's ThreadSanitizer brings its own, and nothing is counted with it.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define QRT_COUNTS_NOTHING 1
#endif
#endif

#ifndef QRT_COUNTS_NOTHING

// Every form of one object. Those of arrays end in these, as the plain library has it; AddressSanitizer has its own of each
// form, and a form that was left to it would be given back here.
void* operator new(size_t size) {
  ++taken;
  while (true) {
    if (void* const address = std::malloc(size == 0 ? 1 : size)) return address;
    const std::new_handler handler = std::get_new_handler();
    if (handler == nullptr) throw std::bad_alloc();
    handler();
  }
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* address) noexcept { std::free(address); }
void operator delete(void* address, size_t) noexcept { std::free(address); }
void operator delete(void* address, const std::nothrow_t&) noexcept { std::free(address); }

#endif

namespace qrt_tool {

uint64_t allocation_count() { return taken; }

}  // namespace qrt_tool
