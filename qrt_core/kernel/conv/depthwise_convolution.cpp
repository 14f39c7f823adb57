#include "qrt_core/kernel/conv/depthwise_convolution.h"

#include <algorithm>

namespace marlo::kernel {

bool has_depthwise_window(const Conv2dParams& p, uint32_t size, uint32_t stride) {
  return p.kernel_x == size && p.kernel_y == size && p.stride_x == stride && p.stride_y == stride &&
         p.dilation_x == 1 && p.dilation_y == 1;
}

void run_over_blocks(const ConvTask& task, runtime::DeviceCPU& device, uint32_t block,
                     BlockedCore core) {
  const auto zeros =
      device.CreateF32FlexiableMainMemory({std::max(task.in_width, 1u), block}, nullptr);
  FillZero_Float(zeros);
  core(task, static_cast<const float*>(zeros->RawPointer()));
}

}  // namespace marlo::kernel
