#include "qrt_core/kernel/image/image_process.h"

#include "qrt_core/utility/log.h"

// The dispatch, and the class that implements nothing.

namespace marlo::kernel {
namespace {

void not_implemented() { utility::Assert(false, "Not Implemented."); }

}  // namespace

ImageProcess::~ImageProcess() = default;

void ImageProcess::ConvertPixel(const TensorPointer& input, const TensorPointer& output, int code,
                                ContextPointer context) {
  switch (code) {
    case 1:
      return ConvertRGBAtoRGB(input, output, context);
    case 3:
      return ConvertRGBAtoBGR(input, output, context);
    case 4:
      return ConvertRGBtoBGR(input, output, context);
    case 6:
      return ConvertBGR2Gray(input, output, context);
    case 7:
      return ConvertRGB2Gray(input, output, context);
    case 11:
      return ConvertRGBA2Gray(input, output, context);
    case 22:
      return ConvertYUV2RGB_NV12(input, output, context);
    case 24:
      return ConvertYUV2RGB_NV21(input, output, context);
    case 32:
      return ConvertYUV2RGB_IYUV(input, output, context);
    case 50:
      return ClockwiseRotate90(input, output, context);
    case 51:
      return ClockwiseRotate180(input, output, context);
    case 52:
      return ClockwiseRotate270(input, output, context);
    case 53:
      return Flip_Horizintal(input, output, context);
    case 54:
      return Flip_Vertical(input, output, context);
    case 60:
      return HWC2CHW(input, output, context);
    case 61:
      return CHW2HWC(input, output, context);
    case 65:
      return Convert8U_To_32F(input, output, context);
    case 77:
      return Resize_Nearest_C1(input, output, context);
    case 81:
      return Resize_Bilinear_C1(input, output, context);
    case 82:
      return Resize_Bilinear_C2(input, output, context);
    case 83:
      return Resize_Bilinear_C3(input, output, context);
    case 84:
      return Resize_Bilinear_C4(input, output, context);
    default:
      return;
  }
}

void ImageProcess::ConvertPixel(const TensorPointer& input, const TensorPointer& output, float left,
                                float top, float right, float bottom, int code,
                                ContextPointer context) {
  switch (code) {
    case 85:
      return Crop_Resize_Nearest_C1(input, output, left, top, right, bottom, context);
    case 86:
      return Crop_Resize_Nearest_C2(input, output, left, top, right, bottom, context);
    case 87:
      return Crop_Resize_Nearest_C3(input, output, left, top, right, bottom, context);
    case 88:
      return Crop_Resize_Nearest_C4(input, output, left, top, right, bottom, context);
    case 100:
      return Crop_C1(input, output, left, top, right, bottom, context);
    case 101:
      return Crop_C2(input, output, left, top, right, bottom, context);
    case 102:
      return Crop_C3(input, output, left, top, right, bottom, context);
    case 103:
      return Crop_C4(input, output, left, top, right, bottom, context);
    default:
      return;
  }
}

void ImageProcess::ConvertPixel(const TensorPointer& input, const TensorPointer& output,
                                const float* matrix, int code, ContextPointer context) {
  switch (code) {
    case 55:
      return Affine_Normalize(input, output, matrix, context);
    case 56:
      return Affine_Float(input, output, matrix, context);
    case 57:
      return Affine_INV_Float(input, output, matrix, context);
    case 58:
      return Affine_INV_BILINEAR_Float(input, output, matrix, context);
    default:
      return;
  }
}

void ImageProcess::ConvertRGBAtoRGB(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::ConvertRGBtoBGR(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::ConvertRGBAtoBGR(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::ConvertYUV2RGB_NV21(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::ConvertYUV2RGB_NV12(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::ConvertYUV2RGB_IYUV(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::ConvertRGB2Gray(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::ConvertRGBA2Gray(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::ConvertBGR2Gray(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::ClockwiseRotate90(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::ClockwiseRotate180(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::ClockwiseRotate270(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::Flip_Horizintal(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::Flip_Vertical(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::Affine_Normalize(Input, Output, const float*, ContextPointer) {
  not_implemented();
}
void ImageProcess::Affine_Float(Input, Output, const float*, ContextPointer) { not_implemented(); }
void ImageProcess::Affine_INV_Float(Input, Output, const float*, ContextPointer) {
  not_implemented();
}
void ImageProcess::Affine_INV_BILINEAR_Float(Input, Output, const float*, ContextPointer) {
  not_implemented();
}
void ImageProcess::Affine_INV_BILINEAR_Float_Border(Input, Output, const float*, ContextPointer) {
  not_implemented();
}
void ImageProcess::HWC2CHW(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::CHW2HWC(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::Convert8U_To_32F(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::Crop_C1(Input, Output, float, float, float, float, ContextPointer) {
  not_implemented();
}
void ImageProcess::Crop_C2(Input, Output, float, float, float, float, ContextPointer) {
  not_implemented();
}
void ImageProcess::Crop_C3(Input, Output, float, float, float, float, ContextPointer) {
  not_implemented();
}
void ImageProcess::Crop_C4(Input, Output, float, float, float, float, ContextPointer) {
  not_implemented();
}
void ImageProcess::Resize_Nearest_C1(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::Resize_Bilinear_C1(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::Resize_Bilinear_C2(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::Resize_Bilinear_C3(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::Resize_Bilinear_C4(Input, Output, ContextPointer) { not_implemented(); }
void ImageProcess::Crop_Resize_Nearest_C1(Input, Output, float, float, float, float,
                                          ContextPointer) {
  not_implemented();
}
void ImageProcess::Crop_Resize_Nearest_C2(Input, Output, float, float, float, float,
                                          ContextPointer) {
  not_implemented();
}
void ImageProcess::Crop_Resize_Nearest_C3(Input, Output, float, float, float, float,
                                          ContextPointer) {
  not_implemented();
}
void ImageProcess::Crop_Resize_Nearest_C4(Input, Output, float, float, float, float,
                                          ContextPointer) {
  not_implemented();
}

}  // namespace marlo::kernel
