#include "qrt_core/kernel/extension/conv/first_window.h"

#include <algorithm>

namespace marlo::kernel::conv {

void run_first_window(const ConvTask& task, runtime::DeviceCPU& device, FirstWindowCore core) {
  constexpr uint64_t kMost = UINT32_MAX;  // a tensor of so many floats is refused
  const Conv2dParams& p = task.params;
  const uint64_t line = uint64_t{task.in_width} + p.padding_l + p.padding_r;
  const uint64_t lines = uint64_t{task.in_blocks} * p.kernel_y;
  const uint64_t floats = lines <= kMost / line ? lines * line : kMost;
  const auto scratch =
      device.CreateF32FlexiableMainMemory({static_cast<uint32_t>(floats)}, nullptr);
  core(task, static_cast<float*>(scratch->RawPointer()));
}

}  // namespace marlo::kernel::conv
