#pragma once

#include <memory>

#include "qrt_core/runtime/tensor/context.h"
#include "qrt_core/runtime/tensor/tensor.h"
#include "qrt_core/utility/export.h"

namespace marlo::kernel {

/// Operations that turn pictures into network input, each chosen by a number.
///
/// Pictures are UINT8 or FLOAT32 tensors in main memory: planar (layout CHW, [channels, height,
/// width]) or interleaved (layout HWC, [height, width, channels]). The output tensor is made by the
/// caller and says, where an operation can choose, which size is wanted. Input and output are
/// different tensors on different memory: where they share it, pixels are read that were already
/// written, and the picture is wrong without a message.
///
/// This class implements nothing: each of its operations fails with "Not Implemented.". An
/// application makes an `ImageProcessFallback`, and an `ImageProcessSSE` beside it for the
/// normalised warp. Objects hold no data, and one may serve any number of threads.
///
/// A code that isn't in the table of an overload does nothing and reports nothing. An operation
/// fails, with an exception of type std::runtime_error, where its check of a layout or a data type
/// fails (without a message), and where a tensor is too small for what would be read or written.
class QRT_API ImageProcess {
 public:
  /// Inputs and outputs, which the caller makes.
  using TensorPointer = std::shared_ptr<runtime::Tensor>;
  /// Operations take it for the sake of a common form and don't use it; it may be null.
  using ContextPointer = std::shared_ptr<runtime::Context>;

  /// @name Making and copying
  /// @{

  /// Objects hold no data.
  ImageProcess() = default;
  ImageProcess(const ImageProcess&) = default;
  ImageProcess& operator=(const ImageProcess&) = default;
  virtual ~ImageProcess();
  /// @}

  /// Conversions, turns, flips and resizes.
  ///
  /// | Code | Operation | Code | Operation |
  /// |---|---|---|---|
  /// | 1 | RGBA to RGB planes | 50 | quarter turn clockwise |
  /// | 3 | RGBA to BGR planes | 51 | half turn |
  /// | 4 | RGB to BGR planes | 52 | quarter turn counter-clockwise |
  /// | 6, 7, 11 | BGR, RGB, RGBA to gray | 53, 54 | flip left-right, upside down |
  /// | 22, 24, 32 | NV12, NV21, IYUV to RGB planes | 60, 61 | HWC to CHW, CHW to HWC |
  /// | 77 | nearest resize, one channel | 65 | UINT8 to FLOAT32 |
  /// | 81 to 84 | bilinear resize, 1 to 4 channels | | |
  ///
  /// YUV pictures have dims [height, width, ...] of the luminance, and their buffer goes on behind
  /// it with the chrominance: see `yuv420_image`. An external tensor is trusted to do so; one whose
  /// buffer is the library's must be large enough. Pictures of odd height or width are ignored.
  ///
  /// Turns and flips take layouts CHW and HWC, both tensors the same, and ignore any other. Resizes
  /// take FLEXIABLE tensors: the nearest one [height, width], the bilinear ones
  /// [any, height, width] of interleaved pixels, also with 2 to 4 channels: [height, width, 3] is
  /// taken as a picture of `width` rows of 3 pixels.
  void ConvertPixel(const TensorPointer& input, const TensorPointer& output, int code,
                    ContextPointer context);

  /// Crops of 1 to 4 channels, codes 100 to 103, and crops with a nearest resize, codes 85 to 88.
  ///
  /// Both take interleaved bytes, [height, width, ...]; those with a resize, FLEXIABLE tensors. The
  /// rectangle is in fractions of the picture, borders included, and may reach outside of it: a
  /// crop leaves the output there as it was, a crop with a resize makes it 0. A crop goes from
  /// pixel int(width * left) to pixel int(width * right) with both of them, so that 0, 0, 1, 1
  /// makes rows of width + 1 pixels, of which the last stays as it was.
  void ConvertPixel(const TensorPointer& input, const TensorPointer& output, float left, float top,
                    float right, float bottom, int code, ContextPointer context);

  /// Warps of FLOAT32 planes by a matrix of six numbers, row by row: 55 in coordinates from -1 to
  /// 1 (`ImageProcessSSE` only), 56 forward, 57 inverse nearest, 58 inverse bilinear.
  void ConvertPixel(const TensorPointer& input, const TensorPointer& output, const float* matrix,
                    int code, ContextPointer context);

 protected:
  using Input = const TensorPointer&;   ///< what an operation reads
  using Output = const TensorPointer&;  ///< what it fills

