#pragma once

// Every kernel class, and the lists of their rows by group.

#include "qrt_core/kernel/basic/activation.h"
#include "qrt_core/kernel/basic/adaptive_pooling.h"
#include "qrt_core/kernel/basic/broadcast.h"
#include "qrt_core/kernel/basic/channel_multiply.h"
#include "qrt_core/kernel/basic/elementwise.h"
#include "qrt_core/kernel/basic/grid_sample.h"
#include "qrt_core/kernel/basic/pass_through.h"
#include "qrt_core/kernel/basic/pooling.h"
#include "qrt_core/kernel/basic/reduction.h"
#include "qrt_core/kernel/basic/softmax.h"
#include "qrt_core/kernel/basic/upsampling.h"
#include "qrt_core/kernel/conv/depthwise/depthwise_convolution.h"
#include "qrt_core/kernel/conv/general/general_convolution.h"
#include "qrt_core/kernel/conv/int16/int16_convolution.h"
#include "qrt_core/kernel/conv/points/point_convolution.h"
#include "qrt_core/kernel/conv/points/strassen.h"
#include "qrt_core/kernel/conv/reference/reference_convolution.h"
#include "qrt_core/kernel/conv/transposed/scatter_convolution.h"
#include "qrt_core/kernel/conv/windows/direct_convolution.h"
#include "qrt_core/kernel/conv/windows/line_convolution.h"
#include "qrt_core/kernel/conv/winograd/winograd.h"
#include "qrt_core/kernel/layout/concatenate.h"
#include "qrt_core/kernel/layout/expand.h"
#include "qrt_core/kernel/layout/layout_transform.h"
#include "qrt_core/kernel/layout/permute.h"
#include "qrt_core/kernel/layout/pixel_shuffle.h"
#include "qrt_core/kernel/layout/placeholder.h"
#include "qrt_core/kernel/layout/ranked_reshape.h"
#include "qrt_core/kernel/layout/reshape.h"
#include "qrt_core/kernel/layout/slice.h"
#include "qrt_core/kernel/layout/unsqueeze.h"
#include "qrt_core/kernel/matrix/full_connection.h"
#include "qrt_core/kernel/recurrent/recurrent.h"

/// @name Groups
/// Each gives `KERNEL` the name and the row of every kernel of a group. A family's lists are named
/// here once: registration, tables and tests follow from it. A kernel of two groups stands in the
/// first; a build without the second leaves it out.
/// @{
/// Registered before every other group, and in no other.
#define QRT_COMMON_KERNELS(KERNEL) QRT_PERMUTE_KERNELS(KERNEL)

#define QRT_PORTABLE_KERNELS(KERNEL)         \
  QRT_ACTIVATION_KERNELS_PORTABLE(KERNEL)    \
  QRT_ADAPTIVE_POOLING_KERNELS(KERNEL)       \
  QRT_BROADCAST_KERNELS(KERNEL)              \
  QRT_ELEMENTWISE_KERNELS_PORTABLE(KERNEL)   \
  QRT_GRID_SAMPLE_KERNELS(KERNEL)            \
  QRT_PASS_THROUGH_KERNELS(KERNEL)           \
  QRT_POOLING_KERNELS_PORTABLE(KERNEL)       \
  QRT_REDUCTION_KERNELS(KERNEL)              \
  QRT_SOFTMAX_KERNELS(KERNEL)                \
  QRT_UPSAMPLING_KERNELS_PORTABLE(KERNEL)    \
  QRT_PLANE_REFERENCE_KERNELS(KERNEL)        \
  QRT_TRANSPOSED_REFERENCE_KERNELS(KERNEL)   \
  QRT_LINE_REFERENCE_KERNELS(KERNEL)         \
  QRT_CHANNEL_CONCATENATE_KERNELS(KERNEL)    \
  QRT_AXIS_CONCATENATE_KERNELS(KERNEL)       \
  QRT_EXPAND_KERNELS_PORTABLE(KERNEL)        \
  QRT_PIXEL_SHUFFLE_KERNELS_PORTABLE(KERNEL) \
  QRT_PLACEHOLDER_KERNELS(KERNEL)            \
  QRT_RANKED_RESHAPE_KERNELS(KERNEL)         \
  QRT_RESHAPE_KERNELS(KERNEL)                \
  QRT_SLICE_KERNELS(KERNEL)                  \
  QRT_UNSQUEEZE_KERNELS(KERNEL)              \
  QRT_FULL_CONNECTION_KERNELS(KERNEL)        \
  QRT_RECURRENT_CELLS(KERNEL)                \
  QRT_RECURRENT_SEQUENCES(KERNEL)

