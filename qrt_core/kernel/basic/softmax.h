#pragma once

#include "qrt_core/kernel/kernel_class.h"

// The kernel that normalises exponentials along an axis.

namespace marlo::kernel {

class Softmax;

struct SoftmaxRow : KernelRow {
  using Family = Softmax;
};

/// exp(x) / sum of exp over the axis "dim" - 1, the batch axis counted in "dim". Exponentials are
/// floats, their sum a double, taken in order. The maximum isn't subtracted: above about 88 an
/// exponential is infinite.
class Softmax : public KernelFamily {
 public:
  explicit Softmax(const SoftmaxRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits pass_refusals(const Shapes& inputs) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);

  /// Looks at the first tensor only.
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const { return CheckInputs(tensors); }

  /// @throws std::runtime_error for an axis that the input doesn't have
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;

 private:
  const SoftmaxRow& row_;
  uint32_t dim_ = 0;
};

#define QRT_SOFTMAX_KERNELS(KERNEL) KERNEL(Softmax_Fallback_Float_M1, (SoftmaxRow{}))

QRT_SOFTMAX_KERNELS(QRT_KERNEL)

inline constexpr std::initializer_list<const SoftmaxRow*> softmax_rows = {
    QRT_SOFTMAX_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
