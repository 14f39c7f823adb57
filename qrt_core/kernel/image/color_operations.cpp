#include <array>
#include <cstring>

#include "qrt_core/kernel/image/color_cores.h"
#include "qrt_core/kernel/image/image_operands_internal.h"
#include "qrt_core/kernel/image/image_process.h"
#include "qrt_core/kernel/image/picture_cores.h"

// Colours, layouts and data types: the operations of `ImageProcessFallback`, and those of
// `ImageProcessAVX2`, which differ in their cores.

namespace marlo::kernel {
namespace {

using namespace image;

// Writes three planes of the output from interleaved pixels; `order` says which plane takes byte 0,
// byte 1 and byte 2.
void split_colors(const PictureCores& cores, const char* name, const TensorCPU& input,
                  size_t channels, TensorCPU& output, const std::array<size_t, 3>& order) {
  const uint64_t pixels = size_at(output, 1, name).pixels();
  demand_bytes(input, saturated_product(pixels, channels), name);
  demand_bytes(output, saturated_product(pixels, 3), name);
  auto* const planes = elements<uint8_t>(output);
  cores.split_pixels(elements<uint8_t>(input), channels, pixels, planes + order[0] * pixels,
                     planes + order[1] * pixels, planes + order[2] * pixels);
}

constexpr std::array<size_t, 3> kSameOrder{0, 1, 2};
constexpr std::array<size_t, 3> kReversed{2, 1, 0};

void split_with_alpha(const PictureCores& cores, const char* name,
                      const std::shared_ptr<Tensor>& input, const std::shared_ptr<Tensor>& output,
                      const std::array<size_t, 3>& order) {
  TensorCPU& to = operand(output, name);
  demand_silently(has_layout(to, LayoutType::CHW));
  split_colors(cores, name, operand(input, name), 4, to, order);
}

void split_backwards(const PictureCores& cores, const std::shared_ptr<Tensor>& input,
                     const std::shared_ptr<Tensor>& output) {
  constexpr char kName[] = "ConvertRGBtoBGR";
  const TensorCPU& from = operand(input, kName);
  TensorCPU& to = operand(output, kName);
  if (!has_layout(from, LayoutType::CHW)) return split_colors(cores, kName, from, 3, to, kReversed);
  const uint64_t pixels = size_at(to, 1, kName).pixels();
  demand_bytes(from, saturated_product(pixels, 3), kName);
  demand_bytes(to, saturated_product(pixels, 3), kName);
  for (const size_t plane : {size_t{2}, size_t{1}, size_t{0}}) {
    std::memmove(elements<uint8_t>(to) + (2 - plane) * pixels,
                 elements<uint8_t>(from) + plane * pixels, pixels);
  }
}

void to_gray(const PictureCores& cores, const char* name, const std::shared_ptr<Tensor>& input,
             size_t channels, bool red_first, const std::shared_ptr<Tensor>& output) {
  TensorCPU& to = operand(output, name);
  demand_silently(has_layout(to, LayoutType::CHW));
  const TensorCPU& from = operand(input, name);
  const bool interleaved = has_layout(from, LayoutType::HWC);
  if (!interleaved && !has_layout(from, LayoutType::CHW)) return;
  const uint64_t pixels = size_at(to, 1, name).pixels();
  demand_bytes(from, saturated_product(pixels, interleaved ? channels : 3), name);
  demand_bytes(to, pixels, name);
  const auto* const colors = elements<uint8_t>(from);
  auto* const gray = elements<uint8_t>(to);
  if (interleaved) return cores.gray_of_pixels(colors, channels, red_first, pixels, gray);
  const uint8_t* const red = red_first ? colors : colors + 2 * pixels;
  const uint8_t* const blue = red_first ? colors + 2 * pixels : colors;
  gray_of_planes(blue, colors + pixels, red, pixels, gray);
}

enum class YuvFormat { nv12, nv21, iyuv };

// The input's buffer goes on behind the luminance that its dims describe. Where an application's
// buffer ends is known to the application alone; one of the library's own ends with its dims.
void demand_chrominance(const char* name, const TensorCPU& picture, const Size& size) {
  demand_bytes(picture, size.pixels(), name);
  const uint64_t needed = size.pixels() / 2 * 3;
  if (!picture.owns_buffer() || needed <= buffer_bytes(picture)) return;
  utility::Assert(
      false,
      "%s: a picture of %u x %u has %llu bytes with its chrominance, and its tensor ends "
      "behind %llu; yuv420_image makes one of a larger buffer",
      name, size.width, size.height, static_cast<unsigned long long>(needed),
      static_cast<unsigned long long>(buffer_bytes(picture)));
}

void yuv_to_rgb(const char* name, const std::shared_ptr<Tensor>& input,
                const std::shared_ptr<Tensor>& output, YuvFormat format) {
  const TensorCPU& from = operand(input, name);
  TensorCPU& to = operand(output, name);
  if (!has_layout(to, LayoutType::CHW) || !in_main_memory(from) || !in_main_memory(to)) return;
  const Size size = size_at(from, 0, name);
  if (size.height % 2 != 0 || size.width % 2 != 0) return;
  demand(size_at(to, 1, name) == size, name,
         "the output must have the height and the width of the luminance");
  demand_chrominance(name, from, size);
  demand_bytes(to, saturated_product(size.pixels(), 3), name);

  const auto* const luminance = elements<uint8_t>(from);
  const uint8_t* const first = luminance + size.pixels();
  const uint8_t* const second = format == YuvFormat::iyuv ? first + size.pixels() / 4 : first + 1;
  const size_t step = format == YuvFormat::iyuv ? 1 : 2;
  const bool v_first = format == YuvFormat::nv21;
  const Chrominance chrominance{v_first ? second : first, v_first ? first : second, step};
  auto* const planes = elements<uint8_t>(to);
  yuv_to_planes(luminance, chrominance, size.height, size.width,
                {planes, planes + size.pixels(), planes + 2 * size.pixels()});
}

// Checks the two sides of a change between layouts.
// @return the bytes of an element, which the sides share
size_t layout_element(const char* name, const TensorCPU& planar, const TensorCPU& interleaved) {
  const Size size = size_at(planar, 1, name);
  demand(interleaved.shape.dims.size() >= 3 && size_at(interleaved, 0, name) == size &&
             planar.shape.dims[0] == interleaved.shape.dims[2],
         name, "both tensors must have the same height, width and channels");
  const size_t element = runtime::ElementSize(planar.shape.data_type);
  demand(element == runtime::ElementSize(interleaved.shape.data_type), name,
         "both tensors must have elements of one size");
  demand_bytes(planar, 0, name);
  return element;
}

void to_planes(const PictureCores& cores, const std::shared_ptr<Tensor>& input,
               const std::shared_ptr<Tensor>& output) {
  constexpr char kName[] = "HWC2CHW";
  const TensorCPU& from = operand(input, kName);
  TensorCPU& to = operand(output, kName);
  demand_silently(has_layout(from, LayoutType::HWC));
  demand_silently(has_layout(to, LayoutType::CHW));
  const size_t element = layout_element(kName, to, from);
  if (!cores.pixels_to_planes(from.RawPointer(), element, to.shape.dims[0],
                              size_at(to, 1, kName).pixels(), to.RawPointer())) {
    utility::Assert(false, "Not Implemented.");
  }
}

void to_pixels(const PictureCores& cores, const std::shared_ptr<Tensor>& input,
               const std::shared_ptr<Tensor>& output) {
  constexpr char kName[] = "CHW2HWC";
  const TensorCPU& from = operand(input, kName);
  TensorCPU& to = operand(output, kName);
  demand_silently(has_layout(from, LayoutType::CHW));
  demand_silently(has_layout(to, LayoutType::HWC));
  const size_t element = layout_element(kName, from, to);
  if (!cores.planes_to_pixels(from.RawPointer(), element, from.shape.dims[0],
                              size_at(from, 1, kName).pixels(), to.RawPointer())) {
    utility::Assert(false, "Not Implemented.");
  }
}

void to_floats(const PictureCores& cores, const std::shared_ptr<Tensor>& input,
               const std::shared_ptr<Tensor>& output) {
  constexpr char kName[] = "Convert8U_To_32F";
  const TensorCPU& from = operand(input, kName);
  TensorCPU& to = operand(output, kName);
  demand_silently(from.shape.data_type == DataType::UINT8);
  demand(from.shape.dims.size() >= 3, kName, "the input must have three dims");
  const auto& dims = from.shape.dims;
  const uint64_t count = saturated_product(size_at(from, 0, kName).pixels(), dims[2]);
  demand_bytes(from, count, kName);
  demand_bytes(to, saturated_product(count, sizeof(float)), kName);
  cores.bytes_to_floats(elements<uint8_t>(from), count, elements<float>(to));
}

}  // namespace

void ImageProcessFallback::ConvertRGBAtoRGB(Input input, Output output, ContextPointer) {
  split_with_alpha(kPortableCores, "ConvertRGBAtoRGB", input, output, kSameOrder);
}

void ImageProcessAVX2::ConvertRGBAtoRGB(Input input, Output output, ContextPointer) {
  split_with_alpha(kAvx2Cores, "ConvertRGBAtoRGB", input, output, kSameOrder);
}

void ImageProcessFallback::ConvertRGBAtoBGR(Input input, Output output, ContextPointer) {
  split_with_alpha(kPortableCores, "ConvertRGBAtoBGR", input, output, kReversed);
}

void ImageProcessAVX2::ConvertRGBAtoBGR(Input input, Output output, ContextPointer) {
  split_with_alpha(kAvx2Cores, "ConvertRGBAtoBGR", input, output, kReversed);
}

void ImageProcessFallback::ConvertRGBtoBGR(Input input, Output output, ContextPointer) {
  split_backwards(kPortableCores, input, output);
}

void ImageProcessAVX2::ConvertRGBtoBGR(Input input, Output output, ContextPointer) {
  split_backwards(kAvx2Cores, input, output);
}

void ImageProcessFallback::ConvertRGB2Gray(Input input, Output output, ContextPointer) {
  to_gray(kPortableCores, "ConvertRGB2Gray", input, 3, true, output);
}

void ImageProcessAVX2::ConvertRGB2Gray(Input input, Output output, ContextPointer) {
  to_gray(kAvx2Cores, "ConvertRGB2Gray", input, 3, true, output);
}

void ImageProcessFallback::ConvertRGBA2Gray(Input input, Output output, ContextPointer) {
  to_gray(kPortableCores, "ConvertRGBA2Gray", input, 4, true, output);
}

void ImageProcessAVX2::ConvertRGBA2Gray(Input input, Output output, ContextPointer) {
  to_gray(kAvx2Cores, "ConvertRGBA2Gray", input, 4, true, output);
}

void ImageProcessFallback::ConvertBGR2Gray(Input input, Output output, ContextPointer) {
  to_gray(kPortableCores, "ConvertBGR2Gray", input, 3, false, output);
}

void ImageProcessAVX2::ConvertBGR2Gray(Input input, Output output, ContextPointer) {
  to_gray(kAvx2Cores, "ConvertBGR2Gray", input, 3, false, output);
}

void ImageProcessFallback::HWC2CHW(Input input, Output output, ContextPointer) {
  to_planes(kPortableCores, input, output);
}

void ImageProcessAVX2::HWC2CHW(Input input, Output output, ContextPointer) {
  to_planes(kAvx2Cores, input, output);
}

void ImageProcessFallback::CHW2HWC(Input input, Output output, ContextPointer) {
  to_pixels(kPortableCores, input, output);
}

void ImageProcessAVX2::CHW2HWC(Input input, Output output, ContextPointer) {
  to_pixels(kAvx2Cores, input, output);
}

void ImageProcessFallback::Convert8U_To_32F(Input input, Output output, ContextPointer) {
  to_floats(kPortableCores, input, output);
}

void ImageProcessAVX2::Convert8U_To_32F(Input input, Output output, ContextPointer) {
  to_floats(kAvx2Cores, input, output);
}

void ImageProcessFallback::ConvertYUV2RGB_NV12(Input input, Output output, ContextPointer) {
  yuv_to_rgb("ConvertYUV2RGB_NV12", input, output, YuvFormat::nv12);
}

void ImageProcessFallback::ConvertYUV2RGB_NV21(Input input, Output output, ContextPointer) {
  yuv_to_rgb("ConvertYUV2RGB_NV21", input, output, YuvFormat::nv21);
}

void ImageProcessFallback::ConvertYUV2RGB_IYUV(Input input, Output output, ContextPointer) {
  yuv_to_rgb("ConvertYUV2RGB_IYUV", input, output, YuvFormat::iyuv);
}

}  // namespace marlo::kernel
