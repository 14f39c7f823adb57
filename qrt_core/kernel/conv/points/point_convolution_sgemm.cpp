#include "qrt_core/kernel/conv/points/point_convolution_cores.h"
#include "qrt_core/kernel/layout/fill_cores.h"
#include "qrt_core/kernel/matrix/sgemm.h"

namespace marlo::kernel::conv {

void point_chw_sgemm(const ConvTask& task) noexcept {
  const size_t pixels = static_cast<size_t>(task.out_height) * task.out_width;
  Sgemm(static_cast<int>(task.out_blocks), static_cast<int>(task.in_blocks),
        static_cast<int>(pixels), 1.0f, task.weight, task.input, 0.0f, task.output);
  if (task.bias == nullptr) return;
  for (size_t plane = 0; plane < task.out_blocks; ++plane) {
    float pattern[fill::kPatternFloats];
    for (float& value : pattern) value = task.bias[plane];
    fill::add_portable(task.output + plane * pixels, pixels, pattern);
  }
}

}  // namespace marlo::kernel::conv
