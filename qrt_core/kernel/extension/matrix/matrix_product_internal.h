#pragma once

#include "qrt_core/kernel/extension/matrix/matrix_product_cores.h"
#include "qrt_core/kernel/extension/matrix/packed_squares_internal.h"
#include "qrt_core/kernel/vectors_internal.h"

// The product for any vector: tiles of `kRows` rows and two vectors of columns in registers, a panel
// of b in the first cache, packed rows of a in the second (K. Goto, R. van de Geijn, "Anatomy of
// High-Performance Matrix Multiplication", ACM TOMS 34(3), 2008).

namespace marlo::kernel::matrix {
namespace {

/// A tile of c, up to two vectors wide, and what it is computed from.
struct Tile {
  const float* a;  // `kRows` floats for each step of the depth
  const float* b;  // a panel
  size_t depth;
  const float* start;  // what is added to: rows `start_row` apart; null for zeros
  size_t start_row;
  float* c;
  size_t c_row;
  size_t last;  // columns of the last vector
};

/// How many vectors a tile has, and whether the last one is a part of a vector.
template <size_t number, bool part>
struct Width {
  static constexpr size_t kVectors = number;
  static constexpr bool kEndsInPart = part;
};

/// Not inlined: next to other code GCC runs out of registers for the sums.
template <typename V, size_t rows, size_t a_stride, typename W>
[[gnu::noinline]] void multiply_tile(const Tile& tile) noexcept {
  constexpr size_t kLanes = V::kLanes;
  constexpr size_t kVectors = W::kVectors;
  constexpr size_t kWhole = W::kEndsInPart ? kVectors - 1 : kVectors;
  typename V::Register sums[rows][kVectors];
  unrolled<rows>(
      QRT_UNROLLED(r) { unrolled<kVectors>(QRT_UNROLLED(v) { sums[r][v] = V::zero(); }); });
  if (tile.start != nullptr) {
    unrolled<rows>(QRT_UNROLLED(r) {
      const float* const start = tile.start + r * tile.start_row;
      unrolled<kWhole>(QRT_UNROLLED(v) { sums[r][v] = V::load(start + v * kLanes); });
      if constexpr (W::kEndsInPart) {
        sums[r][kWhole] = V::load_first(start + kWhole * kLanes, tile.last);
      }
    });
  }
  const float* a = tile.a;
  const float* b = tile.b;
  for (const float* const end = a + tile.depth * a_stride; a != end; a += a_stride) {
    typename V::Register columns[kVectors];
    unrolled<kVectors>(QRT_UNROLLED(v) { columns[v] = V::load(b + v * kLanes); });
    b += 2 * kLanes;
    unrolled<rows>(QRT_UNROLLED(r) {
      const auto factor = V::splat(a + r);
      unrolled<kVectors>(
          QRT_UNROLLED(v) { sums[r][v] = V::plus_product(sums[r][v], factor, columns[v]); });
    });
  }
  unrolled<rows>(QRT_UNROLLED(r) {
    float* const c = tile.c + r * tile.c_row;
    unrolled<kWhole>(QRT_UNROLLED(v) { V::store(c + v * kLanes, sums[r][v]); });
    if constexpr (W::kEndsInPart) V::store_first(c + kWhole * kLanes, tile.last, sums[r][kWhole]);
  });
}

template <typename V, size_t kRows, typename W>
void multiply_rows(const Tile& tile, size_t rows) noexcept {
  with_static<kRows>(rows, [&tile](auto count) { multiply_tile<V, count.value, kRows, W>(tile); });
}

/// Packs rows of a, times alpha: `kRows` side by side for each step of the depth.
template <size_t kRows>
void pack_rows(const ProductTask& task, size_t row, size_t rows, size_t k, size_t depth) noexcept {
  float* to = task.scratch;
  for (size_t i = 0; i < rows; i += kRows, to += kRows * depth) {
    const size_t count = smaller_of(kRows, rows - i);
    const float* from = task.a + (row + i) * task.a_row + k * task.a_step;
    if (task.a_step == 1) {
      turn_lines(from, task.a_row, count, depth, task.alpha, to, kRows);
      continue;
    }
    for (size_t d = 0; d < depth; ++d) {
      const float* const line = from + d * task.a_step;
      for (size_t r = 0; r < count; ++r) to[d * kRows + r] = line[r * task.a_row] * task.alpha;
    }
  }
}

/// One row: four panels side by side hide the latency of their sums. The weights are read once, in
/// their order; b lies [panel][depth], so that parts of the depth aren't needed for it.
template <typename V, size_t panels>
void multiply_row(const ProductTask& task, size_t column) noexcept {
  constexpr size_t kLanes = V::kLanes;
  constexpr size_t kPanel = 2 * kLanes;
  typename V::Register sums[panels][2];
  const auto columns_at = [&](size_t at) { return smaller_of(kLanes, task.columns - at); };
  const auto at = [&](size_t p, size_t v) { return column + p * kPanel + v * kLanes; };
  unrolled<panels>(QRT_UNROLLED(p) {
    unrolled<2>(QRT_UNROLLED(v) {
      const bool begins = task.bias != nullptr && at(p, v) < task.columns;
      sums[p][v] = begins ? V::load_first(task.bias + at(p, v), columns_at(at(p, v))) : V::zero();
    });
  });
  const float* b = task.packed + column * task.depth;
  for (size_t k = 0; k < task.depth; ++k, b += kPanel) {
    const auto factor = V::splat(task.a[k * task.a_step] * task.alpha);
    unrolled<panels>(QRT_UNROLLED(p) {
      const float* const panel = b + p * kPanel * task.depth;
      sums[p][0] = V::plus_product(sums[p][0], factor, V::load(panel));
      sums[p][1] = V::plus_product(sums[p][1], factor, V::load(panel + kLanes));
    });
  }
  unrolled<panels>(QRT_UNROLLED(p) {
    unrolled<2>(QRT_UNROLLED(v) {
      if (at(p, v) >= task.columns) return;
      V::store_first(task.c + at(p, v), columns_at(at(p, v)), sums[p][v]);
    });
  });
}

/// Packed rows, a panel, and a part of the depth.
struct Block {
  size_t row;
  size_t rows;
  size_t column;
  size_t k;
  size_t depth;
};

template <typename V, size_t kRows>
void multiply_panel(const ProductTask& task, const Block& block) noexcept {
  constexpr size_t kPanel = 2 * V::kLanes;
  const size_t columns = smaller_of(kPanel, task.columns - block.column);
  const bool is_narrow = columns <= V::kLanes;
  Tile tile;
  tile.last = is_narrow ? columns : columns - V::kLanes;
  tile.b = task.packed + block.column * task.depth + block.k * kPanel;
  tile.depth = block.depth;
  tile.c_row = task.c_row;
  for (size_t i = 0; i < block.rows; i += kRows) {
    const size_t rows = smaller_of(kRows, block.rows - i);
    tile.a = task.scratch + i * block.depth;
    tile.c = task.c + (block.row + i) * task.c_row + block.column;
    // The first part begins with the bias, the others go on.
    const float* const bias = task.bias == nullptr ? nullptr : task.bias + block.column;
    tile.start = block.k == 0 ? bias : tile.c;
    tile.start_row = block.k == 0 ? 0 : task.c_row;
    if (columns == kPanel) {
      multiply_rows<V, kRows, Width<2, false>>(tile, rows);
    } else if (is_narrow) {
      multiply_rows<V, kRows, Width<1, true>>(tile, rows);
    } else {
      multiply_rows<V, kRows, Width<2, true>>(tile, rows);
    }
  }
}

template <typename V, size_t kRows>
void multiply(const ProductTask& task) noexcept {
  constexpr size_t kPanel = 2 * V::kLanes;
  if (task.rows == 1) {
    size_t column = 0;
    for (; column + 3 * kPanel < task.columns; column += 4 * kPanel) {
      multiply_row<V, 4>(task, column);
    }
    for (; column < task.columns; column += kPanel) multiply_row<V, 1>(task, column);
    return;
  }
  for_each_part(task.depth, kDepth, [&task](size_t k, size_t depth) {
    for (size_t row = 0; row < task.rows; row += kPackedRows) {
      const size_t rows = smaller_of(kPackedRows, task.rows - row);
      pack_rows<kRows>(task, row, rows, k, depth);
      for (size_t column = 0; column < task.columns; column += kPanel) {
        multiply_panel<V, kRows>(task, {row, rows, column, k, depth});
      }
    }
  });
}

}  // namespace
}  // namespace marlo::kernel::matrix
