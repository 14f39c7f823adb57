#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Operators on planes in double precision, written from their definitions: what whole networks are
// compared with.

namespace marlo::test {

/// [channels, height, width], and with height and width 1 a vector.
struct Planes {
  uint32_t channels = 0;
  uint32_t height = 0;
  uint32_t width = 0;
  std::vector<double> values;

  Planes() = default;
  Planes(uint32_t c, uint32_t h, uint32_t w)
      : channels(c), height(h), width(w), values(size_t{c} * h * w) {}

  double& at(uint32_t c, uint32_t y, uint32_t x) {
    return values[(size_t{c} * height + y) * width + x];
  }
  double at(uint32_t c, uint32_t y, uint32_t x) const {
    return values[(size_t{c} * height + y) * width + x];
  }
  /// The value, or 0 outside.
  double or_zero(uint32_t c, int64_t y, int64_t x) const {
    const bool inside = y >= 0 && x >= 0 && y < height && x < width;
    return inside ? at(c, static_cast<uint32_t>(y), static_cast<uint32_t>(x)) : 0.0;
  }
};

/// A square window with the same padding on all sides. Weights are [out, in / groups, kernel,
/// kernel].
struct PlaneFilter {
  uint32_t out_channels = 0;
  uint32_t kernel = 1;
  uint32_t stride = 1;
  uint32_t padding = 0;
  uint32_t groups = 1;
  std::vector<float> weights;
  std::vector<float> bias;
};

Planes convolved(const Planes& input, const PlaneFilter& filter);

/// Each value through a function of one number.
template <typename Function>
Planes mapped(Planes planes, Function function) {
  for (double& value : planes.values) value = function(value);
  return planes;
}

Planes sum_of(const Planes& a, const Planes& b);
Planes largest_in(const Planes& input, uint32_t window);  ///< windows side by side
Planes mean_in(const Planes& input, uint32_t window);     ///< windows side by side
Planes behind_each_other(const Planes& a, const Planes& b);
Planes twice_as_large(const Planes& input);      ///< bilinear; pixels are squares
Planes shuffled_to_pixels(const Planes& input);  ///< factor 2
Planes connected(const Planes& input, uint32_t outs, const std::vector<float>& weights,
                 const std::vector<float>& bias);  ///< over all values as one vector
Planes softmax_of(const Planes& input);            ///< over all values

}  // namespace marlo::test
