#ifndef __AVX512F__
#error "this file holds AVX-512 code and must be compiled with -mavx512f"
#endif

#include "qrt_core/kernel/extension/conv/block_winograd_internal.h"

namespace marlo::kernel::conv {
namespace {

template <typename F>
void run(const ConvTask& task, float* scratch, size_t tiles) noexcept {
  Winograd<F, Avx512Vector>(task, matrix::kProductAvx512, scratch, tiles).run();
}

}  // namespace

void winograd_4x4_avx512(const ConvTask& task, float* scratch, size_t tiles) noexcept {
  run<Filtering4>(task, scratch, tiles);
}

void winograd_6x6_avx512(const ConvTask& task, float* scratch, size_t tiles) noexcept {
  run<Filtering6>(task, scratch, tiles);
}

}  // namespace marlo::kernel::conv
