#pragma once

#include <vector>

#include "qrt_core/kernel/kernel_class.h"

// Reductions of FLOAT32 tensors over any axes.

namespace marlo::kernel {

class AxisReductionKernel;

struct AxisReductionRow : KernelRow {
  using Family = AxisReductionKernel;
};

/// See `runtime::AxisReductionInfo`. Sums are doubles, taken in the order of the elements.
class AxisReductionKernel : public KernelFamily {
 public:
  explicit AxisReductionKernel(const AxisReductionRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;

 private:
  bool reduced_axes(size_t rank, std::vector<bool>& reduced) const;

  const AxisReductionRow& row_;
  uint32_t function_ = 0;
  std::vector<int32_t> axes_;
  bool keep_dims_ = true;
};

#define QRT_AXIS_REDUCTION_KERNELS(KERNEL) \
  KERNEL(AxisReduction_Fallback_Float_M1, (AxisReductionRow{}))

QRT_AXIS_REDUCTION_KERNELS(QRT_KERNEL)

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const AxisReductionRow*> axis_reduction_rows = {
    QRT_AXIS_REDUCTION_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
