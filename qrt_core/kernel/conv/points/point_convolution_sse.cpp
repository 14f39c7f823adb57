#include "qrt_core/kernel/conv/points/point_convolution_cores.h"
#include "qrt_core/kernel/conv/points/point_products_internal.h"

namespace marlo::kernel::conv {

void point_chw_sse(const ConvTask& task) noexcept {
  run_planes<SseVector, EachPixel<SseVector>>(task);
}

void point_c4_m1_sse(const ConvTask& task) noexcept { run_blocked<SseVector, 4, 1, 2>(task); }

void point_c4_m2_sse(const ConvTask& task) noexcept { run_blocked<SseVector, 4, 1, 3>(task); }

void point_c8_sse(const ConvTask& task) noexcept { run_blocked<SseVector, 8, 1, 2>(task); }

void point_stride2_chw_sse(const ConvTask& task) noexcept {
  run_planes<SseVector, EvenPixels>(task);
}

void point_stride2_c4_sse(const ConvTask& task) noexcept { run_blocked<SseVector, 4, 2, 3>(task); }

void point_stride2_c8_sse(const ConvTask& task) noexcept { run_blocked<SseVector, 8, 2, 2>(task); }

}  // namespace marlo::kernel::conv
