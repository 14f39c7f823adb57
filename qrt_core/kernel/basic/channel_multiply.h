#pragma once

#include "qrt_core/kernel/basic/channel_multiply_cores.h"
#include "qrt_core/kernel/kernel_class.h"

// Kernels that multiply a blocked feature map by a vector of its channels.

namespace marlo::kernel {

class ChannelMultiply;

/// One per-channel multiplication.
struct ChannelMultiplyRow : KernelRow {
  using Family = ChannelMultiply;

  runtime::LayoutType layout = runtime::LayoutType::CHW;  ///< of inputs and output
  uint32_t block = 0;                                     ///< channels of a pixel of this layout
  channel_multiply::Core core = nullptr;                  ///< multiplies
};

/// Multiplies [B, H, W, block] by [B, 1, 1, block], in either order. An input 0 of height 1 is the
/// vector, so that a map of height 1 stands second.
///
/// `CheckConfig` is -2 for an "op_type" other than multiplication, but `Config` accepts it, and
/// `Forward` multiplies all the same. Both are meant.
class ChannelMultiply : public KernelFamily {
 public:
  static constexpr size_t kLeastInputs = 2;

  explicit ChannelMultiply(const ChannelMultiplyRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits pass_refusals(const Shapes& inputs) const;
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits differences(const LayerInfo& info, const Shapes& inputs) const;

 private:
  bool is_blocked(const std::shared_ptr<runtime::Tensor>& tensor) const;
  bool belong_together(const runtime::TensorShape& vector, const runtime::TensorShape& map,
                       const runtime::TensorShape& output) const;

  const ChannelMultiplyRow& row_;
};

constexpr ChannelMultiplyRow channel_multiply_of(runtime::LayoutType layout, uint32_t block,
                                                 channel_multiply::Core core) {
  ChannelMultiplyRow row;
  row.layout = layout;
  row.block = block;
  row.core = core;
  return row;
}

// clang-format off
#define QRT_CHANNEL_MULTIPLY_KERNELS_AVX(KERNEL)                                                   \
  KERNEL(BroadcastOperator_C4114_Mul_C4HW4_AVX_Float_M1,                                           \
         on_avx(channel_multiply_of(runtime::LayoutType::C4HW4, 4, channel_multiply::multiply_c4_avx)))    \
  KERNEL(BroadcastOperator_C8118_Mul_C8HW8_AVX_Float_M1,                                           \
         on_avx(channel_multiply_of(runtime::LayoutType::C8HW8, 8, channel_multiply::multiply_c8_avx)))
// clang-format on

QRT_IF_AVX(QRT_CHANNEL_MULTIPLY_KERNELS_AVX(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const ChannelMultiplyRow*> channel_multiply_rows = {
    QRT_IF_AVX(QRT_CHANNEL_MULTIPLY_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
