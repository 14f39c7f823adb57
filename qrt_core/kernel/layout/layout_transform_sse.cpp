#include <emmintrin.h>

#include "qrt_core/kernel/layout/layout_transform_cores.h"

namespace marlo::kernel::layout {
namespace {

/// Four rows of four floats: the transpose of the square that was loaded.
struct Square {
  __m128 rows[4];
};

Square transposed(__m128 a, __m128 b, __m128 c, __m128 d) {
  const __m128 ab_low = _mm_unpacklo_ps(a, b);
  const __m128 ab_high = _mm_unpackhi_ps(a, b);
  const __m128 cd_low = _mm_unpacklo_ps(c, d);
  const __m128 cd_high = _mm_unpackhi_ps(c, d);
  return {{_mm_movelh_ps(ab_low, cd_low), _mm_movehl_ps(cd_low, ab_low),
           _mm_movelh_ps(ab_high, cd_high), _mm_movehl_ps(cd_high, ab_high)}};
}

// Writes the transpose of 4 x 4 floats; rows lie `from_step` and `to_step` floats apart.
void transpose_square(const float* from, size_t from_step, float* to, size_t to_step) {
  const Square square =
      transposed(_mm_loadu_ps(from), _mm_loadu_ps(from + from_step),
                 _mm_loadu_ps(from + 2 * from_step), _mm_loadu_ps(from + 3 * from_step));
  for (size_t k = 0; k < 4; ++k) _mm_storeu_ps(to + k * to_step, square.rows[k]);
}

template <size_t block>
void pack_block(const float* planes, float* target, size_t pixels) {
  size_t i = 0;
  for (; i + 4 <= pixels; i += 4) {
    for (size_t k = 0; k < block; k += 4) {
      transpose_square(planes + k * pixels + i, pixels, target + i * block + k, block);
    }
  }
  for (; i < pixels; ++i) {
    for (size_t k = 0; k < block; ++k) target[i * block + k] = planes[k * pixels + i];
  }
}

// The last block where only `channels` of its planes exist.
template <size_t block>
void pack_partial_block(const float* planes, float* target, size_t channels, size_t pixels) {
  const auto row = [=](size_t k, size_t i) {
    return k < channels ? _mm_loadu_ps(planes + k * pixels + i) : _mm_setzero_ps();
  };
  size_t i = 0;
  for (; i + 4 <= pixels; i += 4) {
    for (size_t k = 0; k < block; k += 4) {
      const Square square = transposed(row(k, i), row(k + 1, i), row(k + 2, i), row(k + 3, i));
      for (size_t j = 0; j < 4; ++j) {
        _mm_storeu_ps(target + (i + j) * block + k, square.rows[j]);
      }
    }
  }
  for (; i < pixels; ++i) {
    for (size_t k = 0; k < block; ++k) {
      target[i * block + k] = k < channels ? planes[k * pixels + i] : 0.0f;
    }
  }
}

template <size_t block>
void pack(const float* source, float* target, size_t channels, size_t pixels) {
  for (; channels >= block; channels -= block) {
    pack_block<block>(source, target, pixels);
    source += block * pixels;
    target += block * pixels;
  }
  if (channels != 0) pack_partial_block<block>(source, target, channels, pixels);
}

// `width` pixels per step, then four, then one.
template <size_t block, size_t width>
void unpack_block(const float* source, float* planes, size_t pixels) {
  size_t i = 0;
  const auto four_pixels = [=](size_t first) {
    for (size_t k = 0; k < block; k += 4) {
      transpose_square(source + first * block + k, block, planes + k * pixels + first, pixels);
    }
  };
  for (; i + width <= pixels; i += width) {
    for (size_t first = i; first < i + width; first += 4) four_pixels(first);
  }
  for (; i + 4 <= pixels; i += 4) four_pixels(i);
  for (; i < pixels; ++i) {
    for (size_t k = 0; k < block; ++k) planes[k * pixels + i] = source[i * block + k];
  }
}

template <size_t block, size_t width>
void unpack(const float* source, float* target, size_t channels, size_t pixels) {
  for (; channels >= block; channels -= block) {
    unpack_block<block, width>(source, target, pixels);
    source += block * pixels;
    target += block * pixels;
  }
}

}  // namespace

void planes_to_blocks_of_4_gather_sse(const float* source, float* target, size_t channels,
                                      size_t pixels) noexcept {
  for (; channels >= 4; channels -= 4) {
    for (size_t i = 0; i < pixels; ++i) {
      const float* const plane = source + i;
      _mm_storeu_ps(target,
                    _mm_setr_ps(plane[0], plane[pixels], plane[2 * pixels], plane[3 * pixels]));
      target += 4;
    }
    source += 4 * pixels;
  }
}

void planes_to_blocks_of_4_sse(const float* source, float* target, size_t channels,
                               size_t pixels) noexcept {
  pack<4>(source, target, channels, pixels);
}

void planes_to_blocks_of_8_sse(const float* source, float* target, size_t channels,
                               size_t pixels) noexcept {
  pack<8>(source, target, channels, pixels);
}

void blocks_of_4_to_planes_sse(const float* source, float* target, size_t channels,
                               size_t pixels) noexcept {
  unpack<4, 4>(source, target, channels, pixels);
}

void blocks_of_8_to_planes_sse(const float* source, float* target, size_t channels,
                               size_t pixels) noexcept {
  unpack<8, 4>(source, target, channels, pixels);
}

void blocks_of_8_to_planes_wide_sse(const float* source, float* target, size_t channels,
                                    size_t pixels) noexcept {
  unpack<8, 8>(source, target, channels, pixels);
}

void blocks_of_4_to_8_sse(const float* source, float* target, size_t channels,
                          size_t pixels) noexcept {
  for (; channels >= 8; channels -= 8) {
    const float* const second = source + 4 * pixels;
    for (size_t i = 0; i < pixels; ++i) {
      _mm_storeu_ps(target + 8 * i, _mm_loadu_ps(source + 4 * i));
      _mm_storeu_ps(target + 8 * i + 4, _mm_loadu_ps(second + 4 * i));
    }
    source += 8 * pixels;
    target += 8 * pixels;
  }
}

void blocks_of_8_to_4_sse(const float* source, float* target, size_t channels,
                          size_t pixels) noexcept {
  for (; channels >= 8; channels -= 8) {
    float* const second = target + 4 * pixels;
    for (size_t i = 0; i < pixels; ++i) {
      _mm_storeu_ps(target + 4 * i, _mm_loadu_ps(source + 8 * i));
      _mm_storeu_ps(second + 4 * i, _mm_loadu_ps(source + 8 * i + 4));
    }
    source += 8 * pixels;
    target += 8 * pixels;
  }
}

}  // namespace marlo::kernel::layout
