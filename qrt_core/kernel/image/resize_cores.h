#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Resizes of interleaved bytes, and the tables that they go by.

namespace marlo::kernel::image {

/// Where each place of an output line is taken from, on one axis.
struct BilinearAxis {
  /// Places by the half-pixel rule: f = (i + 0.5) * in / out - 0.5, in double and rounded to float.
  /// Below 0 they are the first place, and from in - 1 on the last one, by a weight of 1 on it.
  /// @param in at least 1; with 1, every place is taken from the only one
  BilinearAxis(uint32_t in, uint32_t out);

  std::vector<uint32_t> first;    ///< the left or upper place; the other is `step` behind it
  std::vector<int16_t> weights0;  ///< of `first`, in 1 / 2048, rounded half away from zero
  std::vector<int16_t> weights1;  ///< of the other place
  uint32_t step;                  ///< 1, or 0 where the input has one place only
};

/// The columns of a horizontal pass.
struct ColumnTable {
  const size_t* offsets;   ///< of the left pixel of each, in bytes
  const int16_t* weights;  ///< of the left and of the right column, for each sample of a pixel
  size_t step;             ///< from the left pixel to the right one, in bytes
  size_t columns;          ///< of which four bytes can be read
};

/// (p * w0 + q * w1) / 16, rounded down, of the pixels of a row that have 3 or 4 bytes. One number
/// more is written, and of the weights one pair more is read.
/// @return the columns that were scaled, from 0 on: all or all but one; none of other pixels
size_t scale_columns_sse(const uint8_t* row, size_t channels, const ColumnTable& table,
                         int16_t* scaled) noexcept;

/// The same of pairs of bytes that stand side by side.
/// @return the pairs that were weighed, from 0 on: all but a few
size_t weigh_pairs_sse(const uint8_t* pairs, const int16_t* weights, size_t count,
                       int16_t* scaled) noexcept;

/// A picture of interleaved bytes.
struct BytePicture {
  size_t height, width, channels;
};

/// Bilinear in fixed point: rows are scaled to (p * w0 + q * w1) / 16, each once, and two of them
/// give ((u * wu) / 65536 + (l * wl) / 65536 + 2) / 4, all rounded down.
/// @param to of the channels of `from`, which is 1 by 1 or larger
void resize_bilinear(const uint8_t* input, const BytePicture& from, uint8_t* output,
                     const BytePicture& to);

/// The places of a nearest resize on one axis, by the half-pixel rule. What lies half-way is taken
/// from the place behind.
std::vector<uint32_t> nearest_places(uint32_t in, uint32_t out);

/// The places of the quick nearest resize: a float that grows by in / out, truncated.
std::vector<uint32_t> accumulated_places(uint32_t in, uint32_t out);

/// Copies pixels of `pixel_bytes`: output row y and column x come from input row rows[y] and column
/// columns[x].
void copy_places(const uint8_t* input, size_t input_stride, const uint32_t* rows, size_t row_count,
                 const uint32_t* columns, size_t column_count, size_t pixel_bytes, uint8_t* output,
                 size_t output_stride) noexcept;

}  // namespace marlo::kernel::image
