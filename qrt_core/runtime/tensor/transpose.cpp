#include "qrt_core/runtime/tensor/transpose.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace marlo::runtime {
namespace {

constexpr size_t kTile = 16;

// Elements of a size that the compiler knows, or of any size where that is 0.
template <size_t known_size>
void copy_element(const char* from, size_t size, char* to) {
  std::memcpy(to, from, known_size != 0 ? known_size : size);
}

template <size_t known_size>
void copy_plane(const char* from, const TransposeAxis& rows, const TransposeAxis& columns,
                size_t element_size, char* to) {
  for (size_t first_row = 0; first_row < rows.size; first_row += kTile) {
    const size_t last_row = std::min(first_row + kTile, rows.size);
    for (size_t first = 0; first < columns.size; first += kTile) {
      const size_t last = std::min(first + kTile, columns.size);
      for (size_t row = first_row; row < last_row; ++row) {
        const char* const source = from + row * rows.source_step;
        char* const target = to + row * rows.target_step;
        for (size_t column = first; column < last; ++column) {
          copy_element<known_size>(source + column * columns.source_step, element_size,
                                   target + column * columns.target_step);
        }
      }
    }
  }
}

// Four elements of four bytes, in the compiler's own vectors.
using Four = uint32_t __attribute__((vector_size(16)));
constexpr size_t kSquare = 4;
constexpr size_t kWord = sizeof(uint32_t);

// Turns a square of four by four elements in registers.
void turn_square(const char* from, size_t source_step, char* to, size_t target_step) {
  Four rows[kSquare];
  for (size_t i = 0; i < kSquare; ++i) std::memcpy(&rows[i], from + i * source_step, sizeof(Four));
  const Four low01 = __builtin_shufflevector(rows[0], rows[1], 0, 4, 1, 5);
  const Four low23 = __builtin_shufflevector(rows[2], rows[3], 0, 4, 1, 5);
  const Four high01 = __builtin_shufflevector(rows[0], rows[1], 2, 6, 3, 7);
  const Four high23 = __builtin_shufflevector(rows[2], rows[3], 2, 6, 3, 7);
  const Four turned[kSquare] = {__builtin_shufflevector(low01, low23, 0, 1, 4, 5),
                                __builtin_shufflevector(low01, low23, 2, 3, 6, 7),
                                __builtin_shufflevector(high01, high23, 0, 1, 4, 5),
                                __builtin_shufflevector(high01, high23, 2, 3, 6, 7)};
  for (size_t i = 0; i < kSquare; ++i) std::memcpy(to + i * target_step, &turned[i], sizeof(Four));
}

// Elements of four bytes whose rows are contiguous in the source. Tiles are eight lines wide on the
// side where lines lie a multiple of 4 KiB apart: these share the places of the first cache, and it has
// eight of each.
void copy_plane_of_words(const char* from, const TransposeAxis& rows, const TransposeAxis& columns,
                         size_t element_size, char* to) {
  constexpr size_t kPage = 4096;
  const bool is_target_apart = rows.target_step % kPage == 0;
  const size_t tile_rows = is_target_apart ? kTile / 2 : kTile;
  const size_t tile_columns = is_target_apart ? kTile : kTile / 2;
  const size_t whole_rows = rows.source_step == kWord ? rows.size / kSquare * kSquare : 0;
  const size_t whole_columns = columns.size / kSquare * kSquare;
  for (size_t first_row = 0; first_row < whole_rows; first_row += tile_rows) {
    const size_t last_row = std::min(first_row + tile_rows, whole_rows);
    for (size_t first = 0; first < whole_columns; first += tile_columns) {
      const size_t last = std::min(first + tile_columns, whole_columns);
      for (size_t column = first; column < last; column += kSquare) {
        for (size_t row = first_row; row < last_row; row += kSquare) {
          turn_square(from + row * kWord + column * columns.source_step, columns.source_step,
                      to + row * rows.target_step + column * kWord, rows.target_step);
        }
      }
    }
  }
  const auto copy_rest = [&](size_t first_row, size_t first_column, size_t last_row) {
    const TransposeAxis some_rows = {last_row - first_row, rows.source_step, rows.target_step};
    const TransposeAxis some_columns = {columns.size - first_column, columns.source_step,
                                        columns.target_step};
    copy_plane<kWord>(from + first_row * rows.source_step + first_column * columns.source_step,
                      some_rows, some_columns, element_size,
                      to + first_row * rows.target_step + first_column * columns.target_step);
  };
  copy_rest(0, whole_columns, whole_rows);
  copy_rest(whole_rows, 0, rows.size);
}

using CopyPlane = void (*)(const char* from, const TransposeAxis& rows,
                           const TransposeAxis& columns, size_t element_size, char* to);

CopyPlane plane_copy_for(size_t element_size) {
  switch (element_size) {
    case 1:
      return copy_plane<1>;
    case 2:
      return copy_plane<2>;
    case kWord:
      return copy_plane_of_words;
    default:
      return copy_plane<0>;
  }
}

// Calls `visit(source offset, target offset)` for each index of the axes.
template <typename Visit>
void for_each_index(const std::vector<TransposeAxis>& axes, Visit visit) {
  std::vector<size_t> index(axes.size(), 0);
  size_t source = 0;
  size_t target = 0;
  while (true) {
    visit(source, target);
    size_t k = axes.size();
    for (; k > 0; --k) {
      const TransposeAxis& axis = axes[k - 1];
      source += axis.source_step;
      target += axis.target_step;
      if (++index[k - 1] < axis.size) break;
      source -= axis.size * axis.source_step;
      target -= axis.size * axis.target_step;
      index[k - 1] = 0;
    }
    if (k == 0) return;
  }
}

TransposeAxis taken(std::vector<TransposeAxis>& axes, size_t place) {
  const TransposeAxis axis = axes[place];
  axes.erase(axes.begin() + static_cast<std::ptrdiff_t>(place));
  return axis;
}

}  // namespace

void transpose(const void* source, std::vector<TransposeAxis> axes, size_t element_size,
               void* target) {
  const bool is_empty = std::any_of(axes.begin(), axes.end(),
                                    [](const TransposeAxis& axis) { return axis.size == 0; });
  if (is_empty) return;
  // Axes of one index move nothing.
  axes.erase(std::remove_if(axes.begin(), axes.end(),
                            [](const TransposeAxis& axis) { return axis.size == 1; }),
             axes.end());
  const auto* const from = static_cast<const char*>(source);
  auto* const to = static_cast<char*>(target);
  if (axes.empty()) {
    std::memcpy(to, from, element_size);
    return;
  }
  const TransposeAxis columns = taken(axes, axes.size() - 1);
  if (columns.source_step == element_size) {
    const size_t bytes = columns.size * element_size;
    for_each_index(axes,
                   [=](size_t here, size_t there) { std::memcpy(to + there, from + here, bytes); });
    return;
  }
  const auto contiguous = std::min_element(
      axes.begin(), axes.end(),
      [](const TransposeAxis& a, const TransposeAxis& b) { return a.source_step < b.source_step; });
  const TransposeAxis rows = taken(axes, static_cast<size_t>(contiguous - axes.begin()));
  const CopyPlane copy = plane_copy_for(element_size);
  for_each_index(axes, [&](size_t here, size_t there) {
    copy(from + here, rows, columns, element_size, to + there);
  });
}

}  // namespace marlo::runtime
