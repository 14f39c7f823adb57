#include <algorithm>
#include <array>

#include "qrt_core/kernel/image/byte_vectors_internal.h"
#include "qrt_core/kernel/image/color_cores.h"

// Loops that compilers turn into vectors of baseline x86-64: arithmetic in no more bits than it
// needs, and strips that stay in the cache between two simple loops instead of one that is not.

namespace marlo::kernel::image {
namespace {

constexpr size_t kStrip = 512;  // pixels
using Strip = std::array<uint8_t, kStrip>;

template <typename Function>
void for_each_strip(size_t count, Function&& function) {
  for (size_t begin = 0; begin < count; begin += kStrip) {
    function(begin, std::min(kStrip, count - begin));
  }
}

// Byte 0, 1 and 2 of pixels of `channels` bytes.
template <size_t channels>
void split_each(const uint8_t* __restrict pixels, size_t count, uint8_t* __restrict plane0,
                uint8_t* __restrict plane1, uint8_t* __restrict plane2) noexcept {
  for (size_t i = 0; i < count; ++i) {
    plane0[i] = pixels[channels * i];
    plane1[i] = pixels[channels * i + 1];
    plane2[i] = pixels[channels * i + 2];
  }
}

// What a pair of chrominance values adds to four luminances, each value twice.
struct ByteDifferences {
  Strip red, green, blue;
};

template <size_t step>
void byte_differences(const uint8_t* __restrict u_values, const uint8_t* __restrict v_values,
                      size_t pairs, ByteDifferences& differences) noexcept {
  for (size_t i = 0; i < pairs; ++i) {
    const auto u = static_cast<int16_t>(u_values[step * i] - 128);
    const auto v = static_cast<int16_t>(v_values[step * i] - 128);
    const auto red = static_cast<uint8_t>(static_cast<int16_t>(90 * v) >> 6);
    const auto green = static_cast<uint8_t>(static_cast<int16_t>(-22 * u - 46 * v) >> 6);
    const auto blue = static_cast<uint8_t>(static_cast<int16_t>(113 * u) >> 6);
    differences.red[2 * i] = differences.red[2 * i + 1] = red;
    differences.green[2 * i] = differences.green[2 * i + 1] = green;
    differences.blue[2 * i] = differences.blue[2 * i + 1] = blue;
  }
}

void add_bytes(const uint8_t* __restrict a, const uint8_t* __restrict b, size_t count,
               uint8_t* __restrict sums) noexcept {
  for (size_t i = 0; i < count; ++i) sums[i] = static_cast<uint8_t>(a[i] + b[i]);
}

// Sums that are taken in 16 bits: of the shifted sum only the low 8 bits count, so that what
// overflows 16 bits never shows.
constexpr size_t kWideStrip = 256;
using WideStrip = std::array<uint16_t, kWideStrip>;

uint16_t product(uint32_t a, int16_t factor) noexcept {
  return static_cast<uint16_t>(a * static_cast<uint16_t>(factor));
}

struct WideDifferences {
  WideStrip red, green, blue;
};

template <size_t step>
void wide_differences(const uint8_t* __restrict u_values, const uint8_t* __restrict v_values,
                      const YuvFactors& factors, size_t pairs,
                      WideDifferences& differences) noexcept {
  const YuvFactors f = factors;
  for (size_t i = 0; i < pairs; ++i) {
    const auto u = static_cast<uint16_t>(u_values[step * i] - f.u_offset);
    const auto v = static_cast<uint16_t>(v_values[step * i] - f.v_offset);
    const auto red = static_cast<uint16_t>(product(u, f.r_u) + product(v, f.r_v));
    const auto green = static_cast<uint16_t>(product(u, f.g_u) + product(v, f.g_v));
    const auto blue = static_cast<uint16_t>(product(u, f.b_u) + product(v, f.b_v));
    differences.red[2 * i] = differences.red[2 * i + 1] = red;
    differences.green[2 * i] = differences.green[2 * i + 1] = green;
    differences.blue[2 * i] = differences.blue[2 * i + 1] = blue;
  }
}

void add_wide(const uint8_t* __restrict luminance, const uint16_t* __restrict differences,
              const YuvFactors& factors, size_t count, uint8_t* __restrict sums) noexcept {
  const YuvFactors f = factors;
  for (size_t i = 0; i < count; ++i) {
    const auto y = static_cast<uint16_t>(luminance[i] - f.y_offset);
    const auto sum = static_cast<uint16_t>(product(y, f.y) + differences[i]);
    sums[i] = static_cast<uint8_t>(sum >> 5);
  }
}

template <typename T, size_t channels>
void planes_of(const T* __restrict pixels, size_t count, T* __restrict planes) noexcept {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < channels; ++c) planes[c * count + i] = pixels[channels * i + c];
  }
}

