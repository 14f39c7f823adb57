#include <emmintrin.h>

#include "qrt_core/kernel/conv/int16_cores.h"

namespace marlo::kernel::conv {
namespace {

constexpr size_t kBlock = 8;

// Eight products of 16 bits: both halves of each are put together, shifted and saturated.
template <int kShift>
__m128i scaled_products(__m128i a, __m128i b) noexcept {
  const __m128i low = _mm_mullo_epi16(a, b);
  const __m128i high = _mm_mulhi_epi16(a, b);
  const __m128i first = _mm_srai_epi32(_mm_unpacklo_epi16(low, high), kShift);
  const __m128i second = _mm_srai_epi32(_mm_unpackhi_epi16(low, high), kShift);
  return _mm_packs_epi32(first, second);
}

// Sums wrap, so their order doesn't matter: a tile of pixels takes all input blocks before it is
// stored.
template <int kShift, size_t kPixels>
void run_tile(const int16_t* input, const int16_t* weight, int16_t* output, size_t in_blocks,
              size_t in_plane) noexcept {
  __m128i sums[kPixels];
  for (size_t i = 0; i < kPixels; ++i) {
    sums[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(output + i * kBlock));
  }
  for (size_t k = 0; k < in_blocks; ++k, input += in_plane) {
    for (size_t c = 0; c < kBlock; ++c, weight += kBlock) {
      const __m128i w = _mm_loadu_si128(reinterpret_cast<const __m128i*>(weight));
      for (size_t i = 0; i < kPixels; ++i) {
        const __m128i x = _mm_set1_epi16(input[i * kBlock + c]);
        sums[i] = _mm_add_epi16(sums[i], scaled_products<kShift>(x, w));
      }
    }
  }
  for (size_t i = 0; i < kPixels; ++i) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(output + i * kBlock), sums[i]);
  }
}

template <int kShift>
void run(const int16_t* input, const int16_t* weight, int16_t* output, size_t in_blocks,
         size_t out_blocks, size_t pixels) noexcept {
  constexpr size_t kPixels = 4;
  const size_t plane = pixels * kBlock;
  for (size_t out = 0; out < out_blocks; ++out) {
    size_t pixel = 0;
    for (; pixel + kPixels <= pixels; pixel += kPixels) {
      run_tile<kShift, kPixels>(input + pixel * kBlock, weight, output + pixel * kBlock, in_blocks,
                                plane);
    }
    for (; pixel < pixels; ++pixel) {
      run_tile<kShift, 1>(input + pixel * kBlock, weight, output + pixel * kBlock, in_blocks,
                          plane);
    }
    weight += in_blocks * kBlock * kBlock;
    output += plane;
  }
}

}  // namespace

void point_int16_sse(const int16_t* input, const int16_t* weight, int16_t* output, size_t in_blocks,
                     size_t out_blocks, size_t pixels, unsigned shift) noexcept {
  // The shift is part of the instruction, so each has code of its own.
  constexpr void (*kRuns[])(const int16_t*, const int16_t*, int16_t*, size_t, size_t,
                            size_t) noexcept = {run<8>, run<9>, run<10>, run<11>, run<12>};
  kRuns[shift - 8](input, weight, output, in_blocks, out_blocks, pixels);
}

}  // namespace marlo::kernel::conv
