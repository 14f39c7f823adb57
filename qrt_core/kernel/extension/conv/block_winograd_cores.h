#pragma once

#include <cstddef>

#include "qrt_core/kernel/conv/steps/conv_params.h"
#include "qrt_core/kernel/extension/matrix/matrix_product_cores.h"

namespace marlo::kernel::conv {

/// Where a core keeps its tiles; distances are in floats.
struct WinogradScratch {
  size_t tiles = 0;           ///< that are computed at a time, above 0
  size_t row = 0;             ///< from one tile's transformed inputs to the next one's
  size_t gap = 0;             ///< from the last row of an element to the first one of the next
  float* inputs = nullptr;    ///< [element, tile, row]
  float* products = nullptr;  ///< [element, tile, column of a panel]
};

/// A 3 x 3 convolution at stride 1 in C8HW8 by minimal filtering, F(m x m, 3 x 3), with any paddings and
/// an epilogue. It takes the input itself and adds the bias last.
/// @param task its weights are transformed and packed by `pack_filters` for `cores`
using WinogradCore = void (*)(const ConvTask& task, const matrix::ProductCores& cores,
                              const WinogradScratch& scratch) noexcept;

void winograd_4x4_fma(const ConvTask& task, const matrix::ProductCores& cores,
                      const WinogradScratch& scratch) noexcept;
void winograd_6x6_fma(const ConvTask& task, const matrix::ProductCores& cores,
                      const WinogradScratch& scratch) noexcept;
void winograd_4x4_avx512(const ConvTask& task, const matrix::ProductCores& cores,
                         const WinogradScratch& scratch) noexcept;
void winograd_6x6_avx512(const ConvTask& task, const matrix::ProductCores& cores,
                         const WinogradScratch& scratch) noexcept;

}  // namespace marlo::kernel::conv
