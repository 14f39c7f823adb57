#pragma once

#include "qrt_core/kernel/basic/elementwise.h"
#include "qrt_core/kernel/extension/elementary/rectified_sum_cores.h"

// Sums of two tensors that end with a rectifier, as residual blocks do.

namespace marlo::kernel {

#define QRT_RECTIFIED_SUM_KERNELS_AVX(KERNEL) \
  KERNEL(Elementwise_Add_AVX_Float_ReLU_M1,   \
         on_avx(with_epilogue(Epilogue::relu, \
                              elementwise_blocks("Add", 8, add_relu_avx, add_relu_scalar))))

QRT_IF_AVX(QRT_RECTIFIED_SUM_KERNELS_AVX(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const ElementwiseRow*> rectified_sum_rows = {
    QRT_IF_AVX(QRT_RECTIFIED_SUM_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
