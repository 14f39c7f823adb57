#pragma once

#include <cstdint>

namespace qrt_tool {

/// How many blocks the calling thread has taken by `new` so far. The operators of the whole program
/// are replaced by ones that count.
uint64_t allocation_count();

}  // namespace qrt_tool
