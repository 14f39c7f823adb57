#pragma once

#include "qrt_core/kernel/conv/points/point_convolution_cores.h"
#include "qrt_core/kernel/conv/steps/convolution.h"
#include "qrt_core/kernel/conv/steps/weight_packing.h"

// 1x1 convolutions: products of a matrix of weights with the pixels. They read their input
// directly, as there is no padding, and know no groups.

namespace marlo::kernel {

/// Layers without dilation and padding. Members over planes want channels above zero as well.
constexpr Accepts point_at(uint32_t stride) { return window_of(1, 1, stride, Paddings::none); }

using PlaneRow = ConvolutionRow<PlaneGeometry>;

/// A 1x1 convolution at stride 1 between two layouts.
constexpr PlaneRow point_convolution(runtime::LayoutType input, runtime::LayoutType output,
                                     decltype(PlaneRow::pack) pack, fill::Core fill,
                                     conv::Core core) {
  PlaneRow row;
  row.accepts = point_at(1);
  row.input = {input, true, input != runtime::LayoutType::CHW};
  row.output = {output, false, false};
  row.pack = pack;
  row.fill = fill;
  row.starts_from_bias = true;
  row.takes_any_layout = true;
  row.core = core;
  return row;
}

/// The same in one blocked layout.
constexpr PlaneRow point_blocks(runtime::LayoutType layout, decltype(PlaneRow::pack) pack,
                                fill::Core fill, conv::Core core) {
  return point_convolution(layout, layout, pack, fill, core);
}

/// The same over planes, whose weights stay as they come.
constexpr PlaneRow point_planes(fill::Core fill, conv::Core core) {
  PlaneRow row = point_blocks(runtime::LayoutType::CHW, nullptr, fill, core);
  row.accepts = with_channels(row.accepts);
  return row;
}

/// The same at stride 2.
constexpr PlaneRow at_stride2(PlaneRow row) {
  row.accepts.stride = 2;
  return row;
}

/// The one member that copies its input, as padding of nothing does: its vectors are every other
/// pixel of a row, and reach behind the last.
constexpr PlaneRow point_planes_of_copy(conv::Core core) {
  PlaneRow row = at_stride2(point_planes(fill::repeat_portable, core));
  row.margin = Margin::padding;
  row.takes_any_layout = false;
  return row;
}

constexpr PlaneRow point_c4_sse(conv::Core core) {
  return point_blocks(runtime::LayoutType::C4HW4,
                      functional::Function_Weight_GNCHW_To_GN4C4HW4n4c_SSE, fill::repeat_sse, core);
}

constexpr PlaneRow point_c8_sse(conv::Core core) {
  return point_blocks(runtime::LayoutType::C8HW8, functional::Function_Weight_GNCHW_To_GN8C8HW8n8c,
                      fill::repeat_sse, core);
}

#define QRT_POINT_CONVOLUTION_KERNELS_SSE(KERNEL)                                          \
  KERNEL(Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1,                                        \
         point_planes(fill::repeat_portable, conv::point_chw_sse))                         \
  KERNEL(Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1, point_c4_sse(conv::point_c4_m1_sse)) \
  KERNEL(Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2, point_c4_sse(conv::point_c4_m2_sse)) \
  KERNEL(Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1, point_c8_sse(conv::point_c8_sse))    \
  KERNEL(Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1,                                        \
         point_planes_of_copy(conv::point_stride2_chw_sse))                                \
  KERNEL(Conv2d_K1x1_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1,                                      \
         at_stride2(point_c4_sse(conv::point_stride2_c4_sse)))                             \
  KERNEL(Conv2d_K1x1_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1,                                      \
         at_stride2(point_c8_sse(conv::point_stride2_c8_sse)))

QRT_IF_SSE(QRT_POINT_CONVOLUTION_KERNELS_SSE(QRT_KERNEL))

constexpr PlaneRow point_c8_avx(conv::Core core) {
  return point_blocks(runtime::LayoutType::C8HW8, functional::Function_Weight_GNCHW_To_GN8C8HW8n8c,
                      fill::repeat_avx, core);
}

#define QRT_POINT_CONVOLUTION_KERNELS_AVX(KERNEL)                                                  \
  KERNEL(Conv2d_K1x1_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1,                                                \
         on_fma(point_planes(fill::repeat_avx, conv::point_chw_fma)))                              \
  KERNEL(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1,                                              \
         on_fma(point_blocks(runtime::LayoutType::C4HW4,                                           \
                             functional::Function_Weight_GNCHW_To_GN4C4HW4n4c_AVX,                 \
                             fill::repeat_avx, conv::point_c4_fma)))                               \
  KERNEL(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1, on_fma(point_c8_avx(conv::point_c8_m1_fma))) \
  KERNEL(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M2, on_fma(point_c8_avx(conv::point_c8_m2_fma))) \
  KERNEL(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M3, on_fma(point_c8_avx(conv::point_c8_m3_fma))) \
  KERNEL(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_CHW_FLOAT_M1,                                       \
         on_avx(point_convolution(runtime::LayoutType::C8HW8, runtime::LayoutType::CHW,            \
                                  functional::Function_Weight_GNCHW_To_GNC8HWc8, fill::repeat_avx, \
                                  conv::point_c8_to_chw_avx)))                                     \
  KERNEL(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_C4HW4_FLOAT_M1,                                     \
         on_fma(point_convolution(runtime::LayoutType::C8HW8, runtime::LayoutType::C4HW4,          \
                                  functional::Function_Weight_GNCHW_To_GN4C8HW8, fill::repeat_avx, \
                                  conv::point_c8_to_c4_fma)))                                      \
  KERNEL(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C4HW4_TO_C8HW8_FLOAT_M1,                                     \
         on_fma(point_convolution(runtime::LayoutType::C4HW4, runtime::LayoutType::C8HW8,          \
                                  functional::Function_Weight_GNCHW_To_GN8C4HW4, fill::repeat_avx, \
                                  conv::point_c4_to_c8_fma)))                                      \
  KERNEL(Conv2d_K1x1_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1,                                              \
         on_avx(at_stride2(point_c8_avx(conv::point_stride2_c8_avx))))

QRT_IF_AVX(QRT_POINT_CONVOLUTION_KERNELS_AVX(QRT_KERNEL))

#define QRT_POINT_CONVOLUTION_KERNELS_SGEMM(KERNEL)   \
  KERNEL(Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1, \
         point_planes(fill::repeat_portable, conv::point_chw_sgemm))

QRT_IF_SGEMM(QRT_POINT_CONVOLUTION_KERNELS_SGEMM(QRT_KERNEL))

/// The rows of the 1x1 convolutions that this build contains.
// clang-format off
inline constexpr std::initializer_list<const PlaneRow*> point_convolution_rows = {
    QRT_IF_SSE(QRT_POINT_CONVOLUTION_KERNELS_SSE(QRT_KERNEL_ROW))
    QRT_IF_AVX(QRT_POINT_CONVOLUTION_KERNELS_AVX(QRT_KERNEL_ROW))
    QRT_IF_SGEMM(QRT_POINT_CONVOLUTION_KERNELS_SGEMM(QRT_KERNEL_ROW))};
// clang-format on

}  // namespace marlo::kernel
