#include "qrt_core/kernel/image/geometry_functions.h"

#include <algorithm>
#include <cstring>

#include "qrt_core/kernel/image/geometry_cores.h"
#include "qrt_core/kernel/image/image_operands_internal.h"

namespace marlo::kernel::functional {
namespace {

using namespace image;
using utility::Assert;

bool is_cpu_tensor(const ImageTensor& tensor) {
  return dynamic_cast<const TensorCPU*>(tensor.get()) != nullptr;
}

// One side of a crop: its layout and location.
void check_side(const ImageTensor& tensor, LayoutType layout, const char* side,
                const char* layout_name) {
  Assert(is_cpu_tensor(tensor), "%s must be a TensorCPUPtr.", side);
  Assert(has_layout(*tensor, layout), "%s must be a %s Layout Tensor.", side, layout_name);
  Assert(in_main_memory(*tensor), "%s must be a MainMemory Location Tensor.", side);
}

// A picture as it is cut: `outer` planes of rows of pixels, each pixel `inner` elements.
struct Cut {
  Size size;
  size_t outer = 1;
  size_t inner = 1;
};

struct Window {
  uint32_t top, left, height, width;
};

bool lies_in(const Window& window, const Size& size) {
  return uint64_t{window.top} + window.height <= size.height &&
         uint64_t{window.left} + window.width <= size.width;
}

// Cuts a window out of a picture whose sides have been checked.
void cut(const ImageTensor& i_img, const Cut& picture, const Window& window,
         const ImageTensor& o_img) {
  const size_t pixel = picture.inner * runtime::ElementSize(i_img->shape.data_type);
  const size_t from_row = picture.size.width * pixel;
  const size_t to_row = window.width * pixel;
  for (size_t plane = 0; plane < picture.outer; ++plane) {
    copy_rows(elements<uint8_t>(*i_img) + (plane * picture.size.height + window.top) * from_row +
                  window.left * pixel,
              from_row, window.height, to_row,
              elements<uint8_t>(*o_img) + plane * window.height * to_row, to_row);
  }
}

void cut_blocks(const char* name, const ImageTensor& i_img, LayoutType layout,
                const char* layout_name, uint32_t block, const Window& window,
                const ImageTensor& o_img) {
  check_side(i_img, layout, "i_img", layout_name);
  check_side(o_img, layout, "o_img", layout_name);
  demand_silently(i_img->shape.data_type == o_img->shape.data_type);
  const Size from = size_at(*i_img, 1, name);
  const Size to = size_at(*o_img, 1, name);
  const auto& dims = i_img->shape.dims;
  const auto& out_dims = o_img->shape.dims;
  demand_silently(dims[0] == out_dims[0]);
  demand_silently(window.height == to.height && window.width == to.width);
  demand_silently(dims.size() == 4 && out_dims.size() == 4 && dims[3] == out_dims[3]);
  demand_silently(dims[3] == block);
  demand_silently(lies_in(window, from));
  cut(i_img, {from, dims[0], block}, window, o_img);
}

// The part of an interval of `length` elements from `begin` on that lies in [0, size).
struct Span {
  int64_t begin, end;
  Span(int64_t start, int64_t length, int64_t size)
      : begin(std::max<int64_t>(start, 0)), end(std::min(start + length, size)) {}
  bool empty() const { return begin >= end; }
  size_t size() const { return static_cast<size_t>(end - begin); }
};

// The messages about layouts say CHW where HWC is meant and tested; programs know them so.
void check_flip(const ImageTensor& i_img, const ImageTensor& o_img) {
  Assert(is_cpu_tensor(i_img), "i_img must be a TensorCPUPtr.");
  Assert(is_cpu_tensor(o_img), "o_img must be a TensorCPUPtr.");
  Assert(has_layout(*i_img, LayoutType::HWC), "i_img must be a CHW Layout Tensor.");
  Assert(in_main_memory(*i_img), "i_img must be a MainMemory Location Tensor.");
  Assert(has_layout(*o_img, LayoutType::HWC), "o_img must be a CHW Layout Tensor.");
  Assert(in_main_memory(*o_img), "o_img must be a MainMemory Location Tensor.");
  demand_silently(i_img->shape == o_img->shape);
}

void check_turn(const ImageTensor& i_img, const ImageTensor& o_img, bool turned) {
  Assert(i_img != nullptr, "i_img must not be nullptr.");
  Assert(o_img != nullptr, "o_img must not be nullptr.");
  Assert(has_layout(*i_img, LayoutType::HWC), "i_img must be a CHW Layout Tensor.");
  Assert(in_main_memory(*i_img), "i_img must be a MainMemory Location Tensor.");
  Assert(has_layout(*o_img, LayoutType::HWC), "o_img must be a CHW Layout Tensor.");
  Assert(in_main_memory(*o_img), "o_img must be a MainMemory Location Tensor.");
  demand_silently(is_cpu_tensor(i_img) && is_cpu_tensor(o_img));
  demand_silently(i_img->shape.data_type == o_img->shape.data_type);
  const auto& from = i_img->shape.dims;
  const auto& to = o_img->shape.dims;
  demand_silently(from.size() == 3 && to.size() == 3 && from[2] == to[2]);
  demand_silently(from[0] == to[turned ? 1 : 0] && from[1] == to[turned ? 0 : 1]);
}

// An interleaved picture whose rank is known to be 3.
struct Pixels {
  explicit Pixels(const ImageTensor& tensor, const char* name) : size(size_at(*tensor, 0, name)) {
    demand(tensor->shape.dims.size() == 3, name, "a picture must have three dims");
    bytes = tensor->shape.dims[2] * size_t{runtime::ElementSize(tensor->shape.data_type)};
  }
  Size size;
  size_t bytes = 0;
};

}  // namespace

void F_Crop_CHW_Memcpy(const ImageTensor& i_img, const unsigned int& top, const unsigned int& left,
                       const unsigned int& height, const unsigned int& width, ImageTensor& o_img) {
  constexpr char kName[] = "F_Crop_CHW_Memcpy";
  const Window window{top, left, height, width};
  check_side(i_img, LayoutType::CHW, "i_img", "CHW");
  check_side(o_img, LayoutType::CHW, "o_img", "CHW");
  demand_silently(i_img->shape.data_type == o_img->shape.data_type);
  const Size from = size_at(*i_img, 1, kName);
  const Size to = size_at(*o_img, 1, kName);
  demand_silently(i_img->shape.dims[0] == o_img->shape.dims[0]);
  demand_silently(to == Size{height, width});
  demand_silently(lies_in(window, from));
  cut(i_img, {from, i_img->shape.dims[0], 1}, window, o_img);
}

void F_Crop_HWC_Memcpy(const ImageTensor& i_img, const unsigned int& top, const unsigned int& left,
                       const unsigned int& height, const unsigned int& width, ImageTensor& o_img) {
  constexpr char kName[] = "F_Crop_HWC_Memcpy";
  const Window window{top, left, height, width};
  check_side(i_img, LayoutType::HWC, "i_img", "HWC");
  check_side(o_img, LayoutType::HWC, "o_img", "HWC");
  demand_silently(i_img->shape.data_type == o_img->shape.data_type);
  const Size from = size_at(*i_img, 0, kName);
  demand_silently(size_at(*o_img, 0, kName) == Size{height, width});
  const auto& dims = i_img->shape.dims;
  demand_silently(dims.size() == 3 && o_img->shape.dims.size() == 3 &&
                  dims[2] == o_img->shape.dims[2]);
  demand_silently(lies_in(window, from));
  cut(i_img, {from, 1, dims[2]}, window, o_img);
}

void F_Crop_C4HW4_Memcpy(const ImageTensor& i_img, const unsigned int& top,
                         const unsigned int& left, const unsigned int& height,
                         const unsigned int& width, ImageTensor& o_img) {
  cut_blocks("F_Crop_C4HW4_Memcpy", i_img, LayoutType::C4HW4, "C4HW4", 4,
             {top, left, height, width}, o_img);
}

void F_Crop_C8HW8_Memcpy(const ImageTensor& i_img, const unsigned int& top,
                         const unsigned int& left, const unsigned int& height,
                         const unsigned int& width, ImageTensor& o_img) {
  cut_blocks("F_Crop_C8HW8_Memcpy", i_img, LayoutType::C8HW8, "C8HW8", 8,
             {top, left, height, width}, o_img);
}

void F_Crop_U8_HWC_Memcpy(const ImageTensor& i_img, const int& top, const int& left,
                          const int& height, const int& width, const uint8_t& fill,
                          ImageTensor& o_img) {
  constexpr char kName[] = "F_Crop_U8_HWC_Memcpy";
  demand(is_cpu_tensor(i_img) && is_cpu_tensor(o_img), kName,
         "both tensors must be tensors of the CPU");
  Assert(i_img->shape.data_type == DataType::UINT8, "i_img must be a UInt8 DataType Tensor.");
  Assert(has_layout(*i_img, LayoutType::HWC), "i_img must be a HWC Layout Tensor.");
  Assert(in_main_memory(*i_img), "i_img must be a MainMemory Location Tensor.");
  Assert(o_img->shape.data_type == DataType::UINT8, "o_img must be a UInt8 DataType Tensor.");
  Assert(has_layout(*o_img, LayoutType::HWC), "o_img must be a HWC Layout Tensor.");
  Assert(in_main_memory(*o_img), "o_img must be a MainMemory Location Tensor.");
  const Pixels from(i_img, kName);
  const Pixels to(o_img, kName);
  demand_silently(height == int64_t{to.size.height} && width == int64_t{to.size.width});
  demand_silently(from.bytes == to.bytes);

  const size_t row_bytes = to.size.width * to.bytes;
  auto* const output = elements<uint8_t>(*o_img);
  if (to.size.pixels() * to.bytes != 0) std::memset(output, fill, to.size.height * row_bytes);
  const Span rows(top, height, from.size.height);
  const Span columns(left, width, from.size.width);
  if (rows.empty() || columns.empty()) return;
  const size_t first_pixel =
      static_cast<size_t>(rows.begin) * from.size.width + static_cast<size_t>(columns.begin);
  copy_rows(elements<uint8_t>(*i_img) + first_pixel * from.bytes, from.size.width * from.bytes,
            rows.size(), columns.size() * from.bytes,
            output + static_cast<size_t>(rows.begin - top) * row_bytes +
                static_cast<size_t>(columns.begin - left) * to.bytes,
            row_bytes);
}

void F_HFlip_HWC_Fallback(const ImageTensor& i_img, ImageTensor& o_img) {
  check_flip(i_img, o_img);
  const Pixels pixels(i_img, "F_HFlip_HWC_Fallback");
  reverse_columns(i_img->handle.cpu, pixels.size.height, pixels.size.width, pixels.bytes,
                  o_img->handle.cpu);
}

void F_VFlip_HWC_Fallback(const ImageTensor& i_img, ImageTensor& o_img) {
  check_flip(i_img, o_img);
  const Pixels pixels(i_img, "F_VFlip_HWC_Fallback");
  reverse_rows(elements<uint8_t>(*i_img), pixels.size.height, pixels.size.width * pixels.bytes,
               elements<uint8_t>(*o_img));
}

void F_Rotate_Clockwise90_HWC_Fallback(const ImageTensor& i_img, ImageTensor& o_img) {
  check_turn(i_img, o_img, true);
  const Pixels pixels(i_img, "F_Rotate_Clockwise90_HWC_Fallback");
  turn_clockwise(i_img->handle.cpu, pixels.size.height, pixels.size.width, pixels.bytes,
                 o_img->handle.cpu);
}

void F_Rotate_Clockwise180_HWC_Fallback(const ImageTensor& i_img, ImageTensor& o_img) {
  check_turn(i_img, o_img, false);
  const Pixels pixels(i_img, "F_Rotate_Clockwise180_HWC_Fallback");
  reverse_pixels(i_img->handle.cpu, pixels.size.pixels(), pixels.bytes, o_img->handle.cpu);
}

void F_Rotate_Clockwise270_HWC_Fallback(const ImageTensor& i_img, ImageTensor& o_img) {
  check_turn(i_img, o_img, true);
  const Pixels pixels(i_img, "F_Rotate_Clockwise270_HWC_Fallback");
  turn_counterclockwise(i_img->handle.cpu, pixels.size.height, pixels.size.width, pixels.bytes,
                        o_img->handle.cpu);
}

}  // namespace marlo::kernel::functional
