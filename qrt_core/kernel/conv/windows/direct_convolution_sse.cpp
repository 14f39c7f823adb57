#include "qrt_core/kernel/conv/windows/direct_convolution_cores.h"
#include "qrt_core/kernel/conv/windows/window_planes_internal.h"
#include "qrt_core/kernel/conv/windows/window_tiles_internal.h"

namespace marlo::kernel::conv {

void window_chw_sse(const ConvTask& task) noexcept {
  WindowPlanes<SseVector, EachPixel<SseVector>>(task).run();
}

void window_stride2_chw_sse(const ConvTask& task) noexcept {
  WindowPlanes<SseVector, EvenPixels>(task).run();
}

void window_c4_sse(const ConvTask& task) noexcept { WindowTiles<SseVector, 4, 4, 4>(task).run(); }

void window_c4_depth_sse(const ConvTask& task) noexcept {
  WindowTiles<SseVector, 4, 4, 4, Sweep::depth>(task).run();
}

void window_c8_sse(const ConvTask& task) noexcept { WindowTiles<SseVector, 8, 8, 2>(task).run(); }

void window_chw_to_c4_sse(const ConvTask& task) noexcept {
  WindowTiles<SseVector, 1, 4, 2, Sweep::depth, true>(task).run();
}

}  // namespace marlo::kernel::conv
