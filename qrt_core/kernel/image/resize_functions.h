#pragma once

#include "qrt_core/kernel/image/color_functions.h"

// Resizes of interleaved UINT8 pictures [H, W, C]; the output's dims give the size. Nothing is
// checked but that both buffers hold the pixels that their dims tell of. Input and output are
// different tensors on different memory.

namespace marlo::kernel::functional {

/// @name Bilinear, in fixed point
/// By the half-pixel rule, with weights of 11 fractional bits.
/// @{
QRT_API void F_Resize_Bilinear_HWC_U8_C1_Fallback(const ImageTensor& i_img, ImageTensor& o_img);
QRT_API void F_Resize_Bilinear_HWC_U8_C2_Fallback(const ImageTensor& i_img, ImageTensor& o_img);
QRT_API void F_Resize_Bilinear_HWC_U8_C3_Fallback(const ImageTensor& i_img, ImageTensor& o_img);
QRT_API void F_Resize_Bilinear_HWC_U8_C4_Fallback(const ImageTensor& i_img, ImageTensor& o_img);
/// @}

/// @name Nearest
/// Column i is taken from the truncated sum of i steps of input width / output width, in float, and
/// rows likewise: without the half-pixel rule of `ImageProcessFallback`.
/// @{
QRT_API void F_Resize_Nearest_HWC_U8_C1_Fallback(const ImageTensor& i_img, ImageTensor& o_img);
QRT_API void F_Resize_Nearest_HWC_U8_C2_Fallback(const ImageTensor& i_img, ImageTensor& o_img);
QRT_API void F_Resize_Nearest_HWC_U8_C3_Fallback(const ImageTensor& i_img, ImageTensor& o_img);
QRT_API void F_Resize_Nearest_HWC_U8_C4_Fallback(const ImageTensor& i_img, ImageTensor& o_img);
/// @}

}  // namespace marlo::kernel::functional
