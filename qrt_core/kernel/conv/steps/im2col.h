#pragma once

#include <cstdint>

namespace marlo::kernel {

/// @name Windows as columns
/// Turns a convolution into a product of matrices: plane c * kernel_y * kernel_x + t of the
/// destination, [height_out, width_out, block], holds for every output the pixel of block c under
/// tap t = ky * kernel_x + kx of its window. The source is [blocks, height, width, block] and holds
/// every window; both are dense, and don't overlap. A filter of 1 x 1 at stride 1 is a plain copy.
///
/// The names are those of the kernels that came first: all members of the family use them, and none
/// needs more than a baseline processor.
/// @param blocks of channels, of which a plane of the first form is one
/// @{
void Im2col_CHW_Float_SSE(uint32_t blocks, uint32_t height, uint32_t width, uint32_t height_out,
                          uint32_t width_out, uint32_t kernel_y, uint32_t kernel_x,
                          uint32_t stride_y, uint32_t stride_x, uint32_t dilation_y,
                          uint32_t dilation_x, const float* source, float* destination) noexcept;
void Im2col_C4HW4_Float_SSE(uint32_t blocks, uint32_t height, uint32_t width, uint32_t height_out,
                            uint32_t width_out, uint32_t kernel_y, uint32_t kernel_x,
                            uint32_t stride_y, uint32_t stride_x, uint32_t dilation_y,
                            uint32_t dilation_x, const float* source, float* destination) noexcept;
void Im2col_C8HW8_Float_AVX(uint32_t blocks, uint32_t height, uint32_t width, uint32_t height_out,
                            uint32_t width_out, uint32_t kernel_y, uint32_t kernel_x,
                            uint32_t stride_y, uint32_t stride_x, uint32_t dilation_y,
                            uint32_t dilation_x, const float* source, float* destination) noexcept;
/// @}

}  // namespace marlo::kernel
