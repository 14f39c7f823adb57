#ifndef __FMA__
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/conv/windows/direct_convolution_cores.h"
#include "qrt_core/kernel/conv/windows/window_dots_internal.h"
#include "qrt_core/kernel/conv/windows/window_tiles_internal.h"

namespace marlo::kernel::conv {
namespace {

size_t taps_of(const ConvTask& task) noexcept {
  return size_t{task.params.kernel_y} * task.params.kernel_x;
}

}  // namespace

void window_c8_fma(const ConvTask& task) noexcept { WindowTiles<FusedVector, 8, 8, 2>(task).run(); }

void window_chw_to_c4_fma(const ConvTask& task) noexcept {
  constexpr size_t kBlock = 4;
  ConvTask pairs = task;
  pairs.out_blocks = task.out_blocks / 2 * 2;
  WindowTiles<FusedVector, 1, kBlock, 2, Sweep::depth, true>(pairs).run();
  if (pairs.out_blocks == task.out_blocks) return;
  // An odd last block has no neighbour to share a vector with.
  ConvTask last = task;
  last.out_blocks = 1;
  last.weight += pairs.out_blocks * taps_of(task) * task.in_blocks * kBlock;
  last.output += size_t{pairs.out_blocks} * task.out_height * task.out_width * kBlock;
  if (task.bias != nullptr) last.bias += size_t{pairs.out_blocks} * kBlock;
  WindowTiles<FusedHalf, 1, kBlock, 1, Sweep::depth, true>(last).run();
}

void window_c4_fma(const ConvTask& task) noexcept {
  constexpr size_t kBlock = 4;
  const size_t block_weights = taps_of(task) * task.in_blocks * kBlock * kBlock;
  const WindowDots<FusedVector, kBlock, kBlock, 3, IntoBlocksOf4> dots(task, task.out_height,
                                                                       task.out_width);
  for (size_t block = 0; block < task.out_blocks; ++block) {
    dots.run(block * kBlock, task.weight + block * block_weights, kBlock, kBlock * kBlock);
  }
}

void window_c4_to_chw_fma(const ConvTask& task) noexcept {
  constexpr size_t kBlock = 4;
  const size_t out_step = taps_of(task) * task.in_blocks * kBlock;
  if (task.out_blocks == 3) {
    WindowDots<FusedVector, kBlock, 3, 4, PairsIntoPlanes>(task, task.out_height, task.out_width)
        .run(0, task.weight, out_step, kBlock);
    return;
  }
  // With groups there are fewer channels.
  const WindowDots<FusedVector, kBlock, 1, 8, PairsIntoPlanes> dots(task, task.out_height,
                                                                    task.out_width);
  for (size_t channel = 0; channel < task.out_blocks; ++channel) {
    dots.run(channel, task.weight + channel * out_step, out_step, kBlock);
  }
}

}  // namespace marlo::kernel::conv
