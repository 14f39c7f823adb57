#include <algorithm>
#include <cmath>

#include "qrt_core/kernel/image/warp_cores.h"

namespace marlo::kernel::image {
namespace {

struct Place {
  float x, y;
};

// The sums are taken in this order.
Place apply(const float* m, size_t column, size_t row) noexcept {
  const auto x = static_cast<float>(column);
  const auto y = static_cast<float>(row);
  return {y * m[1] + x * m[0] + m[2], x * m[3] + y * m[4] + m[5]};
}

constexpr ptrdiff_t kOutside = -1;

// The index of the pixel that a place rounds to, by adding a half and truncating toward zero, so
// that all above -1.5 is 0 or more. A comparison with NaN fails.
ptrdiff_t nearest_pixel(const Place& place, const FloatPlanes& planes) noexcept {
  const float x = place.x + 0.5f;
  const float y = place.y + 0.5f;
  constexpr float kLimit = 0x1p32f;  // beyond any size
  if (!(x > -1.0f && y > -1.0f && x < kLimit && y < kLimit)) return kOutside;
  const auto column = static_cast<ptrdiff_t>(x);
  const auto row = static_cast<ptrdiff_t>(y);
  const auto width = static_cast<ptrdiff_t>(planes.width);
  if (column >= width || row >= static_cast<ptrdiff_t>(planes.height)) return kOutside;
  return row * width + column;
}

// The coordinate of a tap and its fraction. Beyond 2^30, where no fraction is left, all is the
// same; the fraction of what isn't finite is NaN.
struct Coordinate {
  explicit Coordinate(float place) noexcept {
    constexpr float kLimit = 0x1p30f;
    const float kept = std::min(place > -kLimit ? place : -kLimit, kLimit);
    whole = static_cast<int>(kept);
    fraction = kept - static_cast<float>(whole) - (place - place);
  }
  size_t clamped(size_t size) const noexcept {
    if (whole < 0 || size < 2) return 0;
    return std::min(static_cast<size_t>(whole), size - 2);
  }
  int whole;
  float fraction;
};

}  // namespace

void scatter(const uint32_t* input, const FloatPlanes& from, const float* matrix, uint32_t* output,
             const FloatPlanes& to) noexcept {
  const size_t in_plane = from.height * from.width;
  const size_t out_plane = to.height * to.width;
  for (size_t y = 0; y < from.height; ++y) {
    for (size_t x = 0; x < from.width; ++x) {
      const ptrdiff_t target = nearest_pixel(apply(matrix, x, y), to);
      if (target == kOutside) continue;
      const uint32_t* pixel = input + y * from.width + x;
      uint32_t* place = output + target;
      for (size_t c = 0; c < from.channels; ++c, pixel += in_plane, place += out_plane) {
        *place = *pixel;
      }
    }
  }
}

void gather_nearest(const uint32_t* input, const FloatPlanes& from, const float* matrix,
                    uint32_t* output, const FloatPlanes& to) noexcept {
  const size_t in_plane = from.height * from.width;
  const size_t out_plane = to.height * to.width;
  for (size_t y = 0; y < to.height; ++y) {
    for (size_t x = 0; x < to.width; ++x) {
      const ptrdiff_t source = nearest_pixel(apply(matrix, x, y), from);
      if (source == kOutside) continue;
      const uint32_t* pixel = input + source;
      uint32_t* place = output + y * to.width + x;
      for (size_t c = 0; c < to.channels; ++c, pixel += in_plane, place += out_plane) {
        *place = *pixel;
      }
    }
  }
}

void gather_bilinear(const float* input, const FloatPlanes& from, const float* matrix,
                     float* output, const FloatPlanes& to) noexcept {
  const size_t in_plane = from.height * from.width;
  const size_t out_plane = to.height * to.width;
  const auto last_column = static_cast<ptrdiff_t>(from.width) - 1;
  const auto last_row = static_cast<ptrdiff_t>(from.height) - 1;
  constexpr float kLimit = 0x1p32f;  // beyond any size
  for (size_t y = 0; y < to.height; ++y) {
    for (size_t x = 0; x < to.width; ++x) {
      const auto [u, v] = apply(matrix, x, y);
      if (!(u > -1.0f && v > -1.0f && u < kLimit && v < kLimit)) continue;
      const auto column = static_cast<ptrdiff_t>(u);
      const auto row = static_cast<ptrdiff_t>(v);
      if (column + 1 > last_column || row + 1 > last_row) continue;
      const float fx = u < 0.0f ? 0.0f : u - static_cast<float>(column);
      const float fy = v < 0.0f ? 0.0f : v - static_cast<float>(row);
      const float* upper = input + row * (last_column + 1) + column;
      const float* lower = v < 0.0f ? upper : upper + last_column + 1;
      const ptrdiff_t right = u > 0.0f ? 1 : 0;
      float* place = output + y * to.width + x;
      for (size_t c = 0; c < to.channels; ++c) {
        *place = (upper[0] * (1.0f - fx) + upper[right] * fx) * (1.0f - fy) +
                 (lower[0] * (1.0f - fx) + lower[right] * fx) * fy;
        upper += in_plane;
        lower += in_plane;
        place += out_plane;
      }
    }
  }
}

NormalizedWarp::NormalizedWarp(const float* matrix, size_t height, size_t width) noexcept
    : half_height(static_cast<float>(height) * 0.5f),
      half_width(static_cast<float>(width) * 0.5f),
      x_x(matrix[0]),
      x_y(half_width / half_height * matrix[1]),
      x_offset((1.0f + matrix[2]) * half_width - 0.5f),
      y_y(matrix[4]),
      y_x(half_height / half_width * matrix[3]),
      y_offset((1.0f + matrix[5]) * half_height - 0.5f) {}

void warp_normalized_row(const float* input, const FloatPlanes& from, const NormalizedWarp& warp,
                         size_t y, size_t begin, float* output, const FloatPlanes& to) noexcept {
  const size_t in_plane = from.height * from.width;
  const size_t out_plane = to.height * to.width;
  const size_t right = from.width > 1 ? 1 : 0;
  const size_t below = from.height > 1 ? from.width : 0;
  const float yc = static_cast<float>(y) + 0.5f - warp.half_height;
  for (size_t x = begin; x < to.width; ++x) {
    const float xc = static_cast<float>(x) + 0.5f - warp.half_width;
    const Coordinate column(xc * warp.x_x + yc * warp.x_y + warp.x_offset);
    const Coordinate row(yc * warp.y_y + xc * warp.y_x + warp.y_offset);
    const float fx = column.fraction;
    const float fy = row.fraction;
    // The weights are those of the place itself; only the pixels are kept inside.
    const float w00 = (1.0f - fy) * (1.0f - fx);
    const float w01 = (1.0f - fy) * fx;
    const float w10 = fy * (1.0f - fx);
    const float w11 = fy * fx;
    const float* tap = input + row.clamped(from.height) * from.width + column.clamped(from.width);
    float* place = output + y * to.width + x;
    for (size_t c = 0; c < to.channels; ++c, tap += in_plane, place += out_plane) {
      *place = w00 * tap[0] + w01 * tap[right] + w10 * tap[below] + w11 * tap[below + right];
    }
  }
}

}  // namespace marlo::kernel::image
