#pragma once

#include <cstddef>
#include <cstdint>

// Colour conversion, pixel by pixel, on plain memory. Inputs and outputs don't overlap.

namespace marlo::kernel::image {

/// (29 * blue + 150 * green + 77 * red) / 256 of `count` pixels.
void gray_of_planes(const uint8_t* blue, const uint8_t* green, const uint8_t* red, size_t count,
                    uint8_t* gray) noexcept;

/// The same of interleaved pixels of 3 or 4 bytes, with red first or blue first.
void gray_of_pixels(const uint8_t* pixels, size_t channels, bool red_first, size_t count,
                    uint8_t* gray) noexcept;

/// 0.299 * byte 0 + 0.587 * byte 1 + 0.114 * byte 2 in double precision, truncated.
void gray_by_weights(const uint8_t* pixels, size_t channels, size_t count, uint8_t* gray) noexcept;

/// Bytes 0, 1 and 2 of interleaved pixels of 3 or 4 bytes, each to a plane.
void split_pixels(const uint8_t* pixels, size_t channels, size_t count, uint8_t* plane0,
                  uint8_t* plane1, uint8_t* plane2) noexcept;

/// Where the chrominance of a picture is: every `step` bytes a value.
struct Chrominance {
  const uint8_t* u;
  const uint8_t* v;
  size_t step;  ///< 1 for planes, 2 for pairs
};

struct Planes {
  uint8_t* red;
  uint8_t* green;
  uint8_t* blue;
};

/// Planes of a picture of even height and width, whose squares of 2 x 2 pixels share a pair of
/// chrominance values. With u and v less 128:
/// (64 * y + 90 * v) / 64, (64 * y - 22 * u - 46 * v) / 64 and (64 * y + 113 * u) / 64, rounded
/// down; of each the low 8 bits.
void yuv_to_planes(const uint8_t* luminance, const Chrominance& chrominance, size_t height,
                   size_t width, const Planes& planes) noexcept;

/// Factors with 5 fractional bits and offsets, in 16 bits, of which the sums are taken.
struct YuvFactors {
  int16_t y, r_u, r_v, g_u, g_v, b_u, b_v;
  int16_t y_offset, u_offset, v_offset;
};

/// As above with factors of the caller's: of ((Y - y_offset) * y + (p - u_offset) * r_u +
/// (q - v_offset) * r_v) / 32 and its like, rounded down, the low 8 bits.
void yuv_to_planes(const uint8_t* luminance, const Chrominance& chrominance,
                   const YuvFactors& factors, size_t height, size_t width,
                   const Planes& planes) noexcept;

/// float(byte).
void bytes_to_floats(const uint8_t* bytes, size_t count, float* floats) noexcept;

/// (float(byte) - subtrahend) * multiplier.
void normalize_bytes(const uint8_t* bytes, size_t count, float subtrahend, float multiplier,
                     float* floats) noexcept;

/// @name Normalisation of floats
/// x * multiplier, x - subtrahend, and (x - subtrahend) * multiplier. Input and output may be one
/// array.
/// @{
void scale_floats(const float* input, size_t count, float multiplier, float* output) noexcept;
void shift_floats(const float* input, size_t count, float subtrahend, float* output) noexcept;
void shift_and_scale_floats(const float* input, size_t count, float subtrahend, float multiplier,
                            float* output) noexcept;
/// @}

/// Moves elements of 1, 2 or 4 bytes from interleaved pixels to planes, and back.
/// @return false for another element size, with nothing written
bool pixels_to_planes(const void* pixels, size_t element_size, size_t channels, size_t count,
                      void* planes) noexcept;
bool planes_to_pixels(const void* planes, size_t element_size, size_t channels, size_t count,
                      void* pixels) noexcept;

}  // namespace marlo::kernel::image
