#include "qrt_core/kernel/basic/upsampling_internal.h"

namespace marlo::kernel::upsampling {

void bilinear_chw_sse(const Task& task) noexcept { bilinear_floats<SseVector>(task); }
void bilinear_c4_sse(const Task& task) noexcept { bilinear_pixels<SseVector>(task); }
void nearest_c4_sse(const Task& task) noexcept { nearest_pixels<SseVector>(task); }

}  // namespace marlo::kernel::upsampling
