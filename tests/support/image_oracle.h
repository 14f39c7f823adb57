#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

// What the image operations are, pixel by pixel and written from their formulas. Nothing here
// shares code or order of computation with the library.

namespace marlo::test {

/// Rounds the quotient down.
int64_t floor_divided(int64_t a, int64_t b);

/// Red, green and blue.
using Rgb = std::array<uint8_t, 3>;

uint8_t integer_gray(int red, int green, int blue);
uint8_t weighted_gray(int byte0, int byte1, int byte2);

/// Of a luminance and its chrominance in integers, wrapped to a byte.
Rgb yuv_pixel(int y, int u, int v);

/// The same by factors with 5 fractional bits: y, r_u, r_v, g_u, g_v, b_u, b_v, and the offsets of
/// y, u and v.
Rgb yuv_pixel(int y, int p, int q, const std::array<int, 10>& factors);

/// One axis of a bilinear resize at one place: two places of the input and their weights.
struct BilinearPlace {
  int first = 0, second = 0;
  int weight0 = 0, weight1 = 0;
};
BilinearPlace bilinear_place(int in, int out, int place);

/// A bilinear resize of interleaved bytes.
std::vector<uint8_t> bilinear(const std::vector<uint8_t>& input, int height, int width,
                              int channels, int out_height, int out_width);

/// Where a nearest resize takes a place from: by the half-pixel rule, and by a growing float.
int nearest_place(int in, int out, int place);
int accumulated_place(int in, int out, int place);

/// A rectangle of places, borders included, from fractions of a picture.
struct OracleRectangle {
  int left, top, right, bottom;
};
OracleRectangle rectangle_of(int height, int width, const std::array<float, 4>& fractions);

/// The place of the input behind place `place` of one axis of a crop with a resize; nothing where
/// the output stays 0.
std::optional<int> cropped_place(int from, int to, int in, int out, int place);

/// A float picture of planes.
struct PlanarPicture {
  int channels = 0, height = 0, width = 0;
  std::vector<float> values;
  float at(int c, int y, int x) const;
  float& at(int c, int y, int x);
};

/// @name Warps
/// Each changes `output`, whose size says what is wanted.
/// @{
void warp_forward(const PlanarPicture& input, const std::array<float, 6>& m, PlanarPicture& output);
void warp_nearest(const PlanarPicture& input, const std::array<float, 6>& m, PlanarPicture& output);
void warp_bilinear(const PlanarPicture& input, const std::array<float, 6>& m,
                   PlanarPicture& output);
void warp_normalized(const PlanarPicture& input, const std::array<float, 6>& m,
                     PlanarPicture& output);
/// @}

}  // namespace marlo::test
