#pragma once

// Defines QRT_UNDER_SANITIZER where a sanitizer has replaced the allocator: it counts blocks
// itself, and ends the program over a request that no system could serve.

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QRT_UNDER_SANITIZER 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QRT_UNDER_SANITIZER 1
#endif

// What AddressSanitizer lets a program touch; without it these do nothing.
#if __has_include(<sanitizer/asan_interface.h>)
#include <sanitizer/asan_interface.h>
#define QRT_ALLOW_ACCESS(memory, size) ASAN_UNPOISON_MEMORY_REGION(memory, size)
#define QRT_REFUSE_ACCESS(memory, size) ASAN_POISON_MEMORY_REGION(memory, size)
#else
#define QRT_ALLOW_ACCESS(memory, size) ((void)(memory), (void)(size))
#define QRT_REFUSE_ACCESS(memory, size) ((void)(memory), (void)(size))
#endif
