#pragma once

#include "qrt_core/kernel/layout/reshape.h"

// Reshapes of a tensor that is read for the last time: nothing moves.

namespace marlo::kernel {

#define QRT_RESHAPE_IN_PLACE_KERNELS(KERNEL)                                                 \
  KERNEL(Reshape_Inplace_Fallback_M1, in_place(reshape_freely()))                            \
  KERNEL(Reshape_Inplace_Fallback_To_C_M1, in_place(reshape_to(runtime::LayoutType::C)))     \
  KERNEL(Reshape_Inplace_Fallback_To_CHW_M1, in_place(reshape_to(runtime::LayoutType::CHW))) \
  KERNEL(Reshape_Inplace_Fallback_To_SC_M1, in_place(reshape_to_sequence()))

QRT_RESHAPE_IN_PLACE_KERNELS(QRT_KERNEL)

/// The rows of these kernels.
inline constexpr std::initializer_list<const ReshapeRow*> reshape_in_place_rows = {
    QRT_RESHAPE_IN_PLACE_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
