#pragma once

#include "qrt_core/kernel/conv/steps/convolution.h"
#include "qrt_core/kernel/conv/steps/weight_packing.h"

// Convolutions of any filter, stride and dilation at the speed of a 1x1 product: the windows are
// written out as columns (im2col), and the product of the weights with them is the result. Packed
// weights stand in the order of these columns already.
//
// They accept anything; the AVX form wants whole blocks of eight channels. A description that has
// no output, because its stride is 0, is refused by `Config`.

namespace marlo::kernel {

namespace conv {

/// @name Methods
/// The columns of a pass are a tensor that lives as long as the pass.
/// @{
void general_chw_sse(const ConvTask& task, runtime::DeviceCPU& device);  ///< the one with groups
void general_c4_sse(const ConvTask& task, runtime::DeviceCPU& device);
void general_c8_sse(const ConvTask& task, runtime::DeviceCPU& device);
void general_c8_fma(const ConvTask& task, runtime::DeviceCPU& device);
/// @}

}  // namespace conv

/// A convolution over columns.
constexpr ConvolutionRow<PlaneGeometry> general_convolution(
    runtime::LayoutType layout, decltype(ConvolutionRow<PlaneGeometry>::pack) pack, fill::Core fill,
    conv::Method method) {
  ConvolutionRow<PlaneGeometry> row;
  row.accepts = with_groups({}, Groups::any);
  row.input = {layout, true, layout != runtime::LayoutType::CHW};
  row.output = {layout, false, false};
  row.margin = Margin::padding;
  row.pack = pack;
  row.fill = fill;
  row.starts_from_bias = true;
  row.method = method;
  return row;
}

/// The member that knows groups.
constexpr ConvolutionRow<PlaneGeometry> of_all_groups(ConvolutionRow<PlaneGeometry> row) {
  row.computes = Computes::all_groups;
  return row;
}

constexpr ConvolutionRow<PlaneGeometry> in_whole_blocks_of_8(ConvolutionRow<PlaneGeometry> row) {
  row.accepts = in_blocks_of(8, row.accepts);
  return row;
}

// clang-format off
#define QRT_GENERAL_CONVOLUTION_KERNELS_SSE(KERNEL)                                                \
  KERNEL(Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1,                                                \
         of_all_groups(general_convolution(runtime::LayoutType::CHW, nullptr,                      \
                                           fill::repeat_sse, conv::general_chw_sse)))              \
  KERNEL(Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1,                                              \
         general_convolution(runtime::LayoutType::C4HW4,                                           \
                             functional::Function_Weight_GNCHW_To_GN4C4HW4n4c_SSE,                 \
                             fill::repeat_sse, conv::general_c4_sse))                      \
  KERNEL(Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1,                                              \
         general_convolution(runtime::LayoutType::C8HW8,                                           \
                             functional::Function_Weight_GNCHW_To_GN8C8HW8n8c,                     \
                             fill::repeat_sse, conv::general_c8_sse))
QRT_IF_SSE(QRT_GENERAL_CONVOLUTION_KERNELS_SSE(QRT_KERNEL))

#define QRT_GENERAL_CONVOLUTION_KERNELS_AVX(KERNEL)                                                \
  KERNEL(Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1,                                              \
         on_fma(in_whole_blocks_of_8(general_convolution(                                                 \
             runtime::LayoutType::C8HW8, functional::Function_Weight_GNCHW_To_GN8C8HW8n8c,         \
             fill::repeat_avx, conv::general_c8_fma))))
QRT_IF_AVX(QRT_GENERAL_CONVOLUTION_KERNELS_AVX(QRT_KERNEL))
// clang-format on

/// The rows of the convolutions over columns that this build contains.
inline constexpr std::initializer_list<const ConvolutionRow<PlaneGeometry>*>
    general_convolution_rows = {QRT_IF_SSE(QRT_GENERAL_CONVOLUTION_KERNELS_SSE(
        QRT_KERNEL_ROW)) QRT_IF_AVX(QRT_GENERAL_CONVOLUTION_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
