#pragma once

#include "qrt_core/kernel/extension/matrix/matrix_product_cores.h"
#include "qrt_core/kernel/extension/matrix/packed_squares_internal.h"
#include "qrt_core/kernel/vectors_internal.h"

// The product for any vector: tiles of up to `kRows` rows and two vectors of columns in registers, a
// panel of b in the first cache or the second, rows of a in the second (K. Goto, R. van de Geijn,
// "Anatomy of High-Performance Matrix Multiplication", ACM TOMS 34(3), 2008). Rows of a are read where
// they lie: a tile takes a number of each for a step of the depth, which costs no more from as many
// lines of the cache than from one. Only where those lines don't fit side by side are rows packed.

namespace marlo::kernel::matrix {
namespace {

/// A tile of c, up to two vectors wide, and what it is computed from.
struct Tile {
  const float* a;  // element (i, k) at i * a_row + k * a_step
  size_t a_row;
  size_t a_step;
  const float* b;  // a panel, rows `b_row` apart
  size_t b_row;
  size_t depth;
  const char* next;  // what a line of is fetched with each step, `next_step` bytes apart
  size_t next_step;
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

/// The vector for the last columns, where they are as few as its lanes.
template <typename V>
struct NarrowOf {
  using Vector = V;
};

#ifdef __AVX512F__
/// Half a vector takes half the time.
template <>
struct NarrowOf<Avx512Vector> {
  using Vector = FusedVector;
};
#endif

/// Not inlined: next to other code GCC runs out of registers for the sums.
template <typename V, size_t rows, typename W>
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
  const char* next = tile.next;
  for (size_t k = tile.depth; k != 0; --k) {
    _mm_prefetch(next, _MM_HINT_T1);
    next += tile.next_step;
    typename V::Register columns[kVectors];
    unrolled<kVectors>(QRT_UNROLLED(v) { columns[v] = V::load(b + v * kLanes); });
    b += tile.b_row;
    const float* const step = a;
    a += tile.a_step;
    unrolled<rows>(QRT_UNROLLED(r) {
      const auto factor = V::splat(step + r * tile.a_row);
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
  with_static<kRows>(rows, [&tile](auto count) { multiply_tile<V, count.value, W>(tile); });
}

/// Packs rows of a: those of a tile side by side for each step of the depth.
template <size_t kRows>
void pack_rows(const ProductTask& task, size_t row, size_t rows, size_t k, size_t depth) noexcept {
  float* to = task.scratch;
  const float* from = task.a + row * task.a_row + k * task.a_step;
  for_even_tiles(rows, kRows, [&](size_t, size_t lines, size_t count) {
    for (; count != 0; --count, from += lines * task.a_row, to += lines * depth) {
      if (task.a_step == 1) {
        turn_lines(from, task.a_row, lines, depth, 1.0f, to, lines);
        continue;
      }
      for (size_t d = 0; d < depth; ++d) {
        const float* const line = from + d * task.a_step;
        for (size_t r = 0; r < lines; ++r) to[d * lines + r] = line[r * task.a_row];
      }
    }
  });
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
    const auto factor = V::splat(task.a + k * task.a_step);
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

/// Rows, a panel, and a part of the depth.
struct Block {
  size_t row;
  size_t rows;
  size_t column;
  size_t k;
  size_t depth;
  bool is_packed;  // whether the rows are
};

/// Lines of 64 bytes that a set of the first cache holds, and bytes after which sets repeat.
inline constexpr size_t kWays = 8;
inline constexpr size_t kSetsRepeat = 4096;

/// Whether the rows of a tile would drive each other out of the first cache.
template <size_t kRows>
bool wants_packed_rows(const ProductTask& task) noexcept {
  if (task.a_step != 1) return true;
  return kRows > kWays && task.rows > kWays && task.a_row * sizeof(float) % kSetsRepeat == 0;
}

template <typename V, size_t kRows>
void multiply_tile_of(const Tile& tile, size_t rows, size_t columns) noexcept {
  constexpr size_t kLanes = V::kLanes;
  using Narrow = typename NarrowOf<V>::Vector;
  if (columns == 2 * kLanes) {
    multiply_rows<V, kRows, Width<2, false>>(tile, rows);
  } else if (columns > kLanes) {
    multiply_rows<V, kRows, Width<2, true>>(tile, rows);
  } else if (columns > Narrow::kLanes) {
    multiply_rows<V, kRows, Width<1, true>>(tile, rows);
  } else {
    multiply_rows<Narrow, kRows, Width<1, true>>(tile, rows);
  }
}

template <typename V, size_t kRows>
void multiply_panel(const ProductTask& task, const Block& block) noexcept {
  constexpr size_t kPanel = 2 * V::kLanes;
  const size_t columns = smaller_of(kPanel, task.columns - block.column);
  Tile tile;
  tile.last = columns <= V::kLanes ? columns : columns - V::kLanes;
  tile.b = task.packed + block.column * task.depth + block.k * kPanel;
  tile.b_row = kPanel;
  tile.depth = block.depth;
  tile.a_row = block.is_packed ? 1 : task.a_row;
  tile.c_row = task.c_row;
  // Tiles share out what comes next: with few of them it would come too late.
  if (block.column + kPanel < task.columns) {
    tile.next = reinterpret_cast<const char*>(tile.b + kPanel * task.depth);
    tile.next_step = kPanel * sizeof(float) / parts_of(block.rows, kRows);
  } else {
    tile.next = reinterpret_cast<const char*>(tile.b);
    tile.next_step = 0;
  }
  size_t i = 0;
  for_even_tiles(block.rows, kRows, [&](size_t, size_t rows, size_t count) {
    for (; count != 0; --count, i += rows) {
      tile.a = block.is_packed ? task.scratch + i * block.depth
                               : task.a + (block.row + i) * task.a_row + block.k;
      tile.a_step = block.is_packed ? rows : 1;
      tile.c = task.c + (block.row + i) * task.c_row + block.column;
      // The first part begins with the bias, the others go on.
      const float* const bias = task.bias == nullptr ? nullptr : task.bias + block.column;
      tile.start = block.k == 0 ? bias : tile.c;
      tile.start_row = block.k == 0 ? 0 : task.c_row;
      multiply_tile_of<V, kRows>(tile, rows, columns);
      tile.next += tile.depth * tile.next_step;
    }
  });
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
  const bool is_packed = wants_packed_rows<kRows>(task);
  for_each_part(task.depth, kDepth, [&](size_t k, size_t depth) {
    for (size_t row = 0; row < task.rows; row += kPackedRows) {
      const size_t rows = smaller_of(kPackedRows, task.rows - row);
      if (is_packed) pack_rows<kRows>(task, row, rows, k, depth);
      for (size_t column = 0; column < task.columns; column += kPanel) {
        multiply_panel<V, kRows>(task, {row, rows, column, k, depth, is_packed});
      }
    }
  });
}

/// Packs a b whose rows lie as they are, in their order in memory.
template <typename V>
void pack_lines(const ColumnSource& source, float* packed) noexcept {
  constexpr size_t kPanel = 2 * V::kLanes;
  const auto alpha = V::splat(source.alpha);
  const size_t whole = source.columns - source.columns % kPanel;
  for (size_t k = 0; k < source.depth; ++k) {
    const float* const from = source.b + k * source.row;
    float* to = packed + k * kPanel;
    for (size_t first = 0; first < whole; first += kPanel, to += kPanel * source.depth) {
      V::store(to, V::times(V::load(from + first), alpha));
      V::store(to + V::kLanes, V::times(V::load(from + first + V::kLanes), alpha));
    }
    if (whole == source.columns) continue;
    for (size_t j = 0; j < kPanel; ++j) {
      to[j] = whole + j < source.columns ? from[whole + j] * source.alpha : 0.0f;
    }
  }
}

/// See `ColumnPacker`.
template <typename V>
void pack_columns(const ColumnSource& source, float* packed) noexcept {
  constexpr size_t kPanel = 2 * V::kLanes;
  if (source.step == 1) return pack_lines<V>(source, packed);
  const size_t depth = source.depth;
  for (size_t first = 0; first < source.columns; first += kPanel, packed += kPanel * depth) {
    const size_t count = smaller_of(kPanel, source.columns - first);
    const float* const from = source.b + first * source.step;
    for (size_t k = 0; k < depth && count < kPanel; ++k) {
      for (size_t j = count; j < kPanel; ++j) packed[k * kPanel + j] = 0.0f;
    }
    if (source.row == 1) {
      turn_lines(from, source.step, count, depth, source.alpha, packed, kPanel);
      continue;
    }
    for (size_t k = 0; k < depth; ++k) {
      const float* const line = from + k * source.row;
      for (size_t j = 0; j < count; ++j) {
        packed[k * kPanel + j] = line[j * source.step] * source.alpha;
      }
    }
  }
}

}  // namespace
}  // namespace marlo::kernel::matrix
