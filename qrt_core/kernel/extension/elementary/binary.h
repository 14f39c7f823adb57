#pragma once

#include <vector>

#include "qrt_core/kernel/extension/axes.h"
#include "qrt_core/kernel/extension/elementary/binary_cores.h"
#include "qrt_core/kernel/kernel_class.h"

// Kernels over the elements of two FLOAT32 tensors whose dims broadcast, and reductions.

namespace marlo::kernel {

class BinaryKernel;
class AxisReductionKernel;

struct BinaryRow : KernelRow {
  using Family = BinaryKernel;

  elementary::BinaryCore core = nullptr;  ///< runs along the last dims
  bool is_vector = false;                 ///< the core takes functions with a vector form alone
};

struct AxisReductionRow : KernelRow {
  using Family = AxisReductionKernel;
};

/// See `runtime::BinaryFunctionInfo`. Of the documented descriptions it takes
/// ElementWiseOperatorInfo and BroadcastOperatorInfo. Blocked tensors are taken where both have the
/// same dims and layout.
class BinaryKernel : public KernelFamily {
 public:
  explicit BinaryKernel(const BinaryRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);

  /// @throws std::runtime_error for dims that don't broadcast
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;

 private:
  bool result_of(const Shapes& inputs, runtime::TensorShape& result) const;
  size_t inputs_needed() const { return has_constant_ ? 1 : 2; }

  const BinaryRow& row_;
  uint32_t function_ = 0;
  bool has_constant_ = false;
  bool constant_is_first_ = false;
  axes::Dims constant_dims_;
  std::vector<float> constant_;
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

constexpr BinaryRow binary(elementary::BinaryCore core, bool is_vector) {
  BinaryRow row;
  row.core = core;
  row.is_vector = is_vector;
  return row;
}

#define QRT_BINARY_KERNELS_PORTABLE(KERNEL)                                    \
  KERNEL(Binary_Fallback_Float_M1, binary(elementary::binary_portable, false)) \
  KERNEL(AxisReduction_Fallback_Float_M1, (AxisReductionRow{}))
#define QRT_BINARY_KERNELS_FMA(KERNEL) \
  KERNEL(Binary_FMA_Float_M1, on_fma(binary(elementary::binary_fma, true)))
#define QRT_BINARY_KERNELS_AVX512(KERNEL) \
  KERNEL(Binary_AVX512_Float_M1, on_avx512(binary(elementary::binary_avx512, true)))

QRT_BINARY_KERNELS_PORTABLE(QRT_KERNEL)
QRT_IF_AVX(QRT_BINARY_KERNELS_FMA(QRT_KERNEL))
QRT_IF_AVX(QRT_BINARY_KERNELS_AVX512(QRT_KERNEL))

/// The rows of the kernels that this build contains, by family.
inline constexpr std::initializer_list<const BinaryRow*> binary_rows = {
    &rows::Binary_Fallback_Float_M1,
    QRT_IF_AVX(&rows::Binary_FMA_Float_M1, &rows::Binary_AVX512_Float_M1)};
inline constexpr std::initializer_list<const AxisReductionRow*> axis_reduction_rows = {
    &rows::AxisReduction_Fallback_Float_M1};

}  // namespace marlo::kernel
