#pragma once

#include <cstddef>

namespace marlo::kernel::channel_multiply {

/// Multiplies each pixel of `blocks` planes of `pixels` by the block's own factors:
/// output[b, p, lane] = factors[b, lane] * map[b, p, lane].
using Core = void (*)(const float* factors, const float* map, float* output, size_t blocks,
                      size_t pixels) noexcept;

void multiply_c4_avx(const float*, const float*, float*, size_t blocks, size_t pixels) noexcept;
void multiply_c8_avx(const float*, const float*, float*, size_t blocks, size_t pixels) noexcept;

}  // namespace marlo::kernel::channel_multiply
