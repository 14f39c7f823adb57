#ifndef __FMA__
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/extension/conv/block_winograd_internal.h"

namespace marlo::kernel::conv {
namespace {

template <typename F>
void run(const ConvTask& task, float* scratch, size_t tiles) noexcept {
  Winograd<F, FusedVector>(task, matrix::kProductFma, scratch, tiles).run();
}

}  // namespace

void winograd_4x4_fma(const ConvTask& task, float* scratch, size_t tiles) noexcept {
  run<Filtering4>(task, scratch, tiles);
}

void winograd_6x6_fma(const ConvTask& task, float* scratch, size_t tiles) noexcept {
  run<Filtering6>(task, scratch, tiles);
}

}  // namespace marlo::kernel::conv
