#pragma once

#include "qrt_core/kernel/extension/matrix/matrix_product_cores.h"
#include "qrt_core/kernel/extension/matrix/packed_squares_internal.h"
#include "qrt_core/kernel/vectors_internal.h"

// The product for any vector: tiles of some rows and up to a panel of columns in registers, a panel
// of b in the first cache or the second, rows of a in the second (K. Goto, R. van de Geijn, "Anatomy
// of High-Performance Matrix Multiplication", ACM TOMS 34(3), 2008). Rows of a are read where they
// lie: a tile takes a number of each for a step of the depth, which costs no more from as many lines
// of the cache than from one. Only where those lines don't fit side by side are rows packed.

namespace marlo::kernel::matrix {
namespace {

/// Vectors of a panel, and how many sums a tile keeps in registers. A tile loads as many vectors as it
/// has rows and columns; processors that load one of 64 bytes in a cycle, but multiply two, want
/// twice as many products of them.
template <typename V>
struct Panel {
  static constexpr size_t kVectors = 2;
  static constexpr size_t kSums = V::kLanes == 8 ? 12 : 8;
};

#ifdef __AVX512F__
template <>
struct Panel<Avx512Vector> {
  static constexpr size_t kVectors = 4;
#ifdef QRT_SMALL_TILES
  static constexpr size_t kSums = 12;
#else
  static constexpr size_t kSums = 24;
#endif
};
#endif

template <typename V>
inline constexpr size_t kPanelColumns = Panel<V>::kVectors* V::kLanes;

/// Rows of a tile that is so many vectors wide. More than 12 save nothing.
template <typename V>
constexpr size_t tile_rows(size_t vectors) noexcept {
  const size_t rows = Panel<V>::kSums / vectors;
  return rows < 12 ? rows : 12;
}

/// A tile of c, up to a panel wide, and what it is computed from.
struct Tile {
  const float* a;  // rows `a_row` apart
  size_t a_row;
  const float* b;  // a panel
  size_t depth;
  const char* next;   // of what a turn of the loop fetches `next_lines` lines, and goes on
  size_t next_bytes;  // by so many bytes
  size_t next_lines;
  const float* start;  // what is added to: rows `start_row` apart; null for zeros
  size_t start_row;
  float* c;
  size_t c_row;
  size_t last;  // columns of the last vector
};

/// How many vectors a tile has, whether the last one is a part of a vector, and columns of its panel.
template <size_t number, bool part, size_t columns>
struct Width {
  static constexpr size_t kVectors = number;
  static constexpr bool kEndsInPart = part;
  static constexpr size_t kPanel = columns;
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

/// Steps of the depth in a turn of the loop.
inline constexpr size_t kSteps = 2;

/// Bytes of a line of the cache.
inline constexpr size_t kLine = 64;

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
  // Three rows share a pointer: their distances to it are forms of an address.
  constexpr size_t kGroups = (rows + 2) / 3;
  const size_t a_row = tile.a_row;
  const float* a[kGroups];
  unrolled<kGroups>(QRT_UNROLLED(g) { a[g] = tile.a + 3 * g * a_row; });
  const float* b = tile.b;
  const char* next = tile.next;
  const auto step = [&](size_t k) __attribute__((always_inline)) {
    typename V::Register columns[kVectors];
    unrolled<kVectors>(QRT_UNROLLED(v) { columns[v] = V::load(b + k * W::kPanel + v * kLanes); });
    unrolled<rows>(QRT_UNROLLED(r) {
      const auto factor = V::splat(a[r / 3] + r % 3 * a_row + k);
      unrolled<kVectors>(
          QRT_UNROLLED(v) { sums[r][v] = V::plus_product(sums[r][v], factor, columns[v]); });
    });
  };
  const auto go_on = [&](size_t steps) __attribute__((always_inline)) {
    unrolled<kGroups>(QRT_UNROLLED(g) { a[g] += steps; });
    b += steps * W::kPanel;
  };
  size_t depth = tile.depth;
  for (; depth >= kSteps; depth -= kSteps) {
    for (size_t line = 0; line < tile.next_lines; ++line) {
      _mm_prefetch(next + line * kLine, _MM_HINT_T1);
    }
    next += tile.next_bytes;
    unrolled<kSteps>(QRT_UNROLLED(k) { step(k); });
    go_on(kSteps);
  }
  for (; depth != 0; --depth, go_on(1)) step(0);
  unrolled<rows>(QRT_UNROLLED(r) {
    float* const c = tile.c + r * tile.c_row;
    unrolled<kWhole>(QRT_UNROLLED(v) { V::store(c + v * kLanes, sums[r][v]); });
    if constexpr (W::kEndsInPart) V::store_first(c + kWhole * kLanes, tile.last, sums[r][kWhole]);
  });
}

/// Packs rows of a part of the depth.
inline void pack_rows(const ProductTask& task, size_t row, size_t rows, size_t k,
                      size_t depth) noexcept {
  const float* const from = task.a + row * task.a_row + k * task.a_step;
  if (task.a_row == 1) {
    return turn_lines(from, task.a_step, depth, rows, 1.0f, task.scratch, kPackedRow);
  }
  for (size_t r = 0; r < rows; ++r) {
    const float* const line = from + r * task.a_row;
    float* const to = task.scratch + r * kPackedRow;
    for (size_t d = 0; d < depth; ++d) to[d] = line[d * task.a_step];
  }
}

/// One row: panels side by side hide how long a product takes, and are fetched from memory together. The weights are read once, in
/// their order; b lies [panel][depth], so that parts of the depth aren't needed for it.
template <typename V, size_t panels, size_t vectors>
void multiply_row(const ProductTask& task, size_t column) noexcept {
  constexpr size_t kLanes = V::kLanes;
  constexpr size_t kPanel = vectors * kLanes;
  typename V::Register sums[panels][vectors];
  const auto columns_at = [&](size_t at) { return smaller_of(kLanes, task.columns - at); };
  const auto at = [&](size_t p, size_t v) { return column + p * kPanel + v * kLanes; };
  unrolled<panels>(QRT_UNROLLED(p) {
    unrolled<vectors>(QRT_UNROLLED(v) {
      sums[p][v] = task.bias == nullptr ? V::zero()
                                        : V::load_first(task.bias + at(p, v), columns_at(at(p, v)));
    });
  });
  const float* b = task.packed + column * task.depth;
  for (size_t k = 0; k < task.depth; ++k, b += kPanel) {
    const auto factor = V::splat(task.a + k * task.a_step);
    unrolled<panels>(QRT_UNROLLED(p) {
      const float* const panel = b + p * kPanel * task.depth;
      unrolled<vectors>(QRT_UNROLLED(v) {
        sums[p][v] = V::plus_product(sums[p][v], factor, V::load(panel + v * kLanes));
      });
    });
  }
  unrolled<panels>(QRT_UNROLLED(p) {
    unrolled<vectors>(
        QRT_UNROLLED(v) { V::store_first(task.c + at(p, v), columns_at(at(p, v)), sums[p][v]); });
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
template <typename V>
bool wants_packed_rows(const ProductTask& task) noexcept {
  if (task.a_step != 1) return true;
  const size_t vectors = smaller_of(parts_of(task.columns, V::kLanes), Panel<V>::kVectors);
  return smaller_of(tile_rows<V>(vectors), task.rows) > kWays &&
         task.a_row * sizeof(float) % kSetsRepeat == 0;
}

template <typename V, typename W>
void multiply_rows(const Tile& tile, size_t rows) noexcept {
  with_static<tile_rows<V>(W::kVectors)>(
      rows, [&tile](auto count) { multiply_tile<V, count.value, W>(tile); });
}

/// @tparam vectors that the columns take
template <typename V, size_t vectors>
void multiply_tile_of(const Tile& tile, size_t rows, size_t columns) noexcept {
  constexpr size_t kPanel = vectors * V::kLanes;
  using Narrow = typename NarrowOf<V>::Vector;
  if (columns == kPanel) {
    multiply_rows<V, Width<vectors, false, kPanel>>(tile, rows);
  } else if (vectors > 1 || columns > Narrow::kLanes) {
    multiply_rows<V, Width<vectors, true, kPanel>>(tile, rows);
  } else {
    multiply_rows<Narrow, Width<1, true, kPanel>>(tile, rows);
  }
}

/// @tparam vectors of the panel
template <typename V, size_t vectors>
void multiply_panel(const ProductTask& task, const Block& block) noexcept {
  constexpr size_t kRows = tile_rows<V>(vectors);
  constexpr size_t kPanel = vectors * V::kLanes;
  const size_t columns = smaller_of(kPanel, task.columns - block.column);
  Tile tile;
  tile.last = columns - (vectors - 1) * V::kLanes;
  tile.b = task.packed + block.column * task.depth + block.k * kPanel;
  tile.depth = block.depth;
  tile.a_row = block.is_packed ? kPackedRow : task.a_row;
  tile.c_row = task.c_row;
  // Tiles share out what comes next: with few of them it would come too late.
  const bool is_last = block.column + kPanel >= task.columns && !task.goes_on;
  tile.next = reinterpret_cast<const char*>(tile.b + kPanel * task.depth);
  tile.next_bytes = kSteps * kPanel * sizeof(float) / parts_of(block.rows, kRows);
  tile.next_lines = is_last ? 0 : parts_of(tile.next_bytes, kLine);
  size_t i = 0;
  for_even_tiles(block.rows, kRows, [&](size_t, size_t rows, size_t count) {
    for (; count != 0; --count, i += rows) {
      tile.a = block.is_packed ? task.scratch + i * kPackedRow
                               : task.a + (block.row + i) * task.a_row + block.k;
      tile.c = task.c + (block.row + i) * task.c_row + block.column;
      // The first part begins with the bias, the others go on.
      const float* const bias = task.bias == nullptr ? nullptr : task.bias + block.column;
      tile.start = block.k == 0 ? bias : tile.c;
      tile.start_row = block.k == 0 ? 0 : task.c_row;
      multiply_tile_of<V, vectors>(tile, rows, columns);
      tile.next += tile.depth / kSteps * tile.next_bytes;
    }
  });
}

/// Calls `run(column, Count<vectors>())` for each panel: the last one takes as many vectors as are
/// left.
template <typename V, typename Run>
void for_each_panel(size_t columns, Run run) noexcept {
  for (size_t column = 0; column < columns; column += kPanelColumns<V>) {
    with_static<Panel<V>::kVectors>(parts_of(columns - column, V::kLanes),
                                    [&](auto vectors) { run(column, vectors); });
  }
}

template <typename V>
void multiply_one_row(const ProductTask& task) noexcept {
  constexpr size_t kPanels = 4;
  size_t column = 0;
  for (; column + kPanels * kPanelColumns<V> <= task.columns;
       column += kPanels * kPanelColumns<V>) {
    multiply_row<V, kPanels, Panel<V>::kVectors>(task, column);
  }
  for_each_panel<V>(task.columns - column, [&](size_t rest, auto vectors) {
    multiply_row<V, 1, vectors.value>(task, column + rest);
  });
}

template <typename V>
void multiply(const ProductTask& task) noexcept {
  if (task.rows == 1) return multiply_one_row<V>(task);
  const bool is_packed = wants_packed_rows<V>(task);
  for_each_part(task.depth, kDepth, [&](size_t k, size_t depth) {
    for (size_t row = 0; row < task.rows; row += kPackedRows) {
      const size_t rows = smaller_of(kPackedRows, task.rows - row);
      if (is_packed) pack_rows(task, row, rows, k, depth);
      for_each_panel<V>(task.columns, [&](size_t column, auto vectors) {
        multiply_panel<V, vectors.value>(task, {row, rows, column, k, depth, is_packed});
      });
    }
  });
}

/// Packs a b whose rows lie as they are, in their order in memory.
template <typename V>
void pack_lines(const ColumnSource& source, float* packed) noexcept {
  const auto alpha = V::splat(source.alpha);
  for (size_t k = 0; k < source.depth; ++k) {
    const float* const from = source.b + k * source.row;
    for_each_panel<V>(source.columns, [&](size_t column, auto vectors) {
      float* const to = packed + column * source.depth + k * vectors.value * V::kLanes;
      unrolled<vectors.value>(QRT_UNROLLED(v) {
        const size_t at = column + v * V::kLanes;
        V::store(to + v * V::kLanes,
                 V::times(V::load_first(from + at, source.columns - at), alpha));
      });
    });
  }
}

/// See `ColumnPacker`.
template <typename V>
void pack_columns(const ColumnSource& source, float* packed) noexcept {
  if (source.step == 1) return pack_lines<V>(source, packed);
  const size_t depth = source.depth;
  for_each_panel<V>(source.columns, [&](size_t column, auto vectors) {
    constexpr size_t kPanel = vectors.value * V::kLanes;
    const size_t count = smaller_of(kPanel, source.columns - column);
    const float* const from = source.b + column * source.step;
    float* const to = packed + column * depth;
    for (size_t k = 0; k < depth && count < kPanel; ++k) {
      for (size_t j = count; j < kPanel; ++j) to[k * kPanel + j] = 0.0f;
    }
    if (source.row == 1) {
      return turn_lines(from, source.step, count, depth, source.alpha, to, kPanel);
    }
    for (size_t k = 0; k < depth; ++k) {
      const float* const line = from + k * source.row;
      for (size_t j = 0; j < count; ++j) to[k * kPanel + j] = line[j * source.step] * source.alpha;
    }
  });
}

}  // namespace
}  // namespace marlo::kernel::matrix