template <typename T, size_t channels>
void pixels_of(const T* __restrict planes, size_t count, T* __restrict pixels) noexcept {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < channels; ++c) pixels[channels * i + c] = planes[c * count + i];
  }
}

// Any number of channels, in strips so that pixels are read from the cache.
template <typename T>
void planes_of(const T* pixels, size_t channels, size_t count, T* planes) noexcept {
  for_each_strip(count, [&](size_t begin, size_t size) {
    for (size_t c = 0; c < channels; ++c) {
      for (size_t i = begin; i < begin + size; ++i) {
        planes[c * count + i] = pixels[channels * i + c];
      }
    }
  });
}

template <typename T>
void pixels_of(const T* planes, size_t channels, size_t count, T* pixels) noexcept {
  for_each_strip(count, [&](size_t begin, size_t size) {
    for (size_t c = 0; c < channels; ++c) {
      for (size_t i = begin; i < begin + size; ++i) {
        pixels[channels * i + c] = planes[c * count + i];
      }
    }
  });
}

// Three channels of bytes or of doublewords.
template <typename T>
void join_planes(const T* planes, size_t count, T* pixels) noexcept {
  size_t i = 0;
  // A pixel behind them overwrites the bytes that are written too much.
  for (; i + kLanes<T> < count; i += kLanes<T>) {
    join(planes + i, planes + count + i, planes + 2 * count + i, pixels + 3 * i);
  }
  for (; i < count; ++i) {
    for (size_t c = 0; c < 3; ++c) pixels[3 * i + c] = planes[c * count + i];
  }
}

template <typename T>
void split_planes(const T* pixels, size_t count, T* plane0, T* plane1, T* plane2) noexcept {
  constexpr size_t kGroup = sizeof(T) == 1 ? kTriples : kLanes<T>;
  size_t i = 0;
  for (; i + kGroup <= count; i += kGroup) {
    split(pixels + 3 * i, plane0 + i, plane1 + i, plane2 + i);
  }
  for (; i < count; ++i) {
    plane0[i] = pixels[3 * i];
    plane1[i] = pixels[3 * i + 1];
    plane2[i] = pixels[3 * i + 2];
  }
}

template <typename T>
void move_to_planes(const void* from, size_t channels, size_t count, void* to) noexcept {
  const auto* const pixels = static_cast<const T*>(from);
  auto* const planes = static_cast<T*>(to);
  switch (channels) {
    case 1:
      return static_cast<void>(std::memmove(to, from, count * sizeof(T)));
    case 2:
      return planes_of<T, 2>(pixels, count, planes);
    case 3:
      if constexpr (sizeof(T) == 2)
        return planes_of<T, 3>(pixels, count, planes);
      else
        return split_planes(pixels, count, planes, planes + count, planes + 2 * count);
    case 4:
      return planes_of<T, 4>(pixels, count, planes);
    default:
      return planes_of(pixels, channels, count, planes);
  }
}

template <typename T>
void move_to_pixels(const void* from, size_t channels, size_t count, void* to) noexcept {
  const auto* const planes = static_cast<const T*>(from);
  auto* const pixels = static_cast<T*>(to);
  switch (channels) {
    case 1:
      return static_cast<void>(std::memmove(to, from, count * sizeof(T)));
    case 2:
      return pixels_of<T, 2>(planes, count, pixels);
    case 3:
      if constexpr (sizeof(T) == 2)
        return pixels_of<T, 3>(planes, count, pixels);
      else
        return join_planes(planes, count, pixels);
    case 4:
      return pixels_of<T, 4>(planes, count, pixels);
    default:
      return pixels_of(planes, channels, count, pixels);
  }
}

// `compute` of float(byte): of four bytes in a vector, or of one.
template <typename Compute>
void convert_bytes(const uint8_t* __restrict bytes, size_t count, float* __restrict floats,
                   Compute compute) noexcept {
  size_t i = 0;
  for (; i + kVectorBytes <= count; i += kVectorBytes) {
    const auto v = load<Bytes>(bytes + i);
    const auto low = std::bit_cast<Words>(merge_low(v, Bytes{}));
    const auto high = std::bit_cast<Words>(merge_high(v, Bytes{}));
    store(compute(floats_of(merge_low(low, Words{}))), floats + i);
    store(compute(floats_of(merge_high(low, Words{}))), floats + i + 4);
    store(compute(floats_of(merge_low(high, Words{}))), floats + i + 8);
    store(compute(floats_of(merge_high(high, Words{}))), floats + i + 12);
  }
  for (; i < count; ++i) floats[i] = compute(static_cast<float>(bytes[i]));
}

}  // namespace

