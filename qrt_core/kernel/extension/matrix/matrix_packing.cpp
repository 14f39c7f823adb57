#include <cstring>

#include "qrt_core/kernel/extension/matrix/matrix_product_cores.h"
#include "qrt_core/kernel/extension/matrix/packed_squares_internal.h"

namespace marlo::kernel::matrix {

void pack_columns(const float* b, size_t row, size_t step, size_t depth, size_t columns,
                  size_t panel, float* packed) noexcept {
  for (size_t first = 0; first < columns; first += panel, packed += panel * depth) {
    const size_t count = columns - first < panel ? columns - first : panel;
    const float* from = b + first * step;
    if (step == 1) {
      for (size_t k = 0; k < depth; ++k) {
        float* const to = packed + k * panel;
        std::memcpy(to, from + k * row, count * sizeof(float));
        for (size_t j = count; j < panel; ++j) to[j] = 0.0f;
      }
      continue;
    }
    for (size_t j = count; j < panel; ++j) {
      for (size_t k = 0; k < depth; ++k) packed[k * panel + j] = 0.0f;
    }
    if (row == 1) {
      turn_lines(from, step, count, depth, 1.0f, packed, panel);
      continue;
    }
    for (size_t j = 0; j < count; ++j) {
      for (size_t k = 0; k < depth; ++k) packed[k * panel + j] = from[j * step + k * row];
    }
  }
}

}  // namespace marlo::kernel::matrix
