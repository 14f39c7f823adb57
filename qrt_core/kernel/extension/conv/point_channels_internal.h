#pragma once

#include "qrt_core/kernel/extension/conv/pixel_sums_internal.h"
#include "qrt_core/kernel/extension/conv/window_plane_internal.h"

// Windows of one pixel in C8HW8. Internal to the file that includes it.

namespace marlo::kernel::conv {
namespace {

/// Results each of which is made of the pixel at its place: two widths of output channels at a time, by fewer pixels, so
/// that a product needs fewer loads. A processor that loads one vector of 64 bytes in a cycle waits for them otherwise.
/// @param weight, bias, output of the first of these channels
template <typename Vector, size_t kPacked>
class PointChannels {
  using Register = typename Vector::Register;
  static constexpr size_t kBlock = kChannelBlock;
  static constexpr size_t kVectors = 2 * kPacked;
  static constexpr size_t kRow =
      kPacked * Vector::kLanes;  // weights of an input channel in a width
#ifdef QRT_SMALL_TILES
  static constexpr size_t kMostPixels = 2;
#else
  static constexpr size_t kMostPixels = 24 / kVectors;
#endif

 public:
  static constexpr size_t kWidth = kVectors * Vector::kLanes;

  PointChannels(const WindowPlane& plane, const float* input, const float* weight,
                const float* bias, float* output) noexcept
      : plane_(plane), input_(input), weight_(weight), bias_(bias), output_(output) {
    next_ = reinterpret_cast<const char*>(weight + plane.in_blocks * kBlock * kWidth);
  }

  void run(size_t begin, size_t end) noexcept {
    next_step_ = parts_of(2 * kWidth * sizeof(float), parts_of(end - begin, kMostPixels));
    for_even_tiles(end - begin, kMostPixels, [&](size_t first, size_t size, size_t count) {
      with_static<kMostPixels>(
          size, [&](auto kPixels) { run_tiles<kPixels.value>(begin + first, count); });
    });
  }

 private:
  template <size_t kPixels>
  [[gnu::noinline]] void run_tiles(size_t first, size_t tiles) noexcept {
    const size_t in_plane = plane_.in_plane;
    const size_t width = plane_.in_blocks * kBlock * kRow;
    for (; tiles != 0; --tiles, first += kPixels) {
      Register sums[kVectors][kPixels];
      begin_sums<Vector>(bias_, sums);
      const float* weight = weight_;
      const float* input = input_ + first * kBlock;
      for (size_t k = plane_.in_blocks; k != 0; --k, input += in_plane) {
        unrolled<kBlock / 2>(
            QRT_UNROLLED(fetch) { _mm_prefetch(next_ + fetch * next_step_, _MM_HINT_T1); });
        next_ += kBlock / 2 * next_step_;
        const float* const end = input + kBlock;
        for (const float* at = input; at != end; ++at, weight += kRow) {
          add_products<Vector>(
              sums,
              [&](size_t v) __attribute__((always_inline)) {
                return weight + v / kPacked * width + v % kPacked * Vector::kLanes;
              },
              [&](size_t pixel) __attribute__((always_inline)) { return at + pixel * kBlock; });
        }
      }
      store_tile<Vector>(plane_.ending, sums, output_ + first * kBlock, plane_.out_plane);
    }
  }

  const WindowPlane& plane_;
  const float* input_;
  const float* weight_;
  const float* bias_;
  float* output_;
  const char* next_;  // as in WindowChannels
  size_t next_step_ = 0;
};

}  // namespace
}  // namespace marlo::kernel::conv