void split_pixels(const uint8_t* pixels, size_t channels, size_t count, uint8_t* plane0,
                  uint8_t* plane1, uint8_t* plane2) noexcept {
  if (channels == 4) return split_each<4>(pixels, count, plane0, plane1, plane2);
  split_planes(pixels, count, plane0, plane1, plane2);
}

void yuv_to_planes(const uint8_t* luminance, const Chrominance& chrominance, size_t height,
                   size_t width, const Planes& planes) noexcept {
  ByteDifferences differences;
  const size_t row_of_chrominance = chrominance.step * (width / 2);
  for (size_t y = 0; y < height; y += 2) {
    const uint8_t* const u = chrominance.u + y / 2 * row_of_chrominance;
    const uint8_t* const v = chrominance.v + y / 2 * row_of_chrominance;
    for_each_strip(width, [&](size_t begin, size_t size) {
      const size_t first = chrominance.step * (begin / 2);
      // 64 * y is a multiple of 64, so what is added to y can be shifted alone.
      if (chrominance.step == 1) {
        byte_differences<1>(u + first, v + first, size / 2, differences);
      } else {
        byte_differences<2>(u + first, v + first, size / 2, differences);
      }
      for (size_t row = y; row < y + 2; ++row) {
        const size_t at = row * width + begin;
        add_bytes(luminance + at, differences.red.data(), size, planes.red + at);
        add_bytes(luminance + at, differences.green.data(), size, planes.green + at);
        add_bytes(luminance + at, differences.blue.data(), size, planes.blue + at);
      }
    });
  }
}

void yuv_to_planes(const uint8_t* luminance, const Chrominance& chrominance,
                   const YuvFactors& factors, size_t height, size_t width,
                   const Planes& planes) noexcept {
  WideDifferences differences;
  const size_t row_of_chrominance = chrominance.step * (width / 2);
  for (size_t y = 0; y < height; y += 2) {
    const uint8_t* const u = chrominance.u + y / 2 * row_of_chrominance;
    const uint8_t* const v = chrominance.v + y / 2 * row_of_chrominance;
    for (size_t begin = 0; begin < width; begin += kWideStrip) {
      const size_t size = std::min(kWideStrip, width - begin);
      const size_t first = chrominance.step * (begin / 2);
      if (chrominance.step == 1) {
        wide_differences<1>(u + first, v + first, factors, size / 2, differences);
      } else {
        wide_differences<2>(u + first, v + first, factors, size / 2, differences);
      }
      for (size_t row = y; row < y + 2; ++row) {
        const size_t at = row * width + begin;
        add_wide(luminance + at, differences.red.data(), factors, size, planes.red + at);
        add_wide(luminance + at, differences.green.data(), factors, size, planes.green + at);
        add_wide(luminance + at, differences.blue.data(), factors, size, planes.blue + at);
      }
    }
  }
}

void bytes_to_floats(const uint8_t* bytes, size_t count, float* floats) noexcept {
  convert_bytes(bytes, count, floats, [](const auto& x) { return x; });
}

void normalize_bytes(const uint8_t* bytes, size_t count, float subtrahend, float multiplier,
                     float* floats) noexcept {
  convert_bytes(bytes, count, floats, [=](const auto& x) { return (x - subtrahend) * multiplier; });
}

void scale_floats(const float* input, size_t count, float multiplier, float* output) noexcept {
  for (size_t i = 0; i < count; ++i) output[i] = multiplier * input[i];
}

void shift_floats(const float* input, size_t count, float subtrahend, float* output) noexcept {
  for (size_t i = 0; i < count; ++i) output[i] = input[i] - subtrahend;
}

void shift_and_scale_floats(const float* input, size_t count, float subtrahend, float multiplier,
                            float* output) noexcept {
  for (size_t i = 0; i < count; ++i) output[i] = (input[i] - subtrahend) * multiplier;
}

bool pixels_to_planes(const void* pixels, size_t element_size, size_t channels, size_t count,
                      void* planes) noexcept {
  switch (element_size) {
    case 1:
      return move_to_planes<uint8_t>(pixels, channels, count, planes), true;
    case 2:
      return move_to_planes<uint16_t>(pixels, channels, count, planes), true;
    case 4:
      return move_to_planes<uint32_t>(pixels, channels, count, planes), true;
    default:
      return false;
  }
}

bool planes_to_pixels(const void* planes, size_t element_size, size_t channels, size_t count,
                      void* pixels) noexcept {
  switch (element_size) {
    case 1:
      return move_to_pixels<uint8_t>(planes, channels, count, pixels), true;
    case 2:
      return move_to_pixels<uint16_t>(planes, channels, count, pixels), true;
    case 4:
      return move_to_pixels<uint32_t>(planes, channels, count, pixels), true;
    default:
      return false;
  }
}

}  // namespace marlo::kernel::image
