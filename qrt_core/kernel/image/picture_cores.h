#pragma once

#include "qrt_core/kernel/image/color_cores.h"
#include "qrt_core/kernel/image/geometry_cores.h"
#include "qrt_core/kernel/image/resize_cores.h"

namespace marlo::kernel::image {

/// The loops that operations for different processors don't share. All compute the same to the bit.
struct PictureCores {
  decltype(&image::split_pixels) split_pixels;
  decltype(&image::gray_of_pixels) gray_of_pixels;
  decltype(&image::gray_by_weights) gray_by_weights;
  decltype(&image::bytes_to_floats) bytes_to_floats;
  decltype(&image::normalize_bytes) normalize_bytes;
  decltype(&image::shift_and_scale_floats) shift_and_scale_floats;
  decltype(&image::pixels_to_planes) pixels_to_planes;
  decltype(&image::planes_to_pixels) planes_to_pixels;
  decltype(&image::reverse_pixels) reverse_pixels;
  decltype(&image::resize_bilinear) resize_bilinear;
};

/// Of baseline x86-64.
extern const PictureCores kPortableCores;

/// Of AVX2 where they gain by it; the portable ones in a library without AVX kernels.
extern const PictureCores kAvx2Cores;

}  // namespace marlo::kernel::image
