#pragma once

#include "qrt_core/kernel/conv/steps/convolution.h"

// The portable convolutions: any kernel, stride, dilation and groups. They define what every faster
// kernel computes. Paddings aren't tested, nor whether the groups divide the channels.

namespace marlo::kernel {

/// The portable convolution over planes.
constexpr ConvolutionRow<PlaneGeometry> reference_convolution() {
  ConvolutionRow<PlaneGeometry> row;
  row.accepts = any_above_zero();
  row.computes = Computes::all_groups;
  row.margin = Margin::padding;
  row.room = 0;
  row.fill = fill::repeat_portable;
  row.core = conv::direct_portable;
  return row;
}

/// The portable transposed convolution.
constexpr ConvolutionRow<TransposedGeometry> reference_transposed_convolution() {
  ConvolutionRow<TransposedGeometry> row;
  row.accepts = any_above_zero();
  row.computes = Computes::all_groups;
  row.fill = fill::repeat_portable;
  row.takes_any_layout = true;
  row.core = conv::transposed_portable;
  return row;
}

/// The portable convolution over lines.
constexpr ConvolutionRow<LineGeometry> reference_line_convolution() {
  ConvolutionRow<LineGeometry> row;
  row.accepts = any_above_zero();
  row.computes = Computes::all_groups;
  row.margin = Margin::padding;
  row.room = 0;
  row.fill = fill::repeat_portable;
  row.core = conv::direct_portable;
  return row.in_layout(runtime::LayoutType::CL);
}

#define QRT_PLANE_REFERENCE_KERNELS(KERNEL) \
  KERNEL(Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1, reference_convolution())

#define QRT_TRANSPOSED_REFERENCE_KERNELS(KERNEL)                  \
  KERNEL(ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1, \
         reference_transposed_convolution())

#define QRT_LINE_REFERENCE_KERNELS(KERNEL) \
  KERNEL(Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1, reference_line_convolution())

QRT_PLANE_REFERENCE_KERNELS(QRT_KERNEL)
QRT_TRANSPOSED_REFERENCE_KERNELS(QRT_KERNEL)
QRT_LINE_REFERENCE_KERNELS(QRT_KERNEL)

/// The rows of the kernels over planes, transposed planes and lines that this build contains.
inline constexpr std::initializer_list<const ConvolutionRow<PlaneGeometry>*>
    plane_convolution_rows = {QRT_PLANE_REFERENCE_KERNELS(QRT_KERNEL_ROW)};
inline constexpr std::initializer_list<const ConvolutionRow<TransposedGeometry>*>
    transposed_convolution_rows = {QRT_TRANSPOSED_REFERENCE_KERNELS(QRT_KERNEL_ROW)};
inline constexpr std::initializer_list<const ConvolutionRow<LineGeometry>*> line_convolution_rows =
    {QRT_LINE_REFERENCE_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
