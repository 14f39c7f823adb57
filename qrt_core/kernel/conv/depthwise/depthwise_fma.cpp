#ifndef __FMA__
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/conv/depthwise/depthwise_cores.h"
#include "qrt_core/kernel/conv/depthwise/depthwise_internal.h"

namespace marlo::kernel::conv {
namespace {

template <size_t kStride>
void pairs_and_ends(const ConvTask& task, const float* zeros) noexcept {
  using Pairs = DepthwiseTiles<FusedVector, PairedPixels, 3, kStride, 6>;
  using Singles = DepthwiseTiles<SseVector, WholePixels, 3, kStride, 4>;
  const size_t rows = task.out_height / 2 * 2;
  const size_t columns = task.out_width / 2 * 2;
  Pairs(task, zeros, {0, rows, 0, columns}).run();
  Singles(task, zeros, {0, rows, columns, task.out_width - columns}).run();
  Singles(task, zeros, {rows, task.out_height - rows, 0, task.out_width}).run();
}

}  // namespace

void depthwise_3x3_c8_fma(const ConvTask& task, const float* zeros) noexcept {
  DepthwiseTiles<FusedVector, WholePixels, 3, 1, 8>(task, zeros, whole_area(task)).run();
}

void depthwise_3x3_c4_fma(const ConvTask& task, const float* zeros) noexcept {
  pairs_and_ends<1>(task, zeros);
}

void depthwise_3x3_stride2_c4_fma(const ConvTask& task, const float* zeros) noexcept {
  pairs_and_ends<2>(task, zeros);
}

}  // namespace marlo::kernel::conv
