#include "qrt_core/kernel/extension/matrix/matrix_product_cores.h"

namespace marlo::kernel::matrix {

void pack_columns(const float* b, size_t row, size_t step, size_t depth, size_t columns,
                  size_t panel, float* packed) noexcept {
  for (size_t first = 0; first < columns; first += panel, packed += panel * depth) {
    const size_t count = columns - first < panel ? columns - first : panel;
    const float* from = b + first * step;
    if (step == 1) {
      for (size_t k = 0; k < depth; ++k) {
        float* const to = packed + k * panel;
        for (size_t j = 0; j < count; ++j) to[j] = from[k * row + j];
        for (size_t j = count; j < panel; ++j) to[j] = 0.0f;
      }
      continue;
    }
    for (size_t j = 0; j < panel; ++j) {
      for (size_t k = 0; k < depth; ++k) {
        packed[k * panel + j] = j < count ? from[j * step + k * row] : 0.0f;
      }
    }
  }
}

}  // namespace marlo::kernel::matrix
