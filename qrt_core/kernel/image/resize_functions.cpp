#include "qrt_core/kernel/image/resize_functions.h"

#include "qrt_core/kernel/image/image_operands_internal.h"
#include "qrt_core/kernel/image/resize_cores.h"

namespace marlo::kernel::functional {
namespace {

using namespace image;

struct Sides {
  Sides(const char* name, const ImageTensor& i_img, const ImageTensor& o_img, size_t channels)
      : input(operand(i_img, name)),
        output(operand(o_img, name)),
        in(size_at(input, 0, name)),
        out(size_at(output, 0, name)) {
    demand(in.pixels() > 0 || out.pixels() == 0, name, "the input has no pixels");
    demand_bytes(input, saturated_product(in.pixels(), channels), name);
    demand_bytes(output, saturated_product(out.pixels(), channels), name);
  }

  const TensorCPU& input;
  TensorCPU& output;
  Size in;
  Size out;
};

void bilinear(const char* name, const ImageTensor& i_img, const ImageTensor& o_img,
              size_t channels) {
  const Sides sides(name, i_img, o_img, channels);
  if (sides.out.pixels() == 0) return;
  resize_bilinear(elements<uint8_t>(sides.input), {sides.in.height, sides.in.width, channels},
                  elements<uint8_t>(sides.output), {sides.out.height, sides.out.width, channels});
}

void nearest(const char* name, const ImageTensor& i_img, const ImageTensor& o_img,
             size_t channels) {
  const Sides sides(name, i_img, o_img, channels);
  const Size& in = sides.in;
  const Size& out = sides.out;
  if (out.pixels() == 0) return;
  copy_places(elements<uint8_t>(sides.input), in.width * channels,
              accumulated_places(in.height, out.height).data(), out.height,
              accumulated_places(in.width, out.width).data(), out.width, channels,
              elements<uint8_t>(sides.output), out.width * channels);
}

}  // namespace

void F_Resize_Bilinear_HWC_U8_C1_Fallback(const ImageTensor& i_img, ImageTensor& o_img) {
  bilinear("F_Resize_Bilinear_HWC_U8_C1_Fallback", i_img, o_img, 1);
}

void F_Resize_Bilinear_HWC_U8_C2_Fallback(const ImageTensor& i_img, ImageTensor& o_img) {
  bilinear("F_Resize_Bilinear_HWC_U8_C2_Fallback", i_img, o_img, 2);
}

void F_Resize_Bilinear_HWC_U8_C3_Fallback(const ImageTensor& i_img, ImageTensor& o_img) {
  bilinear("F_Resize_Bilinear_HWC_U8_C3_Fallback", i_img, o_img, 3);
}

void F_Resize_Bilinear_HWC_U8_C4_Fallback(const ImageTensor& i_img, ImageTensor& o_img) {
  bilinear("F_Resize_Bilinear_HWC_U8_C4_Fallback", i_img, o_img, 4);
}

void F_Resize_Nearest_HWC_U8_C1_Fallback(const ImageTensor& i_img, ImageTensor& o_img) {
  nearest("F_Resize_Nearest_HWC_U8_C1_Fallback", i_img, o_img, 1);
}

void F_Resize_Nearest_HWC_U8_C2_Fallback(const ImageTensor& i_img, ImageTensor& o_img) {
  nearest("F_Resize_Nearest_HWC_U8_C2_Fallback", i_img, o_img, 2);
}

void F_Resize_Nearest_HWC_U8_C3_Fallback(const ImageTensor& i_img, ImageTensor& o_img) {
  nearest("F_Resize_Nearest_HWC_U8_C3_Fallback", i_img, o_img, 3);
}

void F_Resize_Nearest_HWC_U8_C4_Fallback(const ImageTensor& i_img, ImageTensor& o_img) {
  nearest("F_Resize_Nearest_HWC_U8_C4_Fallback", i_img, o_img, 4);
}

}  // namespace marlo::kernel::functional
