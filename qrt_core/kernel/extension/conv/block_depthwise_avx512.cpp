#ifndef __AVX512F__
#error "this file holds AVX-512 code and must be compiled with -mavx512f"
#endif

#include "qrt_core/kernel/conv/depthwise/depthwise_internal.h"
#include "qrt_core/kernel/extension/conv/block_depthwise_cores.h"
#include "qrt_core/kernel/extension/conv/epilogue_internal.h"

namespace marlo::kernel::conv {
namespace {

// Pixels by themselves, eight side by side.
template <size_t kSize, size_t kStride>
void run_singles(const ConvTask& task, const float* zeros, const DepthwiseArea& area) noexcept {
  DepthwiseTiles<FusedVector, WholePixels, kSize, kStride, 8, Ending>(task, zeros, area).run();
}

// Two pixels in a vector, every second of which is loaded over the end of a cache line: a window of three columns doesn't
// pay for that. An odd last column has no neighbour to share one with, and by itself would wait for each of its sums, so
// the last seven are taken together.
template <size_t kSize>
void run_pairs(const ConvTask& task, const float* zeros) noexcept {
  using Pairs = DepthwiseTiles<Avx512Vector, PairedPixels, kSize, 1, 7, Ending>;
  const size_t width = task.out_width;
  const size_t rest = width % 2 == 0 ? 0 : smaller_of(width, 7);
  if (width != rest) Pairs(task, zeros, {0, task.out_height, 0, width - rest}).run();
  if (rest != 0) {
    run_singles<kSize, 1>(task, zeros, {0, task.out_height, width - rest, rest});
  }
}

// At stride 2 the pixels of a pair don't stand side by side, and loading halves costs what pairs save.
template <size_t kSize>
void run_stride2(const ConvTask& task, const float* zeros) noexcept {
  run_singles<kSize, 2>(task, zeros, whole_area(task));
}

}  // namespace

void block_depthwise_3x3_avx512(const ConvTask& task, const float* zeros) noexcept {
  run_singles<3, 1>(task, zeros, whole_area(task));
}

void block_depthwise_3x3_stride2_avx512(const ConvTask& task, const float* zeros) noexcept {
  run_stride2<3>(task, zeros);
}

void block_depthwise_5x5_avx512(const ConvTask& task, const float* zeros) noexcept {
  run_pairs<5>(task, zeros);
}

void block_depthwise_5x5_stride2_avx512(const ConvTask& task, const float* zeros) noexcept {
  run_stride2<5>(task, zeros);
}

void block_depthwise_7x7_avx512(const ConvTask& task, const float* zeros) noexcept {
  run_pairs<7>(task, zeros);
}

}  // namespace marlo::kernel::conv
