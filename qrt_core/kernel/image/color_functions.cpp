#include "qrt_core/kernel/image/color_functions.h"

#include "qrt_core/kernel/image/color_cores.h"
#include "qrt_core/kernel/image/image_operands_internal.h"
#include "qrt_core/kernel/image/picture_cores.h"

namespace marlo::kernel::functional {
namespace {

using namespace image;
using utility::Assert;

bool is_cpu_tensor(const ImageTensor& tensor) {
  return dynamic_cast<const TensorCPU*>(tensor.get()) != nullptr;
}

bool has_type(const ImageTensor& tensor, DataType type) { return tensor->shape.data_type == type; }

void gray_of(const PictureCores& cores, const char* name, const ImageTensor& i_img, size_t channels,
             const ImageTensor& o_img) {
  const TensorCPU& from = operand(i_img, name);
  TensorCPU& to = operand(o_img, name);
  const uint64_t pixels = size_at(from, 0, name).pixels();
  demand_bytes(from, saturated_product(pixels, channels), name);
  demand_bytes(to, pixels, name);
  cores.gray_by_weights(elements<uint8_t>(from), channels, pixels, elements<uint8_t>(to));
}

// The message about the input's layout says CHW where HWC is meant and tested; programs know it so.
void check_planes_of_pixels(const ImageTensor& i_img, const ImageTensor& o_img, bool check_types) {
  Assert(is_cpu_tensor(i_img), "i_img must be a TensorCPUPtr.");
  Assert(is_cpu_tensor(o_img), "o_img must be a TensorCPUPtr.");
  Assert(!check_types || has_type(i_img, DataType::UINT8),
         "i_img must be a UInt8 DataType Tensor.");
  Assert(has_layout(*i_img, LayoutType::HWC), "i_img must be a CHW Layout Tensor.");
  Assert(in_main_memory(*i_img), "i_img must be a MainMemory Location Tensor.");
  Assert(!check_types || has_type(o_img, DataType::UINT8),
         "o_img must be a UInt8 DataType Tensor.");
  Assert(has_layout(*o_img, LayoutType::CHW), "o_img must be a CHW Layout Tensor.");
  Assert(in_main_memory(*o_img), "o_img must be a MainMemory Location Tensor.");
}

void planes_of_pixels(const char* name, const ImageTensor& i_img, const ImageTensor& o_img,
                      bool red_first) {
  const TensorCPU& from = operand(i_img, name);
  TensorCPU& to = operand(o_img, name);
  const uint64_t pixels = size_at(from, 0, name).pixels();
  const uint64_t plane = size_at(to, 1, name).pixels();
  demand(pixels <= plane, name, "the planes of the output are smaller than the input");
  demand_bytes(from, saturated_product(pixels, 4), name);
  demand_bytes(to, saturated_product(plane, 3), name);
  auto* const planes = elements<uint8_t>(to);
  uint8_t* const first = red_first ? planes : planes + 2 * plane;
  uint8_t* const last = red_first ? planes + 2 * plane : planes;
  split_pixels(elements<uint8_t>(from), 4, pixels, first, planes + plane, last);
}

// Beyond the range of an integer nothing is documented; the low bits are then 0.
int16_t in_16_bits(float number) {
  return static_cast<int16_t>(static_cast<uint16_t>(truncated(number)));
}

YuvFactors factors_of(const YUVCvtMatrix& matrix) {
  constexpr float kOne = 32.0f;  // 5 fractional bits
  constexpr float kRange = 256.0f;
  return {in_16_bits(kOne * matrix.y_scale),    in_16_bits(kOne * matrix.r_u),
          in_16_bits(kOne * matrix.r_v),        in_16_bits(kOne * matrix.g_u),
          in_16_bits(kOne * matrix.g_v),        in_16_bits(kOne * matrix.b_u),
          in_16_bits(kOne * matrix.b_v),        in_16_bits(kRange * matrix.y_offset),
          in_16_bits(kRange * matrix.u_offset), in_16_bits(kRange * matrix.v_offset)};
}

// A plane's location and type.
void check_plane(const ImageTensor& plane, const char* name) {
  Assert(plane != nullptr && in_main_memory(*plane), "%s must be a MainMemory Location Tensor.",
         name);
  Assert(has_type(plane, DataType::UINT8), "%s must be a UInt8 DataType Tensor.", name);
}

void check_matrix_and_output(const std::shared_ptr<YUVCvtMatrix>& matrix,
                             const ImageTensor& o_img) {
  Assert(matrix != nullptr, "i_cvtMat must be a vaild shared pointer.");
  Assert(o_img != nullptr && has_layout(*o_img, LayoutType::CHW),
         "o_img must be a CHW Layout Tensor.");
  Assert(has_type(o_img, DataType::UINT8), "o_img must be a UInt8 DataType Tensor.");
  Assert(in_main_memory(*o_img), "o_img must be a MainMemory Location Tensor.");
}

void check_halves(const ImageTensor& luminance, const ImageTensor& chrominance, const char* name) {
  const Size whole = size_at(*luminance, 0, "i_luminancePlane");
  const Size half = size_at(*chrominance, 0, name);
  Assert(uint64_t{2} * half.height == whole.height && uint64_t{2} * half.width == whole.width,
         "Shapes of Luminance Plane and %s Plane mismatched.", name);
}

void convert_yuv(const char* name, const ImageTensor& luminance, const Chrominance& chrominance,
                 const YUVCvtMatrix& matrix, const ImageTensor& o_img) {
  const Size size = size_at(*luminance, 0, name);
  demand_bytes(*luminance, size.pixels(), name);
  demand(size_at(*o_img, 1, name) == size, name,
         "the output must have the height and the width of the luminance");
  demand_bytes(*o_img, saturated_product(size.pixels(), 3), name);
  auto* const planes = elements<uint8_t>(*o_img);
  yuv_to_planes(elements<uint8_t>(*luminance), chrominance, factors_of(matrix), size.height,
                size.width, {planes, planes + size.pixels(), planes + 2 * size.pixels()});
}

void normalize_planes(const PictureCores& cores, const char* name, const ImageTensor& i_img,
                      const ImageTensor& i_sub, const ImageTensor& i_mul,
                      const ImageTensor& o_img) {
  Assert(is_cpu_tensor(i_img), "i_img must be a TensorCPUPtr.");
  Assert(is_cpu_tensor(i_sub), "i_sub must be a TensorCPUPtr.");
  Assert(is_cpu_tensor(i_mul), "i_mul must be a TensorCPUPtr.");
  Assert(is_cpu_tensor(o_img), "o_img must be a TensorCPUPtr.");
  Assert(has_layout(*i_img, LayoutType::CHW), "i_img must be a CHW Layout Tensor.");
  Assert(has_type(i_img, DataType::UINT8), "i_img must be a UInt8 DataType Tensor.");
  Assert(in_main_memory(*i_img), "i_img must be a MainMemory Location Tensor.");
  Assert(i_sub->shape.dims.size() == 1, "i_sub must be a 1D Tensor.");
  Assert(has_type(i_sub, DataType::FLOAT32), "i_sub must be a Float32 DataType Tensor.");
  Assert(i_mul->shape.dims.size() == 1, "i_mul must be a 1D DataType Tensor.");
  Assert(has_type(i_mul, DataType::FLOAT32), "i_mul must be a Float32 DataType Tensor.");
  Assert(has_layout(*o_img, LayoutType::CHW), "o_img must be a CHW Layout Tensor.");
  Assert(has_type(o_img, DataType::FLOAT32), "o_img must be a Float32 DataType Tensor.");
  Assert(in_main_memory(*o_img), "o_img must be a MainMemory Location Tensor.");
  const Size size = size_at(*i_img, 1, name);
  const uint32_t channels = i_img->shape.dims[0];
  demand_silently(i_sub->shape.dims[0] == channels);
  demand_silently(i_mul->shape.dims[0] == channels);
  demand_silently(i_img->shape.dims == o_img->shape.dims);

  const auto* const subtrahends = elements<float>(*i_sub);
  const auto* const multipliers = elements<float>(*i_mul);
  for (size_t c = 0; c < channels; ++c) {
    cores.normalize_bytes(elements<uint8_t>(*i_img) + c * size.pixels(), size.pixels(),
                          subtrahends[c], multipliers[c],
                          elements<float>(*o_img) + c * size.pixels());
  }
}

void normalize_floats(const PictureCores& cores, const char* name, const ImageTensor& input,
                      const ImageTensor& output, const float* multiplier, const float* subtrahend) {
  const TensorCPU& from = operand(input, name);
  TensorCPU& to = operand(output, name);
  demand_silently(has_layout(from, LayoutType::CHW));
  const size_t plane = size_at(from, 1, name).pixels();
  const uint64_t bytes =
      saturated_product(saturated_product(plane, from.shape.dims[0]), sizeof(float));
  demand_bytes(from, bytes, name);
  demand_bytes(to, bytes, name);
  for (size_t c = 0; c < from.shape.dims[0]; ++c) {
    const float* const x = elements<float>(from) + c * plane;
    float* const result = elements<float>(to) + c * plane;
    if (multiplier != nullptr && subtrahend != nullptr) {
      cores.shift_and_scale_floats(x, plane, subtrahend[c], multiplier[c], result);
    } else if (multiplier != nullptr) {
      scale_floats(x, plane, multiplier[c], result);
    } else if (subtrahend != nullptr) {
      shift_floats(x, plane, subtrahend[c], result);
    }
  }
}

}  // namespace

void F_ColorCvt_BGR888_To_Gray8_Fallback(const ImageTensor& i_img, ImageTensor& o_img) {
  gray_of(kPortableCores, "F_ColorCvt_BGR888_To_Gray8_Fallback", i_img, 3, o_img);
}

void F_ColorCvt_BGR888_To_Gray8_AVX2(const ImageTensor& i_img, ImageTensor& o_img) {
  gray_of(kAvx2Cores, "F_ColorCvt_BGR888_To_Gray8_AVX2", i_img, 3, o_img);
}

void F_ColorCvt_BGRA8888_To_Gray8_Fallback(const ImageTensor& i_img, ImageTensor& o_img) {
  gray_of(kPortableCores, "F_ColorCvt_BGRA8888_To_Gray8_Fallback", i_img, 4, o_img);
}

void F_ColorCvt_BGRA8888_To_Gray8_AVX2(const ImageTensor& i_img, ImageTensor& o_img) {
  gray_of(kAvx2Cores, "F_ColorCvt_BGRA8888_To_Gray8_AVX2", i_img, 4, o_img);
}

void F_ColorCvt_BGRA2RGB_HWC_UInt8_To_CHW_UInt8_Fallback(const ImageTensor& i_img,
                                                         ImageTensor& o_img) {
  check_planes_of_pixels(i_img, o_img, true);
  planes_of_pixels("F_ColorCvt_BGRA2RGB_HWC_UInt8_To_CHW_UInt8_Fallback", i_img, o_img, false);
}

void F_ColorCvt_RGBA2RGB_HWC_UInt8_To_CHW_UInt8_Fallback(const ImageTensor& i_img,
                                                         ImageTensor& o_img) {
  check_planes_of_pixels(i_img, o_img, false);
  planes_of_pixels("F_ColorCvt_RGBA2RGB_HWC_UInt8_To_CHW_UInt8_Fallback", i_img, o_img, true);
}

void F_ColorCvt_YUV_2Plane_UInt8_To_CHW_UInt8_Fallback(
    const ImageTensor& i_luminancePlane, const ImageTensor& i_chrominancePlane,
    const std::shared_ptr<YUVCvtMatrix>& i_cvtMat, ImageTensor& o_img) {
  constexpr char kName[] = "F_ColorCvt_YUV_2Plane_UInt8_To_CHW_UInt8_Fallback";
  check_plane(i_luminancePlane, "i_luminancePlane");
  check_plane(i_chrominancePlane, "i_chrominancePlane");
  check_matrix_and_output(i_cvtMat, o_img);
  check_halves(i_luminancePlane, i_chrominancePlane, "Chrominance");
  demand_bytes(*i_chrominancePlane, size_at(*i_luminancePlane, 0, kName).pixels() / 2, kName);
  const auto* const pairs = elements<uint8_t>(*i_chrominancePlane);
  convert_yuv(kName, i_luminancePlane, {pairs, pairs + 1, 2}, *i_cvtMat, o_img);
}

void F_ColorCvt_YUV_3Plane_UInt8_To_CHW_UInt8_Fallback(
    const ImageTensor& i_luminancePlane, const ImageTensor& i_chrominanceBPlane,
    const ImageTensor& i_chrominanceRPlane, const std::shared_ptr<YUVCvtMatrix>& i_cvtMat,
    ImageTensor& o_img) {
  constexpr char kName[] = "F_ColorCvt_YUV_3Plane_UInt8_To_CHW_UInt8_Fallback";
  check_plane(i_luminancePlane, "i_luminancePlane");
  check_plane(i_chrominanceBPlane, "i_chrominanceBPlane");
  check_plane(i_chrominanceRPlane, "i_chrominanceRPlane");
  check_matrix_and_output(i_cvtMat, o_img);
  check_halves(i_luminancePlane, i_chrominanceBPlane, "ChrominanceB");
  check_halves(i_luminancePlane, i_chrominanceRPlane, "ChrominanceR");
  const uint64_t quarter = size_at(*i_luminancePlane, 0, kName).pixels() / 4;
  demand_bytes(*i_chrominanceBPlane, quarter, kName);
  demand_bytes(*i_chrominanceRPlane, quarter, kName);
  convert_yuv(kName, i_luminancePlane,
              {elements<uint8_t>(*i_chrominanceBPlane), elements<uint8_t>(*i_chrominanceRPlane), 1},
              *i_cvtMat, o_img);
}

void F_Normalize_CHW_U8_To_CHW_F32_Fallback(const ImageTensor& i_img, const ImageTensor& i_sub,
                                            const ImageTensor& i_mul, ImageTensor& o_img) {
  normalize_planes(kPortableCores, "F_Normalize_CHW_U8_To_CHW_F32_Fallback", i_img, i_sub, i_mul,
                   o_img);
}

void F_Normalize_CHW_U8_To_CHW_F32_AVX2(const ImageTensor& i_img, const ImageTensor& i_sub,
                                        const ImageTensor& i_mul, ImageTensor& o_img) {
  normalize_planes(kAvx2Cores, "F_Normalize_CHW_U8_To_CHW_F32_AVX2", i_img, i_sub, i_mul, o_img);
}

void Normalize_CHW_Float_SSE(ImageTensor& input, ImageTensor& output, const float* multiplier,
                             const float* subtrahend) {
  normalize_floats(kPortableCores, "Normalize_CHW_Float_SSE", input, output, multiplier,
                   subtrahend);
}

void Normalize_CHW_Float_AVX2(ImageTensor& input, ImageTensor& output, const float* multiplier,
                              const float* subtrahend) {
  normalize_floats(kAvx2Cores, "Normalize_CHW_Float_AVX2", input, output, multiplier, subtrahend);
}

}  // namespace marlo::kernel::functional
