#ifndef __AVX512F__
#error "this file holds AVX-512 code and must be compiled with -mavx512f"
#endif

#include "qrt_core/kernel/extension/conv/block_winograd_internal.h"

namespace marlo::kernel::conv {

void winograd_4x4_avx512(const ConvTask& task, const matrix::ProductCores& cores,
                         const WinogradScratch& scratch) noexcept {
  Winograd<Filtering4, Avx512Vector>(task, cores, scratch).run();
}

void winograd_6x6_avx512(const ConvTask& task, const matrix::ProductCores& cores,
                         const WinogradScratch& scratch) noexcept {
  Winograd<Filtering6, Avx512Vector>(task, cores, scratch).run();
}

}  // namespace marlo::kernel::conv
