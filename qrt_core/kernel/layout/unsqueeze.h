#pragma once

#include <cstdint>

#include "qrt_core/kernel/kernel_class.h"

// The kernel that inserts an axis of size 1.

namespace marlo::kernel {

class UnSqueeze;

/// One kernel that inserts an axis.
struct UnSqueezeRow : KernelRow {
  using Family = UnSqueeze;
};

/// The new axis stands at "dim", which counts as the model does, with a batch in front that tensors
/// here don't have: 1 is the first axis, and so is 0. Below zero it counts from behind, -1 being
/// the last. Layout and bytes stay.
class UnSqueeze : public KernelFamily {
 public:
  explicit UnSqueeze(const UnSqueezeRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits pass_refusals(const Shapes& inputs) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const { return CheckInputs(tensors); }
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;

 private:
  int64_t position_among(size_t dims) const;

  const UnSqueezeRow& row_;
  int16_t dim_ = 0;
};

#define QRT_UNSQUEEZE_KERNELS(KERNEL) KERNEL(UnSqueeze_Fallback_M1, UnSqueezeRow())

QRT_UNSQUEEZE_KERNELS(QRT_KERNEL)

/// The rows of these kernels.
inline constexpr std::initializer_list<const UnSqueezeRow*> unsqueeze_rows = {
    QRT_UNSQUEEZE_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
