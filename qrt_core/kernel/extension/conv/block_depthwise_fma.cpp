#ifndef __FMA__
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/conv/depthwise/depthwise_internal.h"
#include "qrt_core/kernel/extension/conv/block_depthwise_cores.h"
#include "qrt_core/kernel/extension/conv/epilogue_internal.h"

namespace marlo::kernel::conv {
namespace {

template <size_t kSize, size_t kStride>
void run(const ConvTask& task, const float* zeros) noexcept {
  DepthwiseTiles<FusedVector, WholePixels, kSize, kStride, 8, Ending>(task, zeros, whole_area(task))
      .run();
}

}  // namespace

void block_depthwise_3x3_fma(const ConvTask& task, const float* zeros) noexcept {
  run<3, 1>(task, zeros);
}

void block_depthwise_3x3_stride2_fma(const ConvTask& task, const float* zeros) noexcept {
  run<3, 2>(task, zeros);
}

void block_depthwise_5x5_fma(const ConvTask& task, const float* zeros) noexcept {
  run<5, 1>(task, zeros);
}

void block_depthwise_5x5_stride2_fma(const ConvTask& task, const float* zeros) noexcept {
  run<5, 2>(task, zeros);
}

void block_depthwise_7x7_fma(const ConvTask& task, const float* zeros) noexcept {
  run<7, 1>(task, zeros);
}

}  // namespace marlo::kernel::conv
