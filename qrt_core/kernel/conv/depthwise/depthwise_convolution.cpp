#include "qrt_core/kernel/conv/depthwise/depthwise_convolution.h"

#include <algorithm>

namespace marlo::kernel {

void run_over_blocks(const ConvTask& task, runtime::DeviceCPU& device, uint32_t block,
                     BlockedCore core) {
  const auto zeros =
      device.CreateF32FlexiableMainMemory({std::max(task.in_width, 1u), block}, nullptr);
  FillZero_Float(zeros);
  core(task, static_cast<const float*>(zeros->RawPointer()));
}

}  // namespace marlo::kernel
