#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include "qrt_core/kernel/conv/depthwise/depthwise_cores.h"
#include "qrt_core/kernel/conv/depthwise/depthwise_internal.h"

namespace marlo::kernel::conv {

void depthwise_3x3_stride2_c8_avx(const ConvTask& task, const float* zeros) noexcept {
  DepthwiseTiles<AvxVector, WholePixels, 3, 2, 8>(task, zeros, whole_area(task)).run();
}

void depthwise_5x5_c8_avx(const ConvTask& task, const float* zeros) noexcept {
  DepthwiseTiles<AvxVector, WholePixels, 5, 1, 8>(task, zeros, whole_area(task)).run();
}

void depthwise_5x5_stride2_c8_avx(const ConvTask& task, const float* zeros) noexcept {
  DepthwiseTiles<AvxVector, WholePixels, 5, 2, 8>(task, zeros, whole_area(task)).run();
}

}  // namespace marlo::kernel::conv
