#pragma once

#include <vector>

#include "qrt_core/kernel/extension/elementary/reduction_cores.h"
#include "qrt_core/kernel/kernel_class.h"

// Reductions of FLOAT32 tensors over any axes.

namespace marlo::kernel {

class AxisReductionKernel;

struct AxisReductionRow : KernelRow {
  using Family = AxisReductionKernel;

  elementary::ReductionCore core = nullptr;  ///< reduces rows
  bool is_vector = false;                    ///< the core takes functions with a vector form alone
};

/// See `runtime::AxisReductionInfo`. Sums are doubles, in an order that is the core's.
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

constexpr AxisReductionRow axis_reduction(elementary::ReductionCore core, bool is_vector) {
  AxisReductionRow row;
  row.core = core;
  row.is_vector = is_vector;
  return row;
}

#define QRT_AXIS_REDUCTION_KERNELS_PORTABLE(KERNEL) \
  KERNEL(AxisReduction_Fallback_Float_M1, axis_reduction(elementary::reduce_portable, false))
#define QRT_AXIS_REDUCTION_KERNELS_FMA(KERNEL) \
  KERNEL(AxisReduction_FMA_Float_M1, on_fma(axis_reduction(elementary::reduce_fma, true)))
#define QRT_AXIS_REDUCTION_KERNELS_AVX512(KERNEL) \
  KERNEL(AxisReduction_AVX512_Float_M1, on_avx512(axis_reduction(elementary::reduce_avx512, true)))

QRT_AXIS_REDUCTION_KERNELS_PORTABLE(QRT_KERNEL)
QRT_IF_AVX(QRT_AXIS_REDUCTION_KERNELS_FMA(QRT_KERNEL))
QRT_IF_AVX(QRT_AXIS_REDUCTION_KERNELS_AVX512(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const AxisReductionRow*> axis_reduction_rows = {
    &rows::AxisReduction_Fallback_Float_M1,
    QRT_IF_AVX(&rows::AxisReduction_FMA_Float_M1, &rows::AxisReduction_AVX512_Float_M1)};

}  // namespace marlo::kernel
