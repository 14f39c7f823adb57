#pragma once

// Every kernel class of the second set, and the lists of their rows by group. They are what came after
// the kernels of kernel/kernels.h, whose names, numbers and acceptance are fixed.

#include "qrt_core/utility/build_options.h"

#if QRT_WITH_EXTENSIONS
#include "qrt_core/kernel/extension/conv/block_depthwise.h"
#include "qrt_core/kernel/extension/conv/block_transposed.h"
#include "qrt_core/kernel/extension/conv/block_window.h"
#include "qrt_core/kernel/extension/conv/block_winograd.h"
#include "qrt_core/kernel/extension/conv/first_window.h"
#include "qrt_core/kernel/extension/conv/last_window.h"
#include "qrt_core/kernel/extension/elementary/activation.h"
#include "qrt_core/kernel/extension/elementary/axis_reduction.h"
#include "qrt_core/kernel/extension/elementary/binary.h"
#include "qrt_core/kernel/extension/elementary/element_function.h"
#include "qrt_core/kernel/extension/elementary/lines.h"
#include "qrt_core/kernel/extension/elementary/rectified_sum.h"
#include "qrt_core/kernel/extension/layout/axis_map.h"
#include "qrt_core/kernel/extension/layout/constant.h"
#include "qrt_core/kernel/extension/layout/reshape_in_place.h"
#include "qrt_core/kernel/extension/layout/resize.h"
#include "qrt_core/kernel/extension/layout/resize_like.h"
#include "qrt_core/kernel/extension/matrix/dense.h"
#include "qrt_core/kernel/extension/matrix/matmul.h"
#include "qrt_core/kernel/extension/pooling/block_average.h"
#include "qrt_core/kernel/extension/pooling/block_pooling.h"
#include "qrt_core/kernel/extension/recurrent/stated_sequence.h"
#include "qrt_core/kernel/extension/recurrent/wide_sequence.h"
#endif

/// @name Groups
/// As those of kernel/kernels.h: each gives `KERNEL` the name and the row of every kernel of a group.
/// @{
#define QRT_EXTENSION_PORTABLE_KERNELS(KERNEL)  \
  QRT_AXIS_MAP_KERNELS(KERNEL)                  \
  QRT_RESIZE_KERNELS_PORTABLE(KERNEL)           \
  QRT_RESIZE_LIKE_KERNELS_PORTABLE(KERNEL)      \
  QRT_STATED_SEQUENCES_PORTABLE(KERNEL)         \
  QRT_TENSOR_KERNELS(KERNEL)                    \
  QRT_RESHAPE_IN_PLACE_KERNELS(KERNEL)          \
  QRT_AXIS_REDUCTION_KERNELS_PORTABLE(KERNEL)   \
  QRT_BINARY_KERNELS_PORTABLE(KERNEL)           \
  QRT_ELEMENT_FUNCTION_KERNELS_PORTABLE(KERNEL) \
  QRT_LINE_KERNELS_PORTABLE(KERNEL)             \
  QRT_DENSE_KERNELS_PORTABLE(KERNEL)            \
  QRT_MATMUL_KERNELS_PORTABLE(KERNEL)

#define QRT_EXTENSION_AVX_KERNELS(KERNEL) \
  QRT_RESIZE_KERNELS_AVX(KERNEL)          \
  QRT_RESIZE_LIKE_KERNELS_AVX(KERNEL)     \
  QRT_RECTIFIED_SUM_KERNELS_AVX(KERNEL)   \
  QRT_BLOCK_POOLING_KERNELS_AVX(KERNEL)

#define QRT_EXTENSION_FMA_KERNELS(KERNEL)  \
  QRT_AXIS_REDUCTION_KERNELS_FMA(KERNEL)   \
  QRT_BINARY_KERNELS_FMA(KERNEL)           \
  QRT_ELEMENT_FUNCTION_KERNELS_FMA(KERNEL) \
  QRT_LINE_KERNELS_FMA(KERNEL)             \
  QRT_DENSE_KERNELS_FMA(KERNEL)            \
  QRT_MATMUL_KERNELS_FMA(KERNEL)           \
  QRT_WIDE_SEQUENCES_FMA(KERNEL)           \
  QRT_STATED_SEQUENCES_FMA(KERNEL)         \
  QRT_BLOCK_AVERAGE_KERNELS_FMA(KERNEL)    \
  QRT_BLOCK_WINDOW_KERNELS_FMA(KERNEL)     \
  QRT_BLOCK_TRANSPOSED_KERNELS_FMA(KERNEL) \
  QRT_BLOCK_WINOGRAD_KERNELS_FMA(KERNEL)   \
  QRT_BLOCK_DEPTHWISE_KERNELS_FMA(KERNEL)  \
  QRT_FIRST_WINDOW_KERNELS_FMA(KERNEL)     \
  QRT_LAST_WINDOW_KERNELS_FMA(KERNEL)

#define QRT_EXTENSION_AVX512_KERNELS(KERNEL)  \
  QRT_AXIS_REDUCTION_KERNELS_AVX512(KERNEL)   \
  QRT_BINARY_KERNELS_AVX512(KERNEL)           \
  QRT_ELEMENT_FUNCTION_KERNELS_AVX512(KERNEL) \
  QRT_LINE_KERNELS_AVX512(KERNEL)             \
  QRT_DENSE_KERNELS_AVX512(KERNEL)            \
  QRT_MATMUL_KERNELS_AVX512(KERNEL)           \
  QRT_WIDE_SEQUENCES_AVX512(KERNEL)           \
  QRT_STATED_SEQUENCES_AVX512(KERNEL)         \
  QRT_ACTIVATION_KERNELS_AVX512(KERNEL)       \
  QRT_BLOCK_WINDOW_KERNELS_AVX512(KERNEL)     \
  QRT_BLOCK_TRANSPOSED_KERNELS_AVX512(KERNEL) \
  QRT_BLOCK_WINOGRAD_KERNELS_AVX512(KERNEL)   \
  QRT_BLOCK_DEPTHWISE_KERNELS_AVX512(KERNEL)  \
  QRT_FIRST_WINDOW_KERNELS_AVX512(KERNEL)     \
  QRT_LAST_WINDOW_KERNELS_AVX512(KERNEL)

/// Those of all groups that this build contains.
#if QRT_WITH_EXTENSIONS
#define QRT_EXTENSION_KERNELS(KERNEL)           \
  QRT_EXTENSION_PORTABLE_KERNELS(KERNEL)        \
  QRT_IF_AVX(QRT_EXTENSION_AVX_KERNELS(KERNEL)) \
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
