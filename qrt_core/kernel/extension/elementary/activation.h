#pragma once

#include "qrt_core/kernel/basic/activation.h"
#include "qrt_core/kernel/extension/elementary/activation_cores.h"

// Activations of the second set: the family of basic/activation.h on wider vectors.

namespace marlo::kernel {

#define QRT_ACTIVATION_KERNELS_AVX512(KERNEL)                                      \
  KERNEL(ReLU_AVX512_Float_M1, on_avx512(blocks_of(16, relu_avx512, relu_scalar))) \
  KERNEL(ReLU_Inplace_AVX512_Float_M1,                                             \
         on_avx512(blocks_of(16, relu_avx512, relu_scalar).in_place()))

QRT_IF_AVX(QRT_ACTIVATION_KERNELS_AVX512(QRT_KERNEL))

/// The rows of the activations of the second set that this build contains.
inline constexpr std::initializer_list<const ActivationRow*> extension_activation_rows = {
    QRT_IF_AVX(QRT_ACTIVATION_KERNELS_AVX512(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
