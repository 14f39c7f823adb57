#pragma once

#include "qrt_core/kernel/basic/elementwise.h"
#include "qrt_core/kernel/extension/elementary/rectified_sum_cores.h"

// Sums of two tensors as residual blocks have them: they end with a rectifier, or stand where the first
// tensor stood, which is read for the last time. Those take two arrays through the caches, not three.

namespace marlo::kernel {

/// Eight at a time.
constexpr ElementwiseRow rectified_sum_avx() {
  using namespace elementwise;
  return on_avx(
      with_epilogue(Epilogue::relu, elementwise_blocks("Add", 8, add_relu_avx, add_relu_scalar)));
}

#define QRT_RECTIFIED_SUM_KERNELS_AVX(KERNEL)                                 \
  KERNEL(Elementwise_Add_AVX_Float_ReLU_M1, rectified_sum_avx())              \
  KERNEL(Elementwise_Add_Inplace_AVX_Float_M1,                                \
         on_avx(in_place(elementwise_blocks("Add", 8, add_avx, add_scalar)))) \
  KERNEL(Elementwise_Add_Inplace_AVX_Float_ReLU_M1, in_place(rectified_sum_avx()))

QRT_IF_AVX(QRT_RECTIFIED_SUM_KERNELS_AVX(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const ElementwiseRow*> rectified_sum_rows = {
    QRT_IF_AVX(QRT_RECTIFIED_SUM_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
