#pragma once

#include <cstdint>

#include "qrt_core/kernel/image/color_functions.h"

// Crops, flips and turns as functions, with checks that say what is wrong. All throw
// std::runtime_error: with the message of the check for a wrong layout, data type or location, and
// without one where sizes don't fit each other. Input and output are different tensors on different
// memory: where they share it, the picture is wrong without a message.

namespace marlo::kernel::functional {

/// @name Crops
/// Copies `height` rows and `width` columns from row `top` and column `left` on; the rectangle lies
/// in the input and is as large as the output. Elements are of any data type, the same in both.
/// @{
QRT_API void F_Crop_CHW_Memcpy(const ImageTensor& i_img, const unsigned int& top,
                               const unsigned int& left, const unsigned int& height,
                               const unsigned int& width, ImageTensor& o_img);
QRT_API void F_Crop_HWC_Memcpy(const ImageTensor& i_img, const unsigned int& top,
                               const unsigned int& left, const unsigned int& height,
                               const unsigned int& width, ImageTensor& o_img);
QRT_API void F_Crop_C4HW4_Memcpy(const ImageTensor& i_img, const unsigned int& top,
                                 const unsigned int& left, const unsigned int& height,
                                 const unsigned int& width, ImageTensor& o_img);
QRT_API void F_Crop_C8HW8_Memcpy(const ImageTensor& i_img, const unsigned int& top,
                                 const unsigned int& left, const unsigned int& height,
                                 const unsigned int& width, ImageTensor& o_img);
/// @}

/// A crop of an interleaved UINT8 picture that may reach outside of it: the output is `fill` there.
QRT_API void F_Crop_U8_HWC_Memcpy(const ImageTensor& i_img, const int& top, const int& left,
                                  const int& height, const int& width, const uint8_t& fill,
                                  ImageTensor& o_img);

/// @name Flips
/// Left and right exchanged, or top and bottom, of an interleaved picture. Both tensors have the
/// same shape.
/// @{
QRT_API void F_HFlip_HWC_Fallback(const ImageTensor& i_img, ImageTensor& o_img);
QRT_API void F_VFlip_HWC_Fallback(const ImageTensor& i_img, ImageTensor& o_img);
/// @}

/// @name Turns
/// Clockwise, of an interleaved picture [H, W, C]: by 90 and 270 degrees into [W, H, C].
/// @{
QRT_API void F_Rotate_Clockwise90_HWC_Fallback(const ImageTensor& i_img, ImageTensor& o_img);
QRT_API void F_Rotate_Clockwise180_HWC_Fallback(const ImageTensor& i_img, ImageTensor& o_img);
QRT_API void F_Rotate_Clockwise270_HWC_Fallback(const ImageTensor& i_img, ImageTensor& o_img);
/// @}

}  // namespace marlo::kernel::functional
