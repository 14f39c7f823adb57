#include "qrt_core/kernel/conv/depthwise/depthwise_cores.h"
#include "qrt_core/kernel/conv/depthwise/depthwise_internal.h"
#include "qrt_core/kernel/conv/windows/window_planes_internal.h"

namespace marlo::kernel::conv {
namespace {

// Each channel is a convolution from one plane to one.
template <typename Pixels>
void each_plane(const ConvTask& task) noexcept {
  ConvTask plane = task;
  plane.in_blocks = plane.out_blocks = 1;
  for (uint32_t channel = 0; channel < task.params.groups; ++channel) {
    WindowPlanes<SseVector, Pixels>(plane).run();
    plane.input += size_t{task.in_height} * task.in_width;
    plane.output += size_t{task.out_height} * task.out_width;
    plane.weight += size_t{task.params.kernel_y} * task.params.kernel_x;
  }
}

}  // namespace

void depthwise_3x3_chw_sse(const ConvTask& task) noexcept {
  each_plane<EachPixel<SseVector>>(task);
}

void depthwise_3x3_stride2_chw_sse(const ConvTask& task) noexcept { each_plane<EvenPixels>(task); }

void depthwise_3x3_c4_sse(const ConvTask& task, const float* zeros) noexcept {
  DepthwiseTiles<SseVector, WholePixels, 3, 1, 6>(task, zeros, whole_area(task)).run();
}

void depthwise_3x3_stride2_c4_sse(const ConvTask& task, const float* zeros) noexcept {
  DepthwiseTiles<SseVector, WholePixels, 3, 2, 6>(task, zeros, whole_area(task)).run();
}

}  // namespace marlo::kernel::conv
