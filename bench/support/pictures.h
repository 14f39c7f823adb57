#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

// What the image operations and their peers are measured on.

namespace marlo::bench {

constexpr uint32_t kPictureHeight = 1080;
constexpr uint32_t kPictureWidth = 1920;
constexpr uint32_t kWarpSide = 512;

/// A turn by 15 degrees, a little smaller, in coordinates from -1 to 1.
constexpr float kWarpMatrix[6] = {0.87f, 0.23f, 0.05f, -0.23f, 0.87f, -0.03f};

/// Of the first channel; the others differ a little.
constexpr float kMean = 123.7f;
constexpr float kScale = 0.017f;

constexpr uint32_t kCropTop = 100;
constexpr uint32_t kCropLeft = 100;

struct ResizeCase {
  const char* name;
  uint32_t in_height, in_width, out_height, out_width;
};
constexpr ResizeCase kResizes[] = {
    {"resize_1920x1080x3_to_224x224", 1080, 1920, 224, 224},
    {"resize_640x480x3_to_320x240", 480, 640, 240, 320},
    {"resize_320x240x3_to_640x480", 240, 320, 480, 640},
};

inline std::vector<uint8_t> byte_pixels(size_t count) {
  std::mt19937 engine(1);
  std::vector<uint8_t> pixels(count);
  for (uint8_t& pixel : pixels) pixel = static_cast<uint8_t>(engine() >> 9);
  return pixels;
}

/// From 0 to 1.
inline std::vector<float> float_pixels(size_t count) {
  std::mt19937 engine(1);
  std::vector<float> pixels(count);
  for (float& pixel : pixels) pixel = static_cast<float>(engine() >> 8) * 0x1p-24f;
  return pixels;
}

}  // namespace marlo::bench
