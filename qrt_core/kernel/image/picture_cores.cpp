#include "qrt_core/kernel/image/picture_cores.h"

#include "qrt_core/kernel/image/avx2_cores.h"
#include "qrt_core/utility/build_options.h"

namespace marlo::kernel::image {
namespace {

#if QRT_WITH_AVX

// Whole groups of pixels by AVX2, and what is left by the portable loops.

void split_pixels_wide(const uint8_t* pixels, size_t channels, size_t count, uint8_t* plane0,
                       uint8_t* plane1, uint8_t* plane2) noexcept {
  const size_t done = split_bytes_avx2(pixels, channels, count, plane0, plane1, plane2);
  split_pixels(pixels + channels * done, channels, count - done, plane0 + done, plane1 + done,
               plane2 + done);
}

void gray_of_pixels_wide(const uint8_t* pixels, size_t channels, bool red_first, size_t count,
                         uint8_t* gray) noexcept {
  const size_t done = gray_of_pixels_avx2(pixels, channels, red_first, count, gray);
  gray_of_pixels(pixels + channels * done, channels, red_first, count - done, gray + done);
}

void gray_by_weights_wide(const uint8_t* pixels, size_t channels, size_t count,
                          uint8_t* gray) noexcept {
  constexpr size_t kGroup = 32;
  for (size_t done = 0; done < count;) {
    done += gray_by_weights_avx2(pixels + channels * done, channels, count - done, gray + done);
    // Pixels whose sum is whole, or too few.
    const size_t next = count - done < kGroup ? count - done : kGroup;
    gray_by_weights(pixels + channels * done, channels, next, gray + done);
    done += next;
  }
}

void bytes_to_floats_wide(const uint8_t* bytes, size_t count, float* floats) noexcept {
  const size_t done = bytes_to_floats_avx2(bytes, count, floats);
  bytes_to_floats(bytes + done, count - done, floats + done);
}

void normalize_bytes_wide(const uint8_t* bytes, size_t count, float subtrahend, float multiplier,
                          float* floats) noexcept {
  const size_t done = normalize_bytes_avx2(bytes, count, subtrahend, multiplier, floats);
  normalize_bytes(bytes + done, count - done, subtrahend, multiplier, floats + done);
}

void shift_and_scale_floats_wide(const float* input, size_t count, float subtrahend,
                                 float multiplier, float* output) noexcept {
  const size_t done = shift_and_scale_floats_avx2(input, count, subtrahend, multiplier, output);
  shift_and_scale_floats(input + done, count - done, subtrahend, multiplier, output + done);
}

bool pixels_to_planes_wide(const void* pixels, size_t element_size, size_t channels, size_t count,
                           void* planes) noexcept {
  if (channels == 3 && element_size == 1) {
    auto* const to = static_cast<uint8_t*>(planes);
    split_pixels_wide(static_cast<const uint8_t*>(pixels), 3, count, to, to + count,
                      to + 2 * count);
    return true;
  }
  if (channels == 3 && element_size == 4) {
    const auto* const from = static_cast<const uint32_t*>(pixels);
    auto* const to = static_cast<uint32_t*>(planes);
    size_t i = split_doublewords_avx2(from, count, to, to + count, to + 2 * count);
    for (; i < count; ++i) {
      for (size_t c = 0; c < 3; ++c) to[c * count + i] = from[3 * i + c];
    }
    return true;
  }
  return pixels_to_planes(pixels, element_size, channels, count, planes);
}

// Three planes, by the vectors of `join` and then one by one.
template <typename T, typename Join>
void join_planes(const void* planes, size_t count, void* pixels, Join join) noexcept {
  const auto* const from = static_cast<const T*>(planes);
  auto* const to = static_cast<T*>(pixels);
  size_t i = join(from, from + count, from + 2 * count, count, to);
  for (; i < count; ++i) {
    for (size_t c = 0; c < 3; ++c) to[3 * i + c] = from[c * count + i];
  }
}

bool planes_to_pixels_wide(const void* planes, size_t element_size, size_t channels, size_t count,
                           void* pixels) noexcept {
  if (channels == 3 && element_size == 1) {
    return join_planes<uint8_t>(planes, count, pixels, join_bytes_avx2), true;
  }
  if (channels == 3 && element_size == 4) {
    return join_planes<uint32_t>(planes, count, pixels, join_doublewords_avx2), true;
  }
  return planes_to_pixels(planes, element_size, channels, count, pixels);
}

void reverse_pixels_wide(const void* input, size_t count, size_t pixel_bytes,
                         void* output) noexcept {
  const auto* const from = static_cast<const uint8_t*>(input);
  auto* const to = static_cast<uint8_t*>(output);
  const size_t done = reverse_pixels_avx2(from, count, pixel_bytes, to);
  reverse_pixels(from, count - done, pixel_bytes, to + done * pixel_bytes);
}

// Half the height and half the width weigh four pixels alike, by 1024 of 2048 in either direction,
// and nothing of the products is rounded before their sum is: the result is the rounded mean.
void resize_bilinear_wide(const uint8_t* input, const BytePicture& from, uint8_t* output,
                          const BytePicture& to) {
  if (from.height != 2 * to.height || from.width != 2 * to.width) {
    return resize_bilinear(input, from, output, to);
  }
  const size_t channels = from.channels;
  const size_t in_row = from.width * channels;
  const size_t out_row = to.width * channels;
  for (size_t y = 0; y < to.height; ++y, output += out_row) {
    const uint8_t* const upper = input + 2 * y * in_row;
    const uint8_t* const lower = upper + in_row;
    const size_t done = halve_rows_avx2(upper, lower, channels, to.width, output);
    for (size_t i = done * channels; i < out_row; ++i) {
      const size_t left = i + i / channels * channels;
      const size_t right = left + channels;
      output[i] =
          static_cast<uint8_t>((upper[left] + upper[right] + lower[left] + lower[right] + 2) / 4);
    }
  }
}

#endif

}  // namespace

constexpr PictureCores kPortableCores{
    split_pixels,           gray_of_pixels,   gray_by_weights,  bytes_to_floats, normalize_bytes,
    shift_and_scale_floats, pixels_to_planes, planes_to_pixels, reverse_pixels,  resize_bilinear};

#if QRT_WITH_AVX
constexpr PictureCores kAvx2Cores{
    split_pixels_wide,    gray_of_pixels_wide,         gray_by_weights_wide,  bytes_to_floats_wide,
    normalize_bytes_wide, shift_and_scale_floats_wide, pixels_to_planes_wide, planes_to_pixels_wide,
    reverse_pixels_wide,  resize_bilinear_wide};
#else
constexpr PictureCores kAvx2Cores = kPortableCores;
#endif

}  // namespace marlo::kernel::image
