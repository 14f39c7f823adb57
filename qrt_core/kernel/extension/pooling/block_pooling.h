#pragma once

#include "qrt_core/kernel/basic/pooling.h"
#include "qrt_core/kernel/extension/pooling/block_pooling_cores.h"

// Average and maximum pooling with any window, over blocks of 8 channels.

namespace marlo::kernel {

// clang-format off
#define QRT_BLOCK_POOLING_KERNELS_AVX(KERNEL)                                                      \
  KERNEL(Pooling2D_Avg_Knxm_Snxm_AVX_C8HW8_Float_M1, pooling_c8(kAverage, 0, 0, average_c8_avx))   \
  KERNEL(Pooling2D_Max_Knxm_Snxm_AVX_C8HW8_Float_M1, pooling_c8(kMaximum, 0, 0, maximum_c8_avx))
// clang-format on

QRT_IF_AVX(QRT_BLOCK_POOLING_KERNELS_AVX(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const PoolingRow*> block_pooling_rows = {
    QRT_IF_AVX(QRT_BLOCK_POOLING_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
