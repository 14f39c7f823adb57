#pragma once

#include "qrt_core/kernel/basic/adaptive_pooling.h"
#include "qrt_core/kernel/extension/pooling/block_average_cores.h"

// Average pooling to a given size, over blocks of 8 channels.

namespace marlo::kernel {

constexpr AdaptivePoolingRow block_average(pooling::WindowAverage average) {
  AdaptivePoolingRow row;
  row.layout = runtime::LayoutType::C8HW8;
  row.average = average;
  return row;
}

#define QRT_BLOCK_AVERAGE_KERNELS_FMA(KERNEL)      \
  KERNEL(AdaptivePooling2D_Avg_FMA_C8HW8_Float_M1, \
         on_fma(block_average(pooling::window_average_c8_fma)))

QRT_IF_AVX(QRT_BLOCK_AVERAGE_KERNELS_FMA(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const AdaptivePoolingRow*> block_average_rows = {
    QRT_IF_AVX(QRT_BLOCK_AVERAGE_KERNELS_FMA(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
