#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include "qrt_core/kernel/conv/transposed/scatter_cores.h"
#include "qrt_core/kernel/conv/transposed/scatter_internal.h"

namespace marlo::kernel::conv {

void scatter_c8_avx(const ConvTask& task) noexcept { ScatterTiles<AvxVector, 8, 2>(task).run(); }

}  // namespace marlo::kernel::conv
