#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace marlo::bench {

/// How wide a kernel loads and stores.
enum class Width { sse = 16, avx = 32 };

constexpr size_t bytes_of(Width width) { return static_cast<size_t>(width); }

/// @name What this processor, and the system on it, can run
/// @{
bool has_avx();
bool has_fma();
bool has_avx512();
/// @}

/// The processor's own name for itself.
std::string processor_name();

/// Whether this processor runs the kernel of that name.
bool can_run(std::string_view kernel);

/// The width of the kernel of that name; a portable one counts as SSE, the compiler's baseline.
Width width_of(std::string_view kernel);

/// Keeps this thread on the core on which it runs. @return the core's number, or -1
int pin_to_one_core();

/// Seconds for which this thread has run.
double thread_seconds();

/// Seconds by the clock on the wall, since no particular time. Reading it takes less time.
double wall_seconds();

}  // namespace marlo::bench
