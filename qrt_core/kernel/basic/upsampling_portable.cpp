#include "qrt_core/kernel/basic/upsampling_loops_internal.h"

namespace marlo::kernel::upsampling {

void bilinear_portable(const Task& task) noexcept {
  bilinear<1>(task, blend_floats(task),
              [](const float* top, const float* bottom, const Taps& taps, float* out,
                 size_t count) { blend_tail(top, bottom, taps, out, 0, count); });
}

void nearest_portable(const Task& task) noexcept {
  nearest<1>(task, [](const float* from, float* to) { *to = *from; });
}

}  // namespace marlo::kernel::upsampling
