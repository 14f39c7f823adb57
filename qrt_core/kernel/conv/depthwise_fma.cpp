#ifndef __FMA__
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/conv/depthwise_cores.h"
#include "qrt_core/kernel/conv/depthwise_internal.h"

namespace marlo::kernel::conv {
namespace {

template <size_t kStride>
void pairs_and_ends(const ConvTask& task) noexcept {
  using Pairs = DepthwiseTiles<FusedVector, PairedPixels<FusedVector, kStride>, 3, 6>;
  using Singles = DepthwiseTiles<SseVector, WholePixels<SseVector>, 3, 4>;
  const size_t rows = task.out_height / 2 * 2;
  const size_t columns = task.out_width / 2 * 2;
  Pairs(task, {0, rows, 0, columns}).run();
  Singles(task, {0, rows, columns, task.out_width - columns}).run();
  Singles(task, {rows, task.out_height - rows, 0, task.out_width}).run();
}

}  // namespace

void depthwise_3x3_c8_fma(const ConvTask& task) noexcept {
  DepthwiseTiles<FusedVector, WholePixels<FusedVector>, 3, 6>(task, whole_area(task)).run();
}

void depthwise_3x3_c4_fma(const ConvTask& task) noexcept { pairs_and_ends<1>(task); }

void depthwise_3x3_stride2_c4_fma(const ConvTask& task) noexcept { pairs_and_ends<2>(task); }

}  // namespace marlo::kernel::conv
