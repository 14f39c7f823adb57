#pragma once

#include <cstddef>
#include <cstdint>

// Fixed-point products over blocks of eight channels.

namespace marlo::kernel::conv {

/// Adds a 1x1 convolution onto `output`, [out_blocks, pixels, 8]. Each product is shifted right by
/// `shift` bits, which rounds towards minus infinity, and saturated to 16 bits; the sums wrap
/// around.
/// @param input [in_blocks, pixels, 8]
/// @param weight [out_blocks, in_blocks, 8 input channels, 8 output channels]
/// @param shift 8 to 12
void point_int16_sse(const int16_t* input, const int16_t* weight, int16_t* output, size_t in_blocks,
                     size_t out_blocks, size_t pixels, unsigned shift) noexcept;

}  // namespace marlo::kernel::conv
