#pragma once

#include "qrt_core/kernel/extension/conv/block_window.h"
#include "qrt_core/kernel/extension/conv/block_winograd_cores.h"

// 3 x 3 convolutions at stride 1 in C8HW8 by minimal filtering, F(4 x 4, 3 x 3) and F(6 x 6, 3 x 3): 36
// products for 16 outputs and 64 for 36, where the definition has 144 and 324.
//
// The sums are other sums than the definition's. With C input channels, each is off by at most
// (C + 40) eps K S, where S is the sum over the channels of the largest weight times the largest input
// and K is 564 for F(4 x 4), 4580 for F(6 x 6): the products of the magnitudes in the rows of the three
// matrices. A NaN or an infinity in an input reaches all outputs of its tile. Filters are transformed in
// double precision when the layer is configured, and take 4 and 7.1 times the memory of the weights.

namespace marlo::kernel {

/// @name Transformed filters
/// [1, N, C, 3, 3] as [N / width, element, C / 8, c, n] in widths as those of `pack_in_widths_of_16`.
/// @return null unless `weight` is a FLOAT32 tensor of layout GNCHW, 3 x 3 filters of whole blocks
/// @{
std::shared_ptr<runtime::TensorCPU> pack_filters_4x4_of_16(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
std::shared_ptr<runtime::TensorCPU> pack_filters_6x6_of_16(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
/// Widths of 32, 16 and 8.
std::shared_ptr<runtime::TensorCPU> pack_filters_4x4_of_32(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
std::shared_ptr<runtime::TensorCPU> pack_filters_6x6_of_32(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
/// @}

namespace conv {

/// Runs a core with scratch for the tiles that it has at a time.
/// @param size of a tile of outputs @param widest group of output channels
/// @throws whatever the device throws when it has no memory
void run_winograd(const ConvTask& task, runtime::DeviceCPU& device, uint32_t size, uint32_t widest,
                  WinogradCore core);

/// The same as the method of a row.
template <uint32_t size, uint32_t widest, WinogradCore core>
void winograd_by(const ConvTask& task, runtime::DeviceCPU& device) {
  run_winograd(task, device, size, widest, core);
}

}  // namespace conv

constexpr ConvolutionRow<PlaneGeometry> block_winograd(
    decltype(ConvolutionRow<PlaneGeometry>::pack) pack, conv::Method method) {
  auto row = block_convolution(window_of(3, 3, 1), Groups::one);
  row.pack = pack;
  row.method = method;
  return row;
}

// clang-format off
#define QRT_BLOCK_WINOGRAD_KERNELS(KERNEL, ISA, on, widest, suffix)                                 \
  QRT_WITH_EPILOGUES(KERNEL, Conv2d_K3x3_S1x1_D1x1_G1_##ISA##_C8HW8_FLOAT_Winograd4,                \
                     on(block_winograd(pack_filters_4x4_of_##widest,                                \
                                       conv::winograd_by<4, widest, conv::winograd_4x4_##suffix>))) \
  QRT_WITH_EPILOGUES(KERNEL, Conv2d_K3x3_S1x1_D1x1_G1_##ISA##_C8HW8_FLOAT_Winograd6,                \
                     on(block_winograd(pack_filters_6x6_of_##widest,                                \
                                       conv::winograd_by<6, widest, conv::winograd_6x6_##suffix>)))
// clang-format on

#define QRT_BLOCK_WINOGRAD_KERNELS_FMA(KERNEL) \
  QRT_BLOCK_WINOGRAD_KERNELS(KERNEL, FMA, on_fma, 16, fma)
#define QRT_BLOCK_WINOGRAD_KERNELS_AVX512(KERNEL) \
  QRT_BLOCK_WINOGRAD_KERNELS(KERNEL, AVX512, on_avx512, 32, avx512)

QRT_IF_AVX(QRT_BLOCK_WINOGRAD_KERNELS_FMA(QRT_KERNEL))
QRT_IF_AVX(QRT_BLOCK_WINOGRAD_KERNELS_AVX512(QRT_KERNEL))

/// The rows of these convolutions that this build contains.
// clang-format off
inline constexpr std::initializer_list<const ConvolutionRow<PlaneGeometry>*> block_winograd_rows = {
    QRT_IF_AVX(QRT_BLOCK_WINOGRAD_KERNELS_FMA(QRT_KERNEL_ROW))
    QRT_IF_AVX(QRT_BLOCK_WINOGRAD_KERNELS_AVX512(QRT_KERNEL_ROW))};
// clang-format on

}  // namespace marlo::kernel
