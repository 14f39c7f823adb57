#pragma once

#include <cstddef>

namespace marlo::kernel::layout {

// Cores of the layout transforms: [channels, pixels] planes on one side, blocks of n channels per
// pixel on the other, or blocks of 4 and of 8. Each block of planes is a matrix of n rows whose
// transpose is the block, so the vector forms transpose squares in registers.

/// Moves `channels` planes of `pixels` floats. To blocks: where the channels don't fill the last
/// block, its other lanes become zero; forms that say "whole blocks" take a multiple of the block.
/// From blocks, and between blocks: a multiple of the larger block.
using Core = void (*)(const float* source, float* target, size_t channels, size_t pixels) noexcept;

// Planes to blocks. "gather" takes one pixel per step, and whole blocks only.
void planes_to_blocks_of_4_gather_sse(const float*, float*, size_t, size_t) noexcept;
void planes_to_blocks_of_4_sse(const float*, float*, size_t, size_t) noexcept;
void planes_to_blocks_of_8_sse(const float*, float*, size_t, size_t) noexcept;
void planes_to_blocks_of_8_gather_avx(const float*, float*, size_t, size_t) noexcept;
void planes_to_blocks_of_8_avx(const float*, float*, size_t, size_t) noexcept;

// Blocks to planes. "scatter" takes one pixel per step, "wide" eight where the plain form takes
// four.
void blocks_of_4_to_planes_sse(const float*, float*, size_t, size_t) noexcept;
void blocks_of_8_to_planes_sse(const float*, float*, size_t, size_t) noexcept;
void blocks_of_8_to_planes_wide_sse(const float*, float*, size_t, size_t) noexcept;
void blocks_of_8_to_planes_scatter_avx(const float*, float*, size_t, size_t) noexcept;
void blocks_of_8_to_planes_avx(const float*, float*, size_t, size_t) noexcept;

// Pairs of blocks of 4 side by side, and apart again.
void blocks_of_4_to_8_sse(const float*, float*, size_t, size_t) noexcept;
void blocks_of_8_to_4_sse(const float*, float*, size_t, size_t) noexcept;

}  // namespace marlo::kernel::layout