#define QRT_SSE_KERNELS(KERNEL)                       \
  QRT_ACTIVATION_KERNELS_SSE(KERNEL)                  \
  QRT_ELEMENTWISE_KERNELS_SSE(KERNEL)                 \
  QRT_POOLING_KERNELS_SSE(KERNEL)                     \
  QRT_UPSAMPLING_KERNELS_SSE(KERNEL)                  \
  QRT_DEPTHWISE_KERNELS_SSE(KERNEL)                   \
  QRT_DIRECT_CONVOLUTION_KERNELS_SSE(KERNEL)          \
  QRT_GENERAL_CONVOLUTION_KERNELS_SSE(KERNEL)         \
  QRT_INT16_KERNELS_SSE(KERNEL)                       \
  QRT_POINT_CONVOLUTION_KERNELS_SSE(KERNEL)           \
  QRT_SCATTER_KERNELS_SSE(KERNEL)                     \
  QRT_WINOGRAD_KERNELS_SSE(KERNEL)                    \
  QRT_EXPAND_KERNELS_SSE(KERNEL)                      \
  QRT_LAYOUT_TRANSFORM_KERNELS_SSE(KERNEL)            \
  QRT_PIXEL_SHUFFLE_KERNELS_SSE(KERNEL)               \
  QRT_FULL_CONNECTION_KERNELS_SSE(KERNEL)             \
  QRT_RECURRENT_CELLS_SSE(KERNEL)                     \
  QRT_RECURRENT_SEQUENCES_SSE(KERNEL)                 \
  QRT_IF_SGEMM(QRT_RECURRENT_CELLS_SSE_SGEMM(KERNEL)) \
  QRT_IF_SGEMM(QRT_RECURRENT_SEQUENCES_SSE_SGEMM(KERNEL))

#define QRT_AVX_KERNELS(KERNEL)               \
  QRT_ACTIVATION_KERNELS_AVX(KERNEL)          \
  QRT_CHANNEL_MULTIPLY_KERNELS_AVX(KERNEL)    \
  QRT_ELEMENTWISE_KERNELS_AVX(KERNEL)         \
  QRT_POOLING_KERNELS_AVX(KERNEL)             \
  QRT_UPSAMPLING_KERNELS_AVX(KERNEL)          \
  QRT_DEPTHWISE_KERNELS_AVX(KERNEL)           \
  QRT_DIRECT_CONVOLUTION_KERNELS_AVX(KERNEL)  \
  QRT_GENERAL_CONVOLUTION_KERNELS_AVX(KERNEL) \
  QRT_LINE_KERNELS_AVX(KERNEL)                \
  QRT_POINT_CONVOLUTION_KERNELS_AVX(KERNEL)   \
  QRT_SCATTER_KERNELS_AVX(KERNEL)             \
  QRT_STRASSEN_KERNELS_AVX(KERNEL)            \
  QRT_EXPAND_KERNELS_AVX(KERNEL)              \
  QRT_LAYOUT_TRANSFORM_KERNELS_AVX(KERNEL)    \
  QRT_PIXEL_SHUFFLE_KERNELS_AVX(KERNEL)       \
  QRT_FULL_CONNECTION_KERNELS_AVX(KERNEL)

#define QRT_SGEMM_KERNELS(KERNEL)             \
  QRT_POINT_CONVOLUTION_KERNELS_SGEMM(KERNEL) \
  QRT_FULL_CONNECTION_KERNELS_SGEMM(KERNEL)   \
  QRT_RECURRENT_CELLS_SGEMM(KERNEL)           \
  QRT_RECURRENT_SEQUENCES_SGEMM(KERNEL)

/// Those of all groups that this build contains.
#define QRT_ALL_KERNELS(KERNEL)       \
  QRT_COMMON_KERNELS(KERNEL)          \
  QRT_PORTABLE_KERNELS(KERNEL)        \
  QRT_IF_SSE(QRT_SSE_KERNELS(KERNEL)) \
  QRT_IF_AVX(QRT_AVX_KERNELS(KERNEL)) \
  QRT_IF_SGEMM(QRT_SGEMM_KERNELS(KERNEL))
/// @}

namespace marlo::kernel {

/// Calls `visit` with the row of every kernel of this build. Rows are of their families' types and
/// live as long as the program.
template <typename Visit>
void for_each_row(Visit visit) {
#define QRT_VISIT_ROW(Name, row) visit(rows::Name);
  QRT_ALL_KERNELS(QRT_VISIT_ROW)
#undef QRT_VISIT_ROW
}

}  // namespace marlo::kernel
