#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "qrt_core/kernel/image/image_operands_internal.h"
#include "qrt_core/kernel/image/image_process.h"
#include "qrt_core/kernel/image/picture_cores.h"
#include "qrt_core/kernel/image/resize_cores.h"

// Resizes, alone and with a crop: operations of `ImageProcessFallback`, and the bilinear ones of
// `ImageProcessAVX2`.

namespace marlo::kernel {
namespace {

using namespace image;

void demand_flexible(const TensorCPU& from, const TensorCPU& to) {
  demand_silently(has_layout(from, LayoutType::FLEXIABLE));
  demand_silently(has_layout(to, LayoutType::FLEXIABLE));
}

void demand_pixels(const char* name, const TensorCPU& from, const Size& in, const TensorCPU& to,
                   const Size& out, size_t channels) {
  demand(in.pixels() > 0 || out.pixels() == 0, name, "the input has no pixels");
  demand_bytes(from, saturated_product(in.pixels(), channels), name);
  demand_bytes(to, saturated_product(out.pixels(), channels), name);
}

void bilinear(const PictureCores& cores, const char* name, const std::shared_ptr<Tensor>& input,
              size_t channels, const std::shared_ptr<Tensor>& output) {
  const TensorCPU& from = operand(input, name);
  TensorCPU& to = operand(output, name);
  demand_flexible(from, to);
  const Size in = size_at(from, 1, name);
  const Size out = size_at(to, 1, name);
  demand_pixels(name, from, in, to, out, channels);
  if (out.pixels() == 0) return;
  cores.resize_bilinear(elements<uint8_t>(from), {in.height, in.width, channels},
                        elements<uint8_t>(to), {out.height, out.width, channels});
}

// One axis of a crop with a resize.
struct CropAxis {
  std::vector<uint32_t> places;  // of each output place in the input
  uint32_t first = 0;            // output place that is filled, and how many
  uint32_t filled = 0;
};

// @param from, to first and last place of the rectangle, which may be outside of the input
CropAxis crop_axis(int64_t from, int64_t to, uint32_t in, uint32_t out) {
  CropAxis axis;
  if (to < from) return axis;
  const float scale = static_cast<float>(to - from + 1) / static_cast<float>(out);
  axis.places.resize(out);
  for (uint32_t i = 0; i < out; ++i) {
    const double place = std::floor((i + 0.5) * static_cast<double>(scale) - 0.5);
    axis.places[i] = static_cast<uint32_t>(
        std::clamp<int64_t>(static_cast<int64_t>(place) + from, 0, int64_t{in} - 1));
  }
  // The filled span begins at an even place and has an even length, so that squares of 2 by 2
  // pixels that share their chrominance stay whole.
  const auto missing_before = static_cast<float>(std::max<int64_t>(-from, 0));
  const auto missing_behind = static_cast<float>(std::min<int64_t>(int64_t{in} - to - 1, 0));
  const int first = truncated(std::ceil(missing_before / scale) + 1.0f) & ~1;
  const int last_with_image = truncated(missing_behind / scale + static_cast<float>(out - 1));
  const int64_t length = (int64_t{last_with_image} - first + 1) & ~int64_t{1};
  if (length <= 0 || first >= int64_t{out}) return axis;
  axis.first = static_cast<uint32_t>(first);
  axis.filled = static_cast<uint32_t>(std::min(length, int64_t{out} - first));
  return axis;
}

void crop_resize(const char* name, const std::shared_ptr<Tensor>& input, size_t channels,
                 const std::array<float, 4>& fractions, const std::shared_ptr<Tensor>& output) {
  const TensorCPU& from = operand(input, name);
  TensorCPU& to = operand(output, name);
  demand_flexible(from, to);
  const Size in = size_at(from, 0, name);
  const Size out = size_at(to, 0, name);
  demand_pixels(name, from, in, to, out, channels);
  if (out.pixels() == 0) return;
  const auto width = static_cast<float>(in.width);
  const auto height = static_cast<float>(in.height);
  const CropAxis columns = crop_axis(truncated(width * fractions[0]),
                                     truncated(width * fractions[2]), in.width, out.width);
  const CropAxis rows = crop_axis(truncated(height * fractions[1]),
                                  truncated(height * fractions[3]), in.height, out.height);
  auto* const target = elements<uint8_t>(to);
  std::memset(target, 0, buffer_bytes(to));
  if (columns.filled == 0 || rows.filled == 0) return;
  const size_t out_row = out.width * channels;
  copy_places(elements<uint8_t>(from), in.width * channels, rows.places.data() + rows.first,
              rows.filled, columns.places.data() + columns.first, columns.filled, channels,
              target + rows.first * out_row + columns.first * channels, out_row);
}

}  // namespace

void ImageProcessFallback::Resize_Nearest_C1(Input input, Output output, ContextPointer) {
  constexpr char kName[] = "Resize_Nearest_C1";
  const TensorCPU& from = operand(input, kName);
  TensorCPU& to = operand(output, kName);
  demand_flexible(from, to);
  const Size in = size_at(from, 0, kName);
  const Size out = size_at(to, 0, kName);
  demand_pixels(kName, from, in, to, out, 1);
  if (out.pixels() == 0) return;
  copy_places(elements<uint8_t>(from), in.width, nearest_places(in.height, out.height).data(),
              out.height, nearest_places(in.width, out.width).data(), out.width, 1,
              elements<uint8_t>(to), out.width);
}

void ImageProcessFallback::Resize_Bilinear_C1(Input input, Output output, ContextPointer) {
  bilinear(kPortableCores, "Resize_Bilinear_C1", input, 1, output);
}

void ImageProcessAVX2::Resize_Bilinear_C1(Input input, Output output, ContextPointer) {
  bilinear(kAvx2Cores, "Resize_Bilinear_C1", input, 1, output);
}

void ImageProcessFallback::Resize_Bilinear_C2(Input input, Output output, ContextPointer) {
  bilinear(kPortableCores, "Resize_Bilinear_C2", input, 2, output);
}

void ImageProcessAVX2::Resize_Bilinear_C2(Input input, Output output, ContextPointer) {
  bilinear(kAvx2Cores, "Resize_Bilinear_C2", input, 2, output);
}

void ImageProcessFallback::Resize_Bilinear_C3(Input input, Output output, ContextPointer) {
  bilinear(kPortableCores, "Resize_Bilinear_C3", input, 3, output);
}

void ImageProcessAVX2::Resize_Bilinear_C3(Input input, Output output, ContextPointer) {
  bilinear(kAvx2Cores, "Resize_Bilinear_C3", input, 3, output);
}

void ImageProcessFallback::Resize_Bilinear_C4(Input input, Output output, ContextPointer) {
  bilinear(kPortableCores, "Resize_Bilinear_C4", input, 4, output);
}

void ImageProcessAVX2::Resize_Bilinear_C4(Input input, Output output, ContextPointer) {
  bilinear(kAvx2Cores, "Resize_Bilinear_C4", input, 4, output);
}

void ImageProcessFallback::Crop_Resize_Nearest_C1(Input input, Output output, float left, float top,
                                                  float right, float bottom, ContextPointer) {
  crop_resize("Crop_Resize_Nearest_C1", input, 1, {left, top, right, bottom}, output);
}

void ImageProcessFallback::Crop_Resize_Nearest_C2(Input input, Output output, float left, float top,
                                                  float right, float bottom, ContextPointer) {
  crop_resize("Crop_Resize_Nearest_C2", input, 2, {left, top, right, bottom}, output);
}

void ImageProcessFallback::Crop_Resize_Nearest_C3(Input input, Output output, float left, float top,
                                                  float right, float bottom, ContextPointer) {
  crop_resize("Crop_Resize_Nearest_C3", input, 3, {left, top, right, bottom}, output);
}

void ImageProcessFallback::Crop_Resize_Nearest_C4(Input input, Output output, float left, float top,
                                                  float right, float bottom, ContextPointer) {
  crop_resize("Crop_Resize_Nearest_C4", input, 4, {left, top, right, bottom}, output);
}

}  // namespace marlo::kernel
