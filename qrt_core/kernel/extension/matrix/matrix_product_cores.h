#pragma once

#include <cstddef>

// Products of matrices, and of a matrix with one row, over weights that are packed in panels of
// columns.

namespace marlo::kernel::matrix {

/// c = a * b + bias.
struct ProductTask {
  const float* a = nullptr;  ///< [rows, depth], element (i, k) at i * a_row + k * a_step
  size_t a_row = 0;
  size_t a_step = 1;
  const float* packed = nullptr;  ///< b, [depth, columns], as a `ColumnPacker` leaves it
  const float* bias = nullptr;    ///< [columns]; null for none
  float* c = nullptr;             ///< [rows, columns], element (i, j) at i * c_row + j
  size_t c_row = 0;
  size_t rows = 0;
  size_t columns = 0;
  size_t depth = 0;
  float* scratch =
      nullptr;           ///< `product_scratch` floats; none for one row, or where a_step is 1 and
                         ///< rows aren't a multiple of 4 KiB apart
  bool goes_on = false;  ///< whether the b of the next product lies behind this one
};

/// Each sum runs along the depth in one order, in parts of up to `kDepth` that are then added; the
/// bias, or 0, is where the first part begins. Products are fused with their sums but in the
/// portable form. The products of a single row are summed as those of several.
using ProductCore = void (*)(const ProductTask& task) noexcept;

/// Where b, [depth, columns], lies before it is packed.
struct ColumnSource {
  const float* b = nullptr;  ///< element (k, j) at k * row + j * step
  size_t row = 0;
  size_t step = 0;
  size_t depth = 0;
  size_t columns = 0;
  float alpha = 1.0f;  ///< what every element is multiplied by
};

/// Packs b: panel after panel [depth, columns], the last one as wide as whole vectors for what is left,
/// filled up with zeros.
using ColumnPacker = void (*)(const ColumnSource& source, float* packed) noexcept;

/// An instruction set's product and the width of its vectors.
struct ProductCores {
  ProductCore multiply = nullptr;  ///< carries a task out
  ColumnPacker pack = nullptr;     ///< packs a second matrix
  size_t lanes = 0;                ///< columns of a vector
  size_t panel = 0;                ///< columns of a panel
};

/// Depth of a part, and rows that are multiplied by a panel at a time.
constexpr size_t kDepth = 384;
constexpr size_t kPackedRows = 240;

/// Floats between packed rows, which don't lie a multiple of 4 KiB apart.
constexpr size_t kPackedRow = kDepth + 16;

/// Floats of scratch that a product of several rows needs.
constexpr size_t product_scratch(size_t rows) {
  return (rows < kPackedRows ? rows : kPackedRows) * kPackedRow;
}

/// Floats of a packed matrix: its columns fill vectors.
constexpr size_t packed_size(size_t depth, size_t columns, size_t lanes) {
  return (columns + lanes - 1) / lanes * lanes * depth;
}

void multiply_portable(const ProductTask& task) noexcept;
void multiply_fma(const ProductTask& task) noexcept;
void multiply_avx512(const ProductTask& task) noexcept;
void pack_portable(const ColumnSource& source, float* packed) noexcept;
void pack_fma(const ColumnSource& source, float* packed) noexcept;
void pack_avx512(const ColumnSource& source, float* packed) noexcept;

inline constexpr ProductCores kProductPortable = {multiply_portable, pack_portable, 4, 8};
inline constexpr ProductCores kProductFma = {multiply_fma, pack_fma, 8, 16};
inline constexpr ProductCores kProductAvx512 = {multiply_avx512, pack_avx512, 16, 64};

}  // namespace marlo::kernel::matrix
