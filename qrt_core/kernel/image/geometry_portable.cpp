#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "qrt_core/kernel/image/geometry_cores.h"

namespace marlo::kernel::image {
namespace {

// A pixel of so many bytes, moved as one.
template <size_t bytes>
struct Pixel {
  std::array<uint8_t, bytes> values;
};

// Sixteen bytes as lanes of one pixel each, in the compiler's own vectors.
template <typename T>
struct Lanes {
  static constexpr size_t kCount = 16 / sizeof(T);
  // GCC ignores the attribute on an alias of a dependent type.
  typedef T Vector __attribute__((vector_size(16)));

  // Lane 0 of a, lane 0 of b, lane 1 of a, ... from lane `first` on.
  template <size_t first, size_t... lane>
  static Vector merge(const Vector& a, const Vector& b, std::index_sequence<lane...>) {
    return __builtin_shufflevector(a, b, (first + lane / 2 + lane % 2 * kCount)...);
  }

  static Vector low(const Vector& a, const Vector& b) {
    return merge<0>(a, b, std::make_index_sequence<kCount>());
  }
  static Vector high(const Vector& a, const Vector& b) {
    return merge<kCount / 2>(a, b, std::make_index_sequence<kCount>());
  }
};

uint64_t load_word(const uint8_t* from) noexcept {
  uint64_t word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

void store_word(uint64_t word, uint8_t* to) noexcept { std::memcpy(to, &word, sizeof word); }

struct Plane {
  const uint8_t* input;
  ptrdiff_t input_stride;  // bytes from one row to the next, negative to read upwards
  uint8_t* output;
  ptrdiff_t output_stride;
};

// Transposes a square of as many pixels as a vector has lanes. Merging row i with row i + n / 2
// rotates the bits of an element's index by one; after log2(n) times row and column have changed
// places.
template <typename T>
void transpose_square(const uint8_t* input, ptrdiff_t input_stride, uint8_t* output,
                      ptrdiff_t output_stride) noexcept {
  using L = Lanes<T>;
  constexpr size_t n = L::kCount;
  std::array<typename L::Vector, n> rows;
  for (size_t i = 0; i < n; ++i) {
    std::memcpy(&rows[i], input + static_cast<ptrdiff_t>(i) * input_stride, 16);
  }
  for (size_t step = 1; step < n; step *= 2) {
    std::array<typename L::Vector, n> merged;
    for (size_t i = 0; i < n / 2; ++i) {
      merged[2 * i] = L::low(rows[i], rows[i + n / 2]);
      merged[2 * i + 1] = L::high(rows[i], rows[i + n / 2]);
    }
    rows = merged;
  }
  for (size_t i = 0; i < n; ++i) {
    std::memcpy(output + static_cast<ptrdiff_t>(i) * output_stride, &rows[i], 16);
  }
}

// Pixel by pixel: rows from `y` to `y_end`, columns from `x` to `x_end`.
template <typename P>
void transpose_part(const Plane& plane, size_t y, size_t y_end, size_t x, size_t x_end) noexcept {
  for (size_t row = x; row < x_end; ++row) {
    const uint8_t* from = plane.input + static_cast<ptrdiff_t>(y) * plane.input_stride +
                          static_cast<ptrdiff_t>(row * sizeof(P));
    uint8_t* to = plane.output + static_cast<ptrdiff_t>(row) * plane.output_stride +
                  static_cast<ptrdiff_t>(y * sizeof(P));
    for (size_t column = y; column < y_end; ++column) {
      std::memcpy(to, from, sizeof(P));
      from += plane.input_stride;
      to += sizeof(P);
    }
  }
}

// Squares of vectors, and the borders pixel by pixel.
template <typename T>
void transpose_vectors(const Plane& plane, size_t height, size_t width) noexcept {
  constexpr size_t n = Lanes<T>::kCount;
  const size_t whole_rows = height - height % n;
  const size_t whole_columns = width - width % n;
  // Square by square down a column, so that outputs go on where the last one ended.
  for (size_t x = 0; x < whole_columns; x += n) {
    for (size_t y = 0; y < whole_rows; y += n) {
      transpose_square<T>(plane.input + static_cast<ptrdiff_t>(y) * plane.input_stride +
                              static_cast<ptrdiff_t>(x * sizeof(T)),
                          plane.input_stride,
                          plane.output + static_cast<ptrdiff_t>(x) * plane.output_stride +
                              static_cast<ptrdiff_t>(y * sizeof(T)),
                          plane.output_stride);
    }
  }
  transpose_part<T>(plane, 0, whole_rows, whole_columns, width);
  transpose_part<T>(plane, whole_rows, height, 0, width);
}

// Pixels that are no lanes, in squares that stay in the cache.
template <typename P>
void transpose_tiles(const Plane& plane, size_t height, size_t width) noexcept {
  constexpr size_t kTile = 16;
  for (size_t y = 0; y < height; y += kTile) {
    for (size_t x = 0; x < width; x += kTile) {
      transpose_part<P>(plane, y, std::min(y + kTile, height), x, std::min(x + kTile, width));
    }
  }
}

// Eight pixels of three bytes below each other to three words. A fourth byte of each is read.
void store_column(const uint8_t* from, ptrdiff_t stride, uint8_t* to) noexcept {
  std::array<uint64_t, 8> pixels;
  for (size_t i = 0; i < pixels.size(); ++i) {
    uint32_t word;
    std::memcpy(&word, from + static_cast<ptrdiff_t>(i) * stride, sizeof word);
    pixels[i] = word & 0xFFFFFF;
  }
  const auto [a, b, c, d, e, f, g, h] = pixels;
  store_word(a | b << 24 | c << 48, to);
  store_word(c >> 16 | d << 8 | e << 32 | f << 56, to + 8);
  store_word(f >> 8 | g << 16 | h << 40, to + 16);
}

// By columns of eight pixels. The last column, behind which the input may end, is moved pixel by
// pixel.
void transpose_triples(const Plane& plane, size_t height, size_t width) noexcept {
  constexpr size_t kRows = 8;
  using P = Pixel<3>;
  const ptrdiff_t input_stride = plane.input_stride;
  const ptrdiff_t output_stride = plane.output_stride;
  const size_t whole_rows = height - height % kRows;
  for (size_t y = 0; y < whole_rows; y += kRows) {
    const uint8_t* from = plane.input + static_cast<ptrdiff_t>(y) * input_stride;
    uint8_t* to = plane.output + y * sizeof(P);
    for (size_t x = 0; x + 1 < width; ++x) {
      store_column(from, input_stride, to);
      from += sizeof(P);
      to += output_stride;
    }
  }
  transpose_part<P>(plane, 0, whole_rows, width - 1, width);
  transpose_part<P>(plane, whole_rows, height, 0, width);
}

void transpose_any(const Plane& plane, size_t height, size_t width, size_t pixel_bytes) noexcept {
  for (size_t y = 0; y < height; ++y) {
    for (size_t x = 0; x < width; ++x) {
      std::memcpy(plane.output + static_cast<ptrdiff_t>(x) * plane.output_stride +
                      static_cast<ptrdiff_t>(y * pixel_bytes),
                  plane.input + static_cast<ptrdiff_t>(y) * plane.input_stride +
                      static_cast<ptrdiff_t>(x * pixel_bytes),
                  pixel_bytes);
    }
  }
}

void transpose(const Plane& plane, size_t height, size_t width, size_t pixel_bytes) noexcept {
  switch (pixel_bytes) {
    case 1:
      return transpose_vectors<uint8_t>(plane, height, width);
    case 2:
      return transpose_vectors<uint16_t>(plane, height, width);
    case 3:
      return transpose_triples(plane, height, width);
    case 4:
      return transpose_vectors<uint32_t>(plane, height, width);
    case 12:
      return transpose_tiles<Pixel<12>>(plane, height, width);
    default:
      return transpose_any(plane, height, width, pixel_bytes);
  }
}

void reverse_bytes(const uint8_t* input, size_t count, uint8_t* output) noexcept {
  constexpr size_t kWord = sizeof(uint64_t);
  constexpr size_t kBlock = 4 * kWord;
  const uint8_t* const end = input + count;
  size_t i = 0;
  for (; i + kBlock <= count; i += kBlock) {
    for (size_t at = i; at < i + kBlock; at += kWord) {
      store_word(__builtin_bswap64(load_word(end - at - kWord)), output + at);
    }
  }
  for (; i < count; ++i) output[i] = input[count - 1 - i];
}

template <typename P>
void reverse(const uint8_t* __restrict input, size_t count, uint8_t* __restrict output) noexcept {
  for (size_t i = 0; i < count; ++i) {
    std::memcpy(output + i * sizeof(P), input + (count - 1 - i) * sizeof(P), sizeof(P));
  }
}

// Eight pixels of three bytes, in three words. Words are loaded from where as many bytes as
// possible are in their places.
void reverse_eight_triples(const uint8_t* from, uint8_t* to) noexcept {
  constexpr uint64_t kPixel = 0xFFFFFF;
  const uint64_t middle = load_word(from + 15);
  store_word(load_word(from + 16) >> 40 | (middle & kPixel << 24) | middle << 48, to);
  store_word(load_word(from + 10) >> 56 | (load_word(from + 11) & kPixel << 8) |
                 (load_word(from + 5) & kPixel << 32) | load_word(from + 6) << 56,
             to + 8);
  const uint64_t last = load_word(from + 1);
  store_word(last >> 48 | (last & kPixel << 16) | load_word(from) << 40, to + 16);
}

void reverse_triples(const uint8_t* __restrict input, size_t count,
                     uint8_t* __restrict output) noexcept {
  size_t i = 0;
  for (; i + 8 <= count; i += 8) reverse_eight_triples(input + 3 * (count - 8 - i), output + 3 * i);
  for (; i < count; ++i) std::memcpy(output + 3 * i, input + 3 * (count - 1 - i), 3);
}

}  // namespace

void turn_clockwise(const void* input, size_t height, size_t width, size_t pixel_bytes,
                    void* output) noexcept {
  if (height == 0 || width == 0) return;
  const auto stride = static_cast<ptrdiff_t>(width * pixel_bytes);
  const auto* const last = static_cast<const uint8_t*>(input) + (height - 1) * width * pixel_bytes;
  transpose(
      {last, -stride, static_cast<uint8_t*>(output), static_cast<ptrdiff_t>(height * pixel_bytes)},
      height, width, pixel_bytes);
}

void turn_counterclockwise(const void* input, size_t height, size_t width, size_t pixel_bytes,
                           void* output) noexcept {
  if (height == 0 || width == 0) return;
  const auto stride = static_cast<ptrdiff_t>(height * pixel_bytes);
  auto* const last = static_cast<uint8_t*>(output) + (width - 1) * height * pixel_bytes;
  transpose({static_cast<const uint8_t*>(input), static_cast<ptrdiff_t>(width * pixel_bytes), last,
             -stride},
            height, width, pixel_bytes);
}

void reverse_pixels(const void* input, size_t count, size_t pixel_bytes, void* output) noexcept {
  const auto* const from = static_cast<const uint8_t*>(input);
  auto* const to = static_cast<uint8_t*>(output);
  switch (pixel_bytes) {
    case 1:
      return reverse_bytes(from, count, to);
    case 2:
      return reverse<Pixel<2>>(from, count, to);
    case 3:
      return reverse_triples(from, count, to);
    case 4:
      return reverse<Pixel<4>>(from, count, to);
    case 12:
      return reverse<Pixel<12>>(from, count, to);
    default:
      for (size_t i = 0; i < count; ++i) {
        std::memcpy(to + i * pixel_bytes, from + (count - 1 - i) * pixel_bytes, pixel_bytes);
      }
  }
}

void reverse_columns(const void* input, size_t height, size_t width, size_t pixel_bytes,
                     void* output, ReversePixels reverse_row) noexcept {
  constexpr size_t kLine = 64;
  const size_t row_bytes = width * pixel_bytes;
  const auto* from = static_cast<const uint8_t*>(input);
  auto* to = static_cast<uint8_t*>(output);
  for (size_t y = 0; y < height; ++y, from += row_bytes, to += row_bytes) {
    // Rows are read from their ends, where no processor expects the next one to begin.
    if (y + 1 < height) {
      for (size_t i = 0; i < row_bytes; i += kLine) __builtin_prefetch(from + row_bytes + i);
    }
    reverse_row(from, width, pixel_bytes, to);
  }
}

void copy_rows(const void* input, size_t input_stride, size_t rows, size_t row_bytes, void* output,
               size_t output_stride) noexcept {
  if (row_bytes == 0) return;
  for (size_t y = 0; y < rows; ++y) {
    std::memcpy(static_cast<uint8_t*>(output) + y * output_stride,
                static_cast<const uint8_t*>(input) + y * input_stride, row_bytes);
  }
}

void reverse_rows(const void* input, size_t height, size_t row_bytes, void* output) noexcept {
  for (size_t y = 0; y < height; ++y) {
    copy_rows(static_cast<const uint8_t*>(input) + (height - 1 - y) * row_bytes, 0, 1, row_bytes,
              static_cast<uint8_t*>(output) + y * row_bytes, 0);
  }
}

}  // namespace marlo::kernel::image
