#pragma once

#include <memory>

#include "qrt_core/runtime/tensor/tensor.h"
#include "qrt_core/utility/export.h"

// Colour conversion and normalisation as functions, with checks that say what is wrong. All throw
// std::runtime_error; what they check is named by the message. Inputs and outputs are different
// tensors on different memory, except where a function says otherwise: where they share it, the
// picture is wrong without a message.

namespace marlo::kernel {

/// How to make red, green and blue of a luminance and two chrominance values p and q (u and v, or v
/// and u, as the picture has them): red = (Y - 256 * y_offset) * y_scale +
/// (p - 256 * u_offset) * r_u + (q - 256 * v_offset) * r_v, and so on.
///
/// Factors are used with 5 fractional bits and offsets as integers, both truncated toward zero.
///
/// Plain data: any number of threads may read it while none changes it.
struct YUVCvtMatrix {
  float y_scale;   ///< factor of the luminance in all three colours
  float r_u;       ///< factor of p in red
  float r_v;       ///< factor of q in red
  float g_u;       ///< factor of p in green
  float g_v;       ///< factor of q in green
  float b_u;       ///< factor of p in blue
  float b_v;       ///< factor of q in blue
  float y_offset;  ///< what is taken off the luminance first, as a fraction of 256
  float u_offset;  ///< the same for p
  float v_offset;  ///< the same for q
};

namespace functional {

using kernel::YUVCvtMatrix;

/// What the functions take. Hold an output as one, for example
/// `ImageTensor small = device.CreateRGB888Tensor(224, 224, nullptr);`: a pointer to the
/// `TensorCPU` that a device makes converts to an input, but not to an output, which is taken by
/// reference.
using ImageTensor = std::shared_ptr<runtime::Tensor>;

/// @name Gray
/// 0.299 * byte 0 + 0.587 * byte 1 + 0.114 * byte 2, in double precision and truncated, of
/// interleaved pixels [H, W, 3] or [H, W, 4] of UINT8. The weights go by the place of the bytes:
/// `ConvertBGR2Gray` of `ImageProcessFallback` weighs blue and red the other way round.
/// @{
QRT_API void F_ColorCvt_BGR888_To_Gray8_Fallback(const ImageTensor& i_img, ImageTensor& o_img);
QRT_API void F_ColorCvt_BGRA8888_To_Gray8_Fallback(const ImageTensor& i_img, ImageTensor& o_img);
/// @}

/// @name Gray, for processors with AVX2
/// The same to the bit.
/// @{
QRT_API void F_ColorCvt_BGR888_To_Gray8_AVX2(const ImageTensor& i_img, ImageTensor& o_img);
QRT_API void F_ColorCvt_BGRA8888_To_Gray8_AVX2(const ImageTensor& i_img, ImageTensor& o_img);
/// @}

/// @name Planes of red, green and blue
/// [H, W, 4] of UINT8 and layout HWC to [3, H, W] of layout CHW; the fourth byte is dropped.
/// @{
QRT_API void F_ColorCvt_BGRA2RGB_HWC_UInt8_To_CHW_UInt8_Fallback(const ImageTensor& i_img,
                                                                 ImageTensor& o_img);
QRT_API void F_ColorCvt_RGBA2RGB_HWC_UInt8_To_CHW_UInt8_Fallback(const ImageTensor& i_img,
                                                                 ImageTensor& o_img);
/// @}

/// @name YUV pictures by a matrix
/// A luminance of [H, W, 1] and chrominance of half its height and width to planes [3, H, W] of
/// red, green and blue. Results keep their low 8 bits: nothing is clamped to 0 or 255.
/// @param i_chrominancePlane [H / 2, W / 2, 2]: pairs, p and then q
/// @param i_chrominanceBPlane, i_chrominanceRPlane [H / 2, W / 2, 1]: p and q
/// @{
QRT_API void F_ColorCvt_YUV_2Plane_UInt8_To_CHW_UInt8_Fallback(
    const ImageTensor& i_luminancePlane, const ImageTensor& i_chrominancePlane,
    const std::shared_ptr<YUVCvtMatrix>& i_cvtMat, ImageTensor& o_img);
QRT_API void F_ColorCvt_YUV_3Plane_UInt8_To_CHW_UInt8_Fallback(
    const ImageTensor& i_luminancePlane, const ImageTensor& i_chrominanceBPlane,
    const ImageTensor& i_chrominanceRPlane, const std::shared_ptr<YUVCvtMatrix>& i_cvtMat,
    ImageTensor& o_img);
/// @}

/// (float(byte) - i_sub[c]) * i_mul[c] of planes [C, H, W] of UINT8, to FLOAT32.
/// @param i_sub, i_mul FLOAT32 of one dim, C numbers each
QRT_API void F_Normalize_CHW_U8_To_CHW_F32_Fallback(const ImageTensor& i_img,
                                                    const ImageTensor& i_sub,
                                                    const ImageTensor& i_mul, ImageTensor& o_img);

/// The same to the bit, for processors with AVX2.
QRT_API void F_Normalize_CHW_U8_To_CHW_F32_AVX2(const ImageTensor& i_img, const ImageTensor& i_sub,
                                                const ImageTensor& i_mul, ImageTensor& o_img);

/// (x - subtrahend[c]) * multiplier[c] of planes [C, H, W] of FLOAT32. Either pointer may be null,
/// and its step is then left out; with both null nothing is written. Input and output may be one
/// tensor.
QRT_API void Normalize_CHW_Float_SSE(ImageTensor& input, ImageTensor& output,
                                     const float* multiplier, const float* subtrahend);

/// The same to the bit, for processors with AVX2.
QRT_API void Normalize_CHW_Float_AVX2(ImageTensor& input, ImageTensor& output,
                                      const float* multiplier, const float* subtrahend);

}  // namespace functional
}  // namespace marlo::kernel
