#pragma once

#include <cstdint>
#include <vector>

#include "qrt_core/utility/export.h"

// Grey pictures, as text is read from them.

namespace marlo::toolkit {

/// A picture of grey levels, row by row. Plain data.
struct GreyPicture {
  uint32_t height = 0;           ///< rows
  uint32_t width = 0;            ///< columns
  std::vector<uint8_t> samples;  ///< height x width, 0 for black
};

/// A rectangle of pixels; the right column and the bottom row are the first outside. Plain data.
struct PixelBox {
  uint32_t left = 0;    ///< first column
  uint32_t top = 0;     ///< first row
  uint32_t right = 0;   ///< column behind the last one
  uint32_t bottom = 0;  ///< row behind the last one
};

/// A picture in another size, bilinear. Where it shrinks to less than half, it is halved until it
/// doesn't, so that no pixel is skipped.
/// @param height in rows, at least 1
/// @param width in columns, at least 1
/// @throws std::invalid_argument for a picture without pixels, or whose samples aren't its size
QRT_API GreyPicture resized(const GreyPicture& picture, uint32_t height, uint32_t width);

/// A part of a picture.
/// @throws std::invalid_argument for a box that is empty or reaches outside
QRT_API GreyPicture cut_out(const GreyPicture& picture, const PixelBox& box);

/// A picture turned counter-clockwise, bilinear: what descends to the right by so many degrees
/// becomes level. It grows so that everything stays in it; corners get the grey of its border.
/// @param degrees from -45 to 45
/// @throws std::invalid_argument as `resized`, and for another angle
QRT_API GreyPicture turned(const GreyPicture& picture, double degrees);

}  // namespace marlo::toolkit
