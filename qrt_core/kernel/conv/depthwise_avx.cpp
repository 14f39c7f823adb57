#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include "qrt_core/kernel/conv/depthwise_cores.h"
#include "qrt_core/kernel/conv/depthwise_internal.h"

namespace marlo::kernel::conv {

void depthwise_3x3_c8_avx(const ConvTask& task) noexcept {
  DepthwiseTiles<AvxVector, WholePixels<AvxVector>, 3, 6>(task, whole_area(task)).run();
}

void depthwise_5x5_c8_avx(const ConvTask& task) noexcept {
  DepthwiseTiles<AvxVector, WholePixels<AvxVector>, 5, 8>(task, whole_area(task)).run();
}

}  // namespace marlo::kernel::conv
