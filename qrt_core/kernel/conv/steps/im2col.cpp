#include "qrt_core/kernel/conv/steps/im2col.h"

#include <cstddef>
#include <cstring>

namespace marlo::kernel {
namespace {

// Every `stride`-th pixel of a row. The size of a pixel is a constant, so that a copy is one or two
// moves.
template <size_t block>
void copy_pixels(const float* from, size_t stride, size_t count, float* to) noexcept {
  for (size_t i = 0; i < count; ++i, from += stride * block, to += block) {
    std::memcpy(to, from, block * sizeof(float));
  }
}

// The planes of one tap: the source of each output row lies `stride_y` rows below that of the last.
template <size_t block>
void copy_tap(const float* from, size_t row_step, size_t stride_x, size_t height_out,
              size_t width_out, float* to) noexcept {
  for (size_t row = 0; row < height_out; ++row, from += row_step, to += width_out * block) {
    if (stride_x == 1) {
      std::memcpy(to, from, width_out * block * sizeof(float));
    } else {
      copy_pixels<block>(from, stride_x, width_out, to);
    }
  }
}

struct Taps {
  uint32_t height_out, width_out;
  uint32_t kernel_y, kernel_x;
  uint32_t stride_y, stride_x;
  uint32_t dilation_y, dilation_x;
};

template <size_t block>
void im2col(size_t blocks, size_t height, size_t width, const Taps& t, const float* source,
            float* destination) noexcept {
  const size_t row = width * block;
  const size_t plane = height * row;
  if (t.kernel_y == 1 && t.kernel_x == 1 && t.stride_y == 1 && t.stride_x == 1) {
    std::memcpy(destination, source, blocks * plane * sizeof(float));
    return;
  }
  const size_t plane_out = size_t{t.height_out} * t.width_out * block;
  for (size_t b = 0; b < blocks; ++b, source += plane) {
    for (size_t ky = 0; ky < t.kernel_y; ++ky) {
      for (size_t kx = 0; kx < t.kernel_x; ++kx, destination += plane_out) {
        const float* tap = source + ky * t.dilation_y * row + kx * t.dilation_x * block;
        copy_tap<block>(tap, t.stride_y * row, t.stride_x, t.height_out, t.width_out, destination);
      }
    }
  }
}

}  // namespace

void Im2col_CHW_Float_SSE(uint32_t blocks, uint32_t height, uint32_t width, uint32_t height_out,
                          uint32_t width_out, uint32_t kernel_y, uint32_t kernel_x,
                          uint32_t stride_y, uint32_t stride_x, uint32_t dilation_y,
                          uint32_t dilation_x, const float* source, float* destination) noexcept {
  im2col<1>(blocks, height, width,
            {height_out, width_out, kernel_y, kernel_x, stride_y, stride_x, dilation_y, dilation_x},
            source, destination);
}

void Im2col_C4HW4_Float_SSE(uint32_t blocks, uint32_t height, uint32_t width, uint32_t height_out,
                            uint32_t width_out, uint32_t kernel_y, uint32_t kernel_x,
                            uint32_t stride_y, uint32_t stride_x, uint32_t dilation_y,
                            uint32_t dilation_x, const float* source, float* destination) noexcept {
  im2col<4>(blocks, height, width,
            {height_out, width_out, kernel_y, kernel_x, stride_y, stride_x, dilation_y, dilation_x},
            source, destination);
}

void Im2col_C8HW8_Float_AVX(uint32_t blocks, uint32_t height, uint32_t width, uint32_t height_out,
                            uint32_t width_out, uint32_t kernel_y, uint32_t kernel_x,
                            uint32_t stride_y, uint32_t stride_x, uint32_t dilation_y,
                            uint32_t dilation_x, const float* source, float* destination) noexcept {
  im2col<8>(blocks, height, width,
            {height_out, width_out, kernel_y, kernel_x, stride_y, stride_x, dilation_y, dilation_x},
            source, destination);
}

}  // namespace marlo::kernel