 private:
  virtual void ConvertRGBAtoRGB(Input input, Output output, ContextPointer context);
  virtual void ConvertRGBtoBGR(Input input, Output output, ContextPointer context);
  virtual void ConvertRGBAtoBGR(Input input, Output output, ContextPointer context);
  virtual void ConvertYUV2RGB_NV21(Input input, Output output, ContextPointer context);
  virtual void ConvertYUV2RGB_NV12(Input input, Output output, ContextPointer context);
  virtual void ConvertYUV2RGB_IYUV(Input input, Output output, ContextPointer context);
  virtual void ConvertRGB2Gray(Input input, Output output, ContextPointer context);
  virtual void ConvertRGBA2Gray(Input input, Output output, ContextPointer context);
  virtual void ConvertBGR2Gray(Input input, Output output, ContextPointer context);
  virtual void ClockwiseRotate90(Input input, Output output, ContextPointer context);
  virtual void ClockwiseRotate180(Input input, Output output, ContextPointer context);
  virtual void ClockwiseRotate270(Input input, Output output, ContextPointer context);
  virtual void Flip_Horizintal(Input input, Output output, ContextPointer context);
  virtual void Flip_Vertical(Input input, Output output, ContextPointer context);
  virtual void Affine_Normalize(Input input, Output output, const float* matrix,
                                ContextPointer context);
  virtual void Affine_Float(Input input, Output output, const float* matrix,
                            ContextPointer context);
  virtual void Affine_INV_Float(Input input, Output output, const float* matrix,
                                ContextPointer context);
  virtual void Affine_INV_BILINEAR_Float(Input input, Output output, const float* matrix,
                                         ContextPointer context);
  virtual void Affine_INV_BILINEAR_Float_Border(Input input, Output output, const float* matrix,
                                                ContextPointer context);
  virtual void HWC2CHW(Input input, Output output, ContextPointer context);
  virtual void CHW2HWC(Input input, Output output, ContextPointer context);
  virtual void Convert8U_To_32F(Input input, Output output, ContextPointer context);
  virtual void Crop_C1(Input input, Output output, float left, float top, float right, float bottom,
                       ContextPointer context);
  virtual void Crop_C2(Input input, Output output, float left, float top, float right, float bottom,
                       ContextPointer context);
  virtual void Crop_C3(Input input, Output output, float left, float top, float right, float bottom,
                       ContextPointer context);
  virtual void Crop_C4(Input input, Output output, float left, float top, float right, float bottom,
                       ContextPointer context);
  virtual void Resize_Nearest_C1(Input input, Output output, ContextPointer context);
  virtual void Resize_Bilinear_C1(Input input, Output output, ContextPointer context);
  virtual void Resize_Bilinear_C2(Input input, Output output, ContextPointer context);
  virtual void Resize_Bilinear_C3(Input input, Output output, ContextPointer context);
  virtual void Resize_Bilinear_C4(Input input, Output output, ContextPointer context);
  virtual void Crop_Resize_Nearest_C1(Input input, Output output, float left, float top,
                                      float right, float bottom, ContextPointer context);
  virtual void Crop_Resize_Nearest_C2(Input input, Output output, float left, float top,
                                      float right, float bottom, ContextPointer context);
  virtual void Crop_Resize_Nearest_C3(Input input, Output output, float left, float top,
                                      float right, float bottom, ContextPointer context);
  virtual void Crop_Resize_Nearest_C4(Input input, Output output, float left, float top,
                                      float right, float bottom, ContextPointer context);
};

/// All operations but the normalised warp, in portable code.
class QRT_API ImageProcessFallback : public ImageProcess {
 public:
  /// @name Making and copying
  /// @{

  /// Objects hold no data.
  ImageProcessFallback() = default;
  ImageProcessFallback(const ImageProcessFallback&) = default;
  ImageProcessFallback& operator=(const ImageProcessFallback&) = default;
  ~ImageProcessFallback() override;
  /// @}

