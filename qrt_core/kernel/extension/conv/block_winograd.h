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
/// [1, N, C, 3, 3] as [N / panel, element, C, n]: panels of a product's columns, see `ColumnPacker`.
/// @return null unless `weight` is a FLOAT32 tensor of layout GNCHW, 3 x 3 filters of whole blocks
/// @{
std::shared_ptr<runtime::TensorCPU> pack_filters_4x4(std::shared_ptr<runtime::TensorCPU> weight,
                                                     std::shared_ptr<runtime::DeviceCPU> device,
                                                     const matrix::ProductCores& cores);
std::shared_ptr<runtime::TensorCPU> pack_filters_6x6(std::shared_ptr<runtime::TensorCPU> weight,
                                                     std::shared_ptr<runtime::DeviceCPU> device,
                                                     const matrix::ProductCores& cores);
/// @}

/// The same as the packing of a row.
template <auto pack, const matrix::ProductCores& cores>
std::shared_ptr<runtime::TensorCPU> pack_filters_for(std::shared_ptr<runtime::TensorCPU> weight,
                                                     std::shared_ptr<runtime::DeviceCPU> device) {
  return pack(std::move(weight), std::move(device), cores);
}

namespace conv {

/// Runs a core with scratch for the tiles that it has at a time.
/// @param size of a tile of outputs
/// @throws whatever the device throws when it has no memory
void run_winograd(const ConvTask& task, runtime::DeviceCPU& device, size_t size,
                  const matrix::ProductCores& cores, WinogradCore core);

/// The same as the method of a row.
template <size_t size, const matrix::ProductCores& cores, WinogradCore core>
void winograd_by(const ConvTask& task, runtime::DeviceCPU& device) {
  run_winograd(task, device, size, cores, core);
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
#define QRT_BLOCK_WINOGRAD_KERNELS_OF(KERNEL, ISA, on, cores, suffix, size)                         \
  QRT_WITH_EPILOGUES(KERNEL, Conv2d_K3x3_S1x1_D1x1_G1_##ISA##_C8HW8_FLOAT_Winograd##size,            \
                     on(block_winograd(pack_filters_for<pack_filters_##size##x##size, matrix::cores>, \
                                       conv::winograd_by<size, matrix::cores,                  \
                                                         conv::winograd_##size##x##size##_##suffix>)))
#define QRT_BLOCK_WINOGRAD_KERNELS(KERNEL, ISA, on, cores, suffix)       \
  QRT_BLOCK_WINOGRAD_KERNELS_OF(KERNEL, ISA, on, cores, suffix, 4)       \
  QRT_BLOCK_WINOGRAD_KERNELS_OF(KERNEL, ISA, on, cores, suffix, 6)
// clang-format on

#define QRT_BLOCK_WINOGRAD_KERNELS_FMA(KERNEL) \
  QRT_BLOCK_WINOGRAD_KERNELS(KERNEL, FMA, on_fma, kProductFma, fma)
#define QRT_BLOCK_WINOGRAD_KERNELS_AVX512(KERNEL) \
  QRT_BLOCK_WINOGRAD_KERNELS(KERNEL, AVX512, on_avx512, kProductAvx512, avx512)

QRT_IF_AVX(QRT_BLOCK_WINOGRAD_KERNELS_FMA(QRT_KERNEL))
QRT_IF_AVX(QRT_BLOCK_WINOGRAD_KERNELS_AVX512(QRT_KERNEL))

/// The rows of these convolutions that this build contains.
// clang-format off
inline constexpr std::initializer_list<const ConvolutionRow<PlaneGeometry>*> block_winograd_rows = {
    QRT_IF_AVX(QRT_BLOCK_WINOGRAD_KERNELS_FMA(QRT_KERNEL_ROW))
    QRT_IF_AVX(QRT_BLOCK_WINOGRAD_KERNELS_AVX512(QRT_KERNEL_ROW))};
// clang-format on

}  // namespace marlo::kernel
