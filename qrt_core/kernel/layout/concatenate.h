#pragma once

#include "qrt_core/kernel/kernel_class.h"

// Kernels that join tensors along an axis.

namespace marlo::kernel {

class ChannelConcatenate;
class AxisConcatenate;

/// The kernel that joins tensors along their outermost axis.
struct ChannelConcatenateRow : KernelRow {
  using Family = ChannelConcatenate;
};

/// Joins CHW, C4HW4 or C8HW8 tensors along the channels, which are outermost in all three: each
/// input is one copy. "dim" is 1, the batch axis counted.
class ChannelConcatenate : public KernelFamily {
 public:
  explicit ChannelConcatenate(const ChannelConcatenateRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits pass_refusals(const Shapes& inputs) const;
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;

  /// @throws std::runtime_error for inputs that don't fill the output exactly
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;

 private:
  const ChannelConcatenateRow& row_;
};

/// The kernel that joins tensors along any axis.
struct AxisConcatenateRow : KernelRow {
  using Family = AxisConcatenate;
};

/// Joins two or more tensors of any type and layout along the axis "dim", an index of their dims
/// without a batch axis. The output has type, layout, location and extra of input 0.
class AxisConcatenate : public KernelFamily {
 public:
  static constexpr bool kTakesAnyInputs = true;

  explicit AxisConcatenate(const AxisConcatenateRow&) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);

  /// @throws std::runtime_error for dims that differ elsewhere than at the axis
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;

  /// @throws std::runtime_error for inputs that `CheckInputs` refuses
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;

 private:
  size_t axis_ = 0;
};

#define QRT_CHANNEL_CONCATENATE_KERNELS(KERNEL) \
  KERNEL(Concatenate_C_Fallback_CnHWn_M1, (ChannelConcatenateRow{}))

#define QRT_AXIS_CONCATENATE_KERNELS(KERNEL) \
  KERNEL(Concatenate_MainMemory_Fallback, (AxisConcatenateRow{}))

QRT_CHANNEL_CONCATENATE_KERNELS(QRT_KERNEL)
QRT_AXIS_CONCATENATE_KERNELS(QRT_KERNEL)

inline constexpr std::initializer_list<const ChannelConcatenateRow*> channel_concatenate_rows = {
    QRT_CHANNEL_CONCATENATE_KERNELS(QRT_KERNEL_ROW)};
inline constexpr std::initializer_list<const AxisConcatenateRow*> axis_concatenate_rows = {
    QRT_AXIS_CONCATENATE_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
