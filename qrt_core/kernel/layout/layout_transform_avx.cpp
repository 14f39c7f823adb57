#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include <immintrin.h>

#include "qrt_core/kernel/layout/layout_transform_cores.h"

namespace marlo::kernel::layout {
namespace {

constexpr size_t kBlock = 8;

struct Rows {
  __m256 rows[4];
};

// The transposes of two squares of 4 x 4, one in each 128-bit lane. Of a square of 8 x 8, a vector
// holds half a row and the same half of the row four below: joined by their loads, halves need no
// exchange of lanes afterwards.
Rows transposed(__m256 a, __m256 b, __m256 c, __m256 d) {
  const __m256 ab_low = _mm256_unpacklo_ps(a, b);
  const __m256 ab_high = _mm256_unpackhi_ps(a, b);
  const __m256 cd_low = _mm256_unpacklo_ps(c, d);
  const __m256 cd_high = _mm256_unpackhi_ps(c, d);
  return {{_mm256_shuffle_ps(ab_low, cd_low, 0x44), _mm256_shuffle_ps(ab_low, cd_low, 0xEE),
           _mm256_shuffle_ps(ab_high, cd_high, 0x44), _mm256_shuffle_ps(ab_high, cd_high, 0xEE)}};
}

// Writes the transpose of 8 x 8 floats. `row(k, i)` is floats i to i + 3 of row k.
template <typename Row>
void transpose_square(Row row, float* to, size_t to_step) {
  const auto joined = [row](size_t k, size_t i) {
    return _mm256_insertf128_ps(_mm256_castps128_ps256(row(k, i)), row(k + 4, i), 1);
  };
  for (size_t i = 0; i < 8; i += 4) {
    const Rows half = transposed(joined(0, i), joined(1, i), joined(2, i), joined(3, i));
    for (size_t k = 0; k < 4; ++k) _mm256_storeu_ps(to + (i + k) * to_step, half.rows[k]);
  }
}

// Full planes are read without a test; of a partial block only `channels` planes exist.
template <bool partial>
void pack_block(const float* planes, float* target, size_t channels, size_t pixels) {
  size_t i = 0;
  for (; i + 8 <= pixels; i += 8) {
    const auto row = [=](size_t k, size_t j) {
      if (partial && k >= channels) return _mm_setzero_ps();
      return _mm_loadu_ps(planes + k * pixels + i + j);
    };
    transpose_square(row, target + i * kBlock, kBlock);
  }
  for (; i < pixels; ++i) {
    for (size_t k = 0; k < kBlock; ++k) {
      target[i * kBlock + k] = partial && k >= channels ? 0.0f : planes[k * pixels + i];
    }
  }
}

void unpack_block(const float* source, float* planes, size_t pixels) {
  size_t i = 0;
  for (; i + 8 <= pixels; i += 8) {
    const float* const square = source + i * kBlock;
    const auto row = [square](size_t k, size_t j) { return _mm_loadu_ps(square + k * kBlock + j); };
    transpose_square(row, planes + i, pixels);
  }
  for (; i + 4 <= pixels; i += 4) {
    const float* const pixel = source + i * kBlock;
    const Rows rows =
        transposed(_mm256_loadu_ps(pixel), _mm256_loadu_ps(pixel + kBlock),
                   _mm256_loadu_ps(pixel + 2 * kBlock), _mm256_loadu_ps(pixel + 3 * kBlock));
    for (size_t k = 0; k < 4; ++k) {
      _mm_storeu_ps(planes + k * pixels + i, _mm256_castps256_ps128(rows.rows[k]));
      _mm_storeu_ps(planes + (k + 4) * pixels + i, _mm256_extractf128_ps(rows.rows[k], 1));
    }
  }
  for (; i < pixels; ++i) {
    for (size_t k = 0; k < kBlock; ++k) planes[k * pixels + i] = source[i * kBlock + k];
  }
}

}  // namespace

void planes_to_blocks_of_8_gather_avx(const float* source, float* target, size_t channels,
                                      size_t pixels) noexcept {
  for (; channels >= kBlock; channels -= kBlock) {
    for (size_t i = 0; i < pixels; ++i) {
      const float* const plane = source + i;
      _mm256_storeu_ps(target,
                       _mm256_setr_ps(plane[0], plane[pixels], plane[2 * pixels], plane[3 * pixels],
                                      plane[4 * pixels], plane[5 * pixels], plane[6 * pixels],
                                      plane[7 * pixels]));
      target += kBlock;
    }
    source += kBlock * pixels;
  }
}

void planes_to_blocks_of_8_avx(const float* source, float* target, size_t channels,
                               size_t pixels) noexcept {
  for (; channels >= kBlock; channels -= kBlock) {
    pack_block<false>(source, target, kBlock, pixels);
    source += kBlock * pixels;
    target += kBlock * pixels;
  }
  if (channels != 0) pack_block<true>(source, target, channels, pixels);
}

void blocks_of_8_to_planes_scatter_avx(const float* source, float* target, size_t channels,
                                       size_t pixels) noexcept {
  for (; channels >= kBlock; channels -= kBlock) {
    for (size_t i = 0; i < pixels; ++i) {
      alignas(32) float lanes[kBlock];
      _mm256_store_ps(lanes, _mm256_loadu_ps(source));
      for (size_t k = 0; k < kBlock; ++k) target[k * pixels + i] = lanes[k];
      source += kBlock;
    }
    target += kBlock * pixels;
  }
}

void blocks_of_8_to_planes_avx(const float* source, float* target, size_t channels,
                               size_t pixels) noexcept {
  for (; channels >= kBlock; channels -= kBlock) {
    unpack_block(source, target, pixels);
    source += kBlock * pixels;
    target += kBlock * pixels;
  }
}

}  // namespace marlo::kernel::layout
