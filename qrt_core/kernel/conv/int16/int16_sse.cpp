#include <emmintrin.h>

#include "qrt_core/kernel/conv/int16/int16_cores.h"
#include "qrt_core/kernel/vectors_internal.h"

namespace marlo::kernel::conv {
namespace {

constexpr size_t kBlock = 8;
constexpr size_t kMostPixels = 8;

__m128i load(const int16_t* from) noexcept {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

// Eight weights of one input channel, each beside a zero, so that the sum of two products that the
// processor makes of 32 bits is the product of that channel alone.
struct Weights {
  __m128i low;
  __m128i high;
};

// The eight products of a channel, shifted and saturated. `x` holds the channel and its neighbour
// in each 32 bits.
template <int kShift>
[[gnu::always_inline]] inline __m128i scaled_products(__m128i x, const Weights& w) noexcept {
  const __m128i first = _mm_srai_epi32(_mm_madd_epi16(x, w.low), kShift);
  const __m128i second = _mm_srai_epi32(_mm_madd_epi16(x, w.high), kShift);
  return _mm_packs_epi32(first, second);
}

// Sums wrap, so their order doesn't matter: a tile of pixels takes all input blocks before it is
// stored, two channels at a time.
template <int kShift, size_t kPixels>
[[gnu::noinline]] void run_tile(const int16_t* input, const int16_t* weight, int16_t* output,
                                size_t in_blocks, size_t in_plane) noexcept {
  __m128i sums[kPixels];
  unrolled<kPixels>(QRT_UNROLLED(i) { sums[i] = load(output + i * kBlock); });
  for (size_t k = 0; k < in_blocks; ++k, input += in_plane) {
    for (size_t c = 0; c < kBlock; c += 2, weight += 2 * kBlock) {
      const __m128i zero = _mm_setzero_si128();
      const __m128i w0 = load(weight);
      const __m128i w1 = load(weight + kBlock);
      const Weights even = {_mm_unpacklo_epi16(w0, zero), _mm_unpackhi_epi16(w0, zero)};
      const Weights odd = {_mm_unpacklo_epi16(zero, w1), _mm_unpackhi_epi16(zero, w1)};
      unrolled<kPixels>(QRT_UNROLLED(i) {
        const __m128i pair = _mm_loadu_si32(input + i * kBlock + c);
        const __m128i x = _mm_shuffle_epi32(pair, 0);
        sums[i] = in_order(_mm_add_epi16(sums[i], scaled_products<kShift>(x, even)));
        sums[i] = in_order(_mm_add_epi16(sums[i], scaled_products<kShift>(x, odd)));
      });
    }
  }
  unrolled<kPixels>(QRT_UNROLLED(i) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(output + i * kBlock), sums[i]);
  });
}

template <int kShift, size_t kPixels>
void sized_tile(size_t pixels, const int16_t* input, const int16_t* weight, int16_t* output,
                size_t in_blocks, size_t in_plane) noexcept {
  if constexpr (kPixels > 1) {
    if (pixels < kPixels) {
      return sized_tile<kShift, kPixels - 1>(pixels, input, weight, output, in_blocks, in_plane);
    }
  }
  run_tile<kShift, kPixels>(input, weight, output, in_blocks, in_plane);
}

template <int kShift>
void run(const int16_t* input, const int16_t* weight, int16_t* output, size_t in_blocks,
         size_t out_blocks, size_t pixels) noexcept {
  const size_t plane = pixels * kBlock;
  for (size_t out = 0; out < out_blocks; ++out) {
    for_even_tiles(pixels, kMostPixels, [&](size_t begin, size_t size, size_t count) {
      for (size_t tile = 0; tile < count; ++tile) {
        const size_t at = (begin + tile * size) * kBlock;
        sized_tile<kShift, kMostPixels>(size, input + at, weight, output + at, in_blocks, plane);
      }
    });
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
