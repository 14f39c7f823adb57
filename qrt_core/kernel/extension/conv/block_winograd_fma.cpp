#ifndef __FMA__
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/extension/conv/block_winograd_internal.h"

namespace marlo::kernel::conv {

void winograd_4x4_fma(const ConvTask& task, const matrix::ProductCores& cores,
                      const WinogradScratch& scratch) noexcept {
  Winograd<Filtering4, FusedVector>(task, cores, scratch).run();
}

void winograd_6x6_fma(const ConvTask& task, const matrix::ProductCores& cores,
                      const WinogradScratch& scratch) noexcept {
  Winograd<Filtering6, FusedVector>(task, cores, scratch).run();
}

}  // namespace marlo::kernel::conv
