#include <algorithm>
#include <array>
#include <functional>
#include <numeric>

#include "qrt_core/kernel/image/geometry_cores.h"
#include "qrt_core/kernel/image/image_operands_internal.h"
#include "qrt_core/kernel/image/image_process.h"
#include "qrt_core/kernel/image/picture_cores.h"

// Turns, flips and crops: operations of `ImageProcessFallback`, the turns of `ImageProcessSSE`, and
// what `ImageProcessAVX2` has other cores for.

namespace marlo::kernel {
namespace {

using namespace image;

bool is_planar(const TensorCPU& tensor) { return has_layout(tensor, LayoutType::CHW); }
bool is_picture(const TensorCPU& tensor) {
  return is_planar(tensor) || has_layout(tensor, LayoutType::HWC);
}

// A picture as planes of pixels: CHW is C planes of elements, HWC one plane of pixels, and so is
// any other layout, whose pixels are what dims there are behind height and width.
struct PixelPlanes {
  size_t planes = 0;
  Size size;
  size_t pixel_bytes = 0;

  size_t plane_bytes() const { return size.pixels() * pixel_bytes; }
};

PixelPlanes planes_of(const TensorCPU& tensor, const char* name) {
  const auto& dims = tensor.shape.dims;
  const size_t element = runtime::ElementSize(tensor.shape.data_type);
  demand(dims.size() >= 3 || !is_picture(tensor), name, "a picture must have three dims");
  demand_bytes(tensor, 0, name);
  if (is_planar(tensor)) return {dims[0], size_at(tensor, 1, name), element};
  const Size size = size_at(tensor, 0, name);
  return {1, size, std::accumulate(dims.begin() + 2, dims.end(), element, std::multiplies<>())};
}

// Moves each plane of a picture by `move`.
template <typename Move>
void move_planes(const char* name, const TensorCPU& from, TensorCPU& to, bool turned, Move&& move) {
  demand_silently(to.shape.layout == from.shape.layout);
  const PixelPlanes source = planes_of(from, name);
  const PixelPlanes target = planes_of(to, name);
  demand(target.planes == source.planes && target.pixel_bytes == source.pixel_bytes, name,
         "both tensors must have the same channels and elements of one size");
  demand(target.size == (turned ? source.size.turned() : source.size), name,
         turned ? "the output must have the height and the width of the input, exchanged"
                : "the output must have the height and the width of the input");
  for (size_t plane = 0; plane < source.planes; ++plane) {
    const size_t offset = plane * source.plane_bytes();
    move(elements<uint8_t>(from) + offset, source, elements<uint8_t>(to) + offset);
  }
}

// Moves a picture of layout CHW or HWC; any other is ignored.
template <typename Move>
void move_picture(const char* name, const std::shared_ptr<Tensor>& input,
                  const std::shared_ptr<Tensor>& output, bool turned, Move&& move) {
  const TensorCPU& from = operand(input, name);
  TensorCPU& to = operand(output, name);
  if (is_picture(from)) move_planes(name, from, to, turned, move);
}

// A rectangle in pixels, with its last row and column.
struct Rectangle {
  int64_t left, top, right, bottom;
};

// The class's own crop, which leaves the output alone where the rectangle is outside of the image.
void crop(const char* name, const std::shared_ptr<Tensor>& input, size_t channels,
          const std::array<float, 4>& fractions, const std::shared_ptr<Tensor>& output) {
  const TensorCPU& from = operand(input, name);
  TensorCPU& to = operand(output, name);
  const Size size = size_at(from, 0, name);
  demand_bytes(from, saturated_product(size.pixels(), channels), name);
  const auto width = static_cast<float>(size.width);
  const auto height = static_cast<float>(size.height);
  const Rectangle whole{truncated(width * fractions[0]), truncated(height * fractions[1]),
                        truncated(width * fractions[2]), truncated(height * fractions[3])};
  const Rectangle inside{std::max<int64_t>(whole.left, 0), std::max<int64_t>(whole.top, 0),
                         std::min(whole.right, int64_t{size.width} - 1),
                         std::min(whole.bottom, int64_t{size.height} - 1)};
  if (inside.left > inside.right || inside.top > inside.bottom) return;

  const auto columns = static_cast<size_t>(whole.right - whole.left + 1);
  const auto rows = static_cast<size_t>(inside.bottom - inside.top + 1);
  const size_t row_bytes = static_cast<size_t>(inside.right - inside.left + 1) * channels;
  const size_t to_offset = (static_cast<size_t>(inside.top - whole.top) * columns +
                            static_cast<size_t>(inside.left - whole.left)) *
                           channels;
  const size_t from_offset =
      (static_cast<size_t>(inside.top) * size.width + static_cast<size_t>(inside.left)) * channels;
  demand_bytes(to, to_offset + (rows - 1) * columns * channels + row_bytes, name);
  copy_rows(elements<uint8_t>(from) + from_offset, size.width * channels, rows, row_bytes,
            elements<uint8_t>(to) + to_offset, columns * channels);
}

using Turn = void (*)(const void*, size_t, size_t, size_t, void*) noexcept;

void turn_planes(const char* name, const TensorCPU& from, TensorCPU& to, Turn turn) {
  move_planes(name, from, to, true,
              [turn](const uint8_t* pixels, const PixelPlanes& p, uint8_t* turned) {
                turn(pixels, p.size.height, p.size.width, p.pixel_bytes, turned);
              });
}

void turn_by_half(const PictureCores& cores, const std::shared_ptr<Tensor>& input,
                  const std::shared_ptr<Tensor>& output) {
  move_picture("ClockwiseRotate180", input, output, false,
               [&](const uint8_t* from, const PixelPlanes& p, uint8_t* to) {
                 cores.reverse_pixels(from, p.size.pixels(), p.pixel_bytes, to);
               });
}

void flip_rows(const PictureCores& cores, const std::shared_ptr<Tensor>& input,
               const std::shared_ptr<Tensor>& output) {
  move_picture("Flip_Horizintal", input, output, false,
               [&](const uint8_t* from, const PixelPlanes& p, uint8_t* to) {
                 reverse_columns(from, p.size.height, p.size.width, p.pixel_bytes, to,
                                 cores.reverse_pixels);
               });
}

// The turns of `ImageProcessSSE` go by the first two dims whatever the layout: where these aren't
// multiples of 4, or the elements aren't bytes, nothing happens.
void turn_bytes(const char* name, const std::shared_ptr<Tensor>& input,
                const std::shared_ptr<Tensor>& output, Turn turn) {
  const TensorCPU& from = operand(input, name);
  TensorCPU& to = operand(output, name);
  const Size size = size_at(from, 0, name);
  const bool taken =
      from.shape.data_type == DataType::UINT8 && size.height % 4 == 0 && size.width % 4 == 0;
  if (taken) turn_planes(name, from, to, turn);
}

}  // namespace

ImageProcessFallback::~ImageProcessFallback() = default;
ImageProcessSSE::~ImageProcessSSE() = default;
ImageProcessAVX2::~ImageProcessAVX2() = default;

void ImageProcessFallback::ClockwiseRotate90(Input input, Output output, ContextPointer) {
  move_picture("ClockwiseRotate90", input, output, true,
               [](const uint8_t* from, const PixelPlanes& p, uint8_t* to) {
                 turn_clockwise(from, p.size.height, p.size.width, p.pixel_bytes, to);
               });
}

void ImageProcessFallback::ClockwiseRotate180(Input input, Output output, ContextPointer) {
  turn_by_half(kPortableCores, input, output);
}

void ImageProcessAVX2::ClockwiseRotate180(Input input, Output output, ContextPointer) {
  turn_by_half(kAvx2Cores, input, output);
}

void ImageProcessFallback::ClockwiseRotate270(Input input, Output output, ContextPointer) {
  move_picture("ClockwiseRotate270", input, output, true,
               [](const uint8_t* from, const PixelPlanes& p, uint8_t* to) {
                 turn_counterclockwise(from, p.size.height, p.size.width, p.pixel_bytes, to);
               });
}

void ImageProcessFallback::Flip_Horizintal(Input input, Output output, ContextPointer) {
  flip_rows(kPortableCores, input, output);
}

void ImageProcessAVX2::Flip_Horizintal(Input input, Output output, ContextPointer) {
  flip_rows(kAvx2Cores, input, output);
}

void ImageProcessFallback::Flip_Vertical(Input input, Output output, ContextPointer) {
  move_picture("Flip_Vertical", input, output, false,
               [](const uint8_t* from, const PixelPlanes& p, uint8_t* to) {
                 reverse_rows(from, p.size.height, p.size.width * p.pixel_bytes, to);
               });
}

void ImageProcessFallback::Crop_C1(Input input, Output output, float left, float top, float right,
                                   float bottom, ContextPointer) {
  crop("Crop_C1", input, 1, {left, top, right, bottom}, output);
}

void ImageProcessFallback::Crop_C2(Input input, Output output, float left, float top, float right,
                                   float bottom, ContextPointer) {
  crop("Crop_C2", input, 2, {left, top, right, bottom}, output);
}

void ImageProcessFallback::Crop_C3(Input input, Output output, float left, float top, float right,
                                   float bottom, ContextPointer) {
  crop("Crop_C3", input, 3, {left, top, right, bottom}, output);
}

void ImageProcessFallback::Crop_C4(Input input, Output output, float left, float top, float right,
                                   float bottom, ContextPointer) {
  crop("Crop_C4", input, 4, {left, top, right, bottom}, output);
}

void ImageProcessSSE::ClockwiseRotate90(Input input, Output output, ContextPointer) {
  turn_bytes("ClockwiseRotate90", input, output, turn_clockwise);
}

void ImageProcessSSE::ClockwiseRotate270(Input input, Output output, ContextPointer) {
  turn_bytes("ClockwiseRotate270", input, output, turn_counterclockwise);
}

}  // namespace marlo::kernel
