#pragma once

// Every kernel class of the second set, and the lists of their rows by group. They are what came after
// the kernels of kernel/kernels.h, whose names, numbers and acceptance are fixed.

#include "qrt_core/utility/build_options.h"

#if QRT_WITH_EXTENSIONS
#include "qrt_core/kernel/extension/conv/block_depthwise.h"
#include "qrt_core/kernel/extension/conv/block_window.h"
#include "qrt_core/kernel/extension/conv/block_winograd.h"
#include "qrt_core/kernel/extension/conv/first_window.h"
#include "qrt_core/kernel/extension/elementary/activation.h"
#endif

/// @name Groups
/// As those of kernel/kernels.h: each gives `KERNEL` the name and the row of every kernel of a group.
/// @{
#define QRT_EXTENSION_FMA_KERNELS(KERNEL) \
  QRT_BLOCK_WINDOW_KERNELS_FMA(KERNEL)    \
  QRT_BLOCK_WINOGRAD_KERNELS_FMA(KERNEL)  \
  QRT_BLOCK_DEPTHWISE_KERNELS_FMA(KERNEL) \
  QRT_FIRST_WINDOW_KERNELS_FMA(KERNEL)

#define QRT_EXTENSION_AVX512_KERNELS(KERNEL) \
  QRT_ACTIVATION_KERNELS_AVX512(KERNEL)      \
  QRT_BLOCK_WINDOW_KERNELS_AVX512(KERNEL)    \
  QRT_BLOCK_WINOGRAD_KERNELS_AVX512(KERNEL)  \
  QRT_BLOCK_DEPTHWISE_KERNELS_AVX512(KERNEL) \
  QRT_FIRST_WINDOW_KERNELS_AVX512(KERNEL)

/// Those of all groups that this build contains.
#if QRT_WITH_EXTENSIONS
#define QRT_EXTENSION_KERNELS(KERNEL) \
  QRT_IF_AVX(QRT_EXTENSION_FMA_KERNELS(KERNEL)) QRT_IF_AVX(QRT_EXTENSION_AVX512_KERNELS(KERNEL))
#else
#define QRT_EXTENSION_KERNELS(KERNEL)
#endif
/// @}

namespace marlo::kernel {

/// Calls `visit` with the row of every kernel of the second set, as `for_each_row` does for the first.
template <typename Visit>
void for_each_extension_row([[maybe_unused]] Visit visit) {
#define QRT_VISIT_ROW(Name, row) visit(rows::Name);
  QRT_EXTENSION_KERNELS(QRT_VISIT_ROW)
#undef QRT_VISIT_ROW
}

}  // namespace marlo::kernel
