#ifndef __AVX512F__
#error "this file holds AVX-512 code and must be compiled with -mavx512f"
#endif

#include "qrt_core/kernel/conv/depthwise/depthwise_internal.h"
#include "qrt_core/kernel/extension/conv/block_depthwise_cores.h"
#include "qrt_core/kernel/extension/conv/epilogue_internal.h"

namespace marlo::kernel::conv {
namespace {

// An odd last column has no neighbour to share a vector with.
template <size_t kSize, size_t kStride>
void run(const ConvTask& task, const float* zeros) noexcept {
  using Pairs = DepthwiseTiles<Avx512Vector, PairedPixels, kSize, kStride, 7, Ending>;
  using Singles = DepthwiseTiles<FusedVector, WholePixels, kSize, kStride, 1, Ending>;
  const size_t columns = task.out_width / 2 * 2;
  Pairs(task, zeros, {0, task.out_height, 0, columns}).run();
  Singles(task, zeros, {0, task.out_height, columns, task.out_width - columns}).run();
}

}  // namespace

void block_depthwise_3x3_avx512(const ConvTask& task, const float* zeros) noexcept {
  run<3, 1>(task, zeros);
}

void block_depthwise_3x3_stride2_avx512(const ConvTask& task, const float* zeros) noexcept {
  run<3, 2>(task, zeros);
}

void block_depthwise_5x5_avx512(const ConvTask& task, const float* zeros) noexcept {
  run<5, 1>(task, zeros);
}

void block_depthwise_5x5_stride2_avx512(const ConvTask& task, const float* zeros) noexcept {
  run<5, 2>(task, zeros);
}

void block_depthwise_7x7_avx512(const ConvTask& task, const float* zeros) noexcept {
  run<7, 1>(task, zeros);
}

}  // namespace marlo::kernel::conv