 private:
  void ConvertRGBAtoRGB(Input input, Output output, ContextPointer context) override;
  void ConvertRGBtoBGR(Input input, Output output, ContextPointer context) override;
  void ConvertRGBAtoBGR(Input input, Output output, ContextPointer context) override;
  void ConvertYUV2RGB_NV21(Input input, Output output, ContextPointer context) override;
  void ConvertYUV2RGB_NV12(Input input, Output output, ContextPointer context) override;
  void ConvertYUV2RGB_IYUV(Input input, Output output, ContextPointer context) override;
  void ConvertRGB2Gray(Input input, Output output, ContextPointer context) override;
  void ConvertRGBA2Gray(Input input, Output output, ContextPointer context) override;
  void ConvertBGR2Gray(Input input, Output output, ContextPointer context) override;
  void ClockwiseRotate90(Input input, Output output, ContextPointer context) override;
  void ClockwiseRotate180(Input input, Output output, ContextPointer context) override;
  void ClockwiseRotate270(Input input, Output output, ContextPointer context) override;
  void Flip_Horizintal(Input input, Output output, ContextPointer context) override;
  void Flip_Vertical(Input input, Output output, ContextPointer context) override;
  void Affine_Float(Input input, Output output, const float* matrix,
                    ContextPointer context) override;
  void Affine_INV_Float(Input input, Output output, const float* matrix,
                        ContextPointer context) override;
  void Affine_INV_BILINEAR_Float(Input input, Output output, const float* matrix,
                                 ContextPointer context) override;
  void HWC2CHW(Input input, Output output, ContextPointer context) override;
  void CHW2HWC(Input input, Output output, ContextPointer context) override;
  void Convert8U_To_32F(Input input, Output output, ContextPointer context) override;
  void Crop_C1(Input input, Output output, float left, float top, float right, float bottom,
               ContextPointer context) override;
  void Crop_C2(Input input, Output output, float left, float top, float right, float bottom,
               ContextPointer context) override;
  void Crop_C3(Input input, Output output, float left, float top, float right, float bottom,
               ContextPointer context) override;
  void Crop_C4(Input input, Output output, float left, float top, float right, float bottom,
               ContextPointer context) override;
  void Resize_Nearest_C1(Input input, Output output, ContextPointer context) override;
  void Resize_Bilinear_C1(Input input, Output output, ContextPointer context) override;
  void Resize_Bilinear_C2(Input input, Output output, ContextPointer context) override;
  void Resize_Bilinear_C3(Input input, Output output, ContextPointer context) override;
  void Resize_Bilinear_C4(Input input, Output output, ContextPointer context) override;
  void Crop_Resize_Nearest_C1(Input input, Output output, float left, float top, float right,
                              float bottom, ContextPointer context) override;
  void Crop_Resize_Nearest_C2(Input input, Output output, float left, float top, float right,
                              float bottom, ContextPointer context) override;
  void Crop_Resize_Nearest_C3(Input input, Output output, float left, float top, float right,
                              float bottom, ContextPointer context) override;
  void Crop_Resize_Nearest_C4(Input input, Output output, float left, float top, float right,
                              float bottom, ContextPointer context) override;
};

/// The quarter turns of bytes, and the normalised warp; nothing else.
///
/// The turns take UINT8 tensors whose dims[0] and dims[1] are multiples of 4, whatever the layout:
/// height and width of HWC, channels and height of CHW. They leave the output of any other input as
/// it was, and do with these what `ImageProcessFallback` does. A layout that is neither is taken as
/// interleaved pixels, [height, width, ...].
class QRT_API ImageProcessSSE : public ImageProcess {
 public:
  /// @name Making and copying
  /// @{

  /// Objects hold no data.
  ImageProcessSSE() = default;
  ImageProcessSSE(const ImageProcessSSE&) = default;
  ImageProcessSSE& operator=(const ImageProcessSSE&) = default;
  ~ImageProcessSSE() override;
  /// @}

 private:
  void ClockwiseRotate90(Input input, Output output, ContextPointer context) override;
  void ClockwiseRotate270(Input input, Output output, ContextPointer context) override;
  void Affine_Normalize(Input input, Output output, const float* matrix,
                        ContextPointer context) override;
};

/// All operations of `ImageProcessFallback`, with the same results to the bit, for processors with
/// AVX2.
///
/// Those on colours, layouts and data types, the half turn, the flip left-right, and the bilinear
/// resize to exactly half the height and width run in vectors of 32 bytes. Results of 4 MiB and more
/// are written past the caches where their planes begin at multiples of 32 bytes and are multiples of
/// 64 bytes apart. Where the library was built without AVX kernels, the portable loops run.
class QRT_API ImageProcessAVX2 : public ImageProcessFallback {
 public:
  /// @name Making and copying
  /// @{

  /// Objects hold no data.
  ImageProcessAVX2() = default;
  ImageProcessAVX2(const ImageProcessAVX2&) = default;
  ImageProcessAVX2& operator=(const ImageProcessAVX2&) = default;
  ~ImageProcessAVX2() override;
  /// @}

 private:
  void ConvertRGBAtoRGB(Input input, Output output, ContextPointer context) override;
  void ConvertRGBtoBGR(Input input, Output output, ContextPointer context) override;
  void ConvertRGBAtoBGR(Input input, Output output, ContextPointer context) override;
  void ConvertRGB2Gray(Input input, Output output, ContextPointer context) override;
  void ConvertRGBA2Gray(Input input, Output output, ContextPointer context) override;
  void ConvertBGR2Gray(Input input, Output output, ContextPointer context) override;
  void ClockwiseRotate180(Input input, Output output, ContextPointer context) override;
  void Flip_Horizintal(Input input, Output output, ContextPointer context) override;
  void HWC2CHW(Input input, Output output, ContextPointer context) override;
  void CHW2HWC(Input input, Output output, ContextPointer context) override;
  void Convert8U_To_32F(Input input, Output output, ContextPointer context) override;
  void Resize_Bilinear_C1(Input input, Output output, ContextPointer context) override;
  void Resize_Bilinear_C2(Input input, Output output, ContextPointer context) override;
  void Resize_Bilinear_C3(Input input, Output output, ContextPointer context) override;
  void Resize_Bilinear_C4(Input input, Output output, ContextPointer context) override;
};

}  // namespace marlo::kernel
