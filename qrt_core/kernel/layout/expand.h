#pragma once

#include <cstdint>
#include <vector>

#include "qrt_core/kernel/kernel_class.h"
#include "qrt_core/kernel/layout/fill_cores.h"

// Kernels that repeat one value per channel over a plane.

namespace marlo::kernel {

class Expand;

/// One expand kernel.
struct ExpandRow : KernelRow {
  using Family = Expand;

  runtime::LayoutType layout = runtime::LayoutType::CHW;  ///< of input and output
  uint32_t block = 1;                                     ///< channels of a block
  fill::Core repeat = nullptr;                            ///< writes a pattern over and over
};

/// Gives [C, 1, 1] the dims [C, H, W], and [C/n, 1, 1, n] the dims [C/n, H, W, n]. "new_shape" has
/// a batch entry of 1 in front; a negative entry keeps a dim, and so does every entry but 0 for the
/// channels. Any other expansion makes a tensor and writes nothing to it.
class Expand : public KernelFamily {
 public:
  explicit Expand(const ExpandRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits pass_refusals(const Shapes& inputs) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);

  /// @throws std::runtime_error where a dim is kept that the input doesn't have
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const { return CheckInputs(tensors); }

  /// @throws std::runtime_error for an input without a dim of 1
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;

 private:
  bool is_implemented(const std::vector<uint32_t>& from, const std::vector<uint32_t>& to) const;

  const ExpandRow& row_;
  std::vector<int16_t> new_shape_;
};

constexpr ExpandRow expand(runtime::LayoutType layout, uint32_t block, fill::Core repeat) {
  ExpandRow row;
  row.layout = layout;
  row.block = block;
  row.repeat = repeat;
  return row;
}

// clang-format off
#define QRT_EXPAND_KERNELS_PORTABLE(KERNEL)                                                        \
  KERNEL(Expand_Fallback_CHW_Float_M1, expand(runtime::LayoutType::CHW, 1, fill::repeat_portable))

#define QRT_EXPAND_KERNELS_SSE(KERNEL)                                                             \
  KERNEL(Expand_SSE_CHW_Float_M1,   expand(runtime::LayoutType::CHW, 1, fill::repeat_sse))         \
  KERNEL(Expand_SSE_C4HW4_Float_M1, expand(runtime::LayoutType::C4HW4, 4, fill::repeat_sse))

#define QRT_EXPAND_KERNELS_AVX(KERNEL)                                                             \
  KERNEL(Expand_AVX_CHW_Float_M1,   on_avx(expand(runtime::LayoutType::CHW, 1, fill::repeat_avx)))         \
  KERNEL(Expand_AVX_C8HW8_Float_M1, on_avx(expand(runtime::LayoutType::C8HW8, 8, fill::repeat_avx)))
// clang-format on

QRT_EXPAND_KERNELS_PORTABLE(QRT_KERNEL)
QRT_IF_SSE(QRT_EXPAND_KERNELS_SSE(QRT_KERNEL))
QRT_IF_AVX(QRT_EXPAND_KERNELS_AVX(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const ExpandRow*> expand_rows = {
    QRT_EXPAND_KERNELS_PORTABLE(QRT_KERNEL_ROW) QRT_IF_SSE(QRT_EXPAND_KERNELS_SSE(QRT_KERNEL_ROW))
        QRT_IF_AVX(QRT_EXPAND_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
