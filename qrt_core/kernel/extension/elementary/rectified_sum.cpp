#include "qrt_core/kernel/extension/elementary/rectified_sum_cores.h"

namespace marlo::kernel::elementwise {

void add_relu_scalar(const float* a, const float* b, float* output, size_t count) noexcept {
  for (size_t i = 0; i < count; ++i) {
    const float sum = a[i] + b[i];
    output[i] = sum > 0.0f ? sum : 0.0f;
  }
}

}  // namespace marlo::kernel::elementwise
