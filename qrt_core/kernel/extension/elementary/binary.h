#pragma once

#include <vector>

#include "qrt_core/kernel/extension/axes.h"
#include "qrt_core/kernel/extension/elementary/binary_cores.h"
#include "qrt_core/kernel/kernel_class.h"

// Kernels over the elements of two FLOAT32 tensors whose dims broadcast.

namespace marlo::kernel {

class BinaryKernel;
struct BinarySpread;

struct BinaryRow : KernelRow {
  using Family = BinaryKernel;

  elementary::BinaryCore core = nullptr;  ///< runs along the last dims
  bool is_vector = false;                 ///< the core takes functions with a vector form alone
};

/// See `runtime::BinaryFunctionInfo`. Of the documented descriptions it takes
/// ElementWiseOperatorInfo and BroadcastOperatorInfo. Tensors in blocks broadcast along rows
/// and columns, and with tensors in the order of their dims that have one number for each channel or the same
/// numbers for all channels.
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
  bool spread_of(const Shapes& inputs, BinarySpread& spread) const;
  size_t inputs_needed() const { return has_constant_ ? 1 : 2; }

  const BinaryRow& row_;
  uint32_t function_ = 0;
  bool has_constant_ = false;
  bool constant_is_first_ = false;
  axes::Dims constant_dims_;
  std::vector<float> constant_;
};

constexpr BinaryRow binary(elementary::BinaryCore core, bool is_vector) {
  BinaryRow row;
  row.core = core;
  row.is_vector = is_vector;
  return row;
}

#define QRT_BINARY_KERNELS_PORTABLE(KERNEL) \
  KERNEL(Binary_Fallback_Float_M1, binary(elementary::binary_portable, false))
#define QRT_BINARY_KERNELS_FMA(KERNEL) \
  KERNEL(Binary_FMA_Float_M1, on_fma(binary(elementary::binary_fma, true)))
#define QRT_BINARY_KERNELS_AVX512(KERNEL) \
  KERNEL(Binary_AVX512_Float_M1, on_avx512(binary(elementary::binary_avx512, true)))

QRT_BINARY_KERNELS_PORTABLE(QRT_KERNEL)
QRT_IF_AVX(QRT_BINARY_KERNELS_FMA(QRT_KERNEL))
QRT_IF_AVX(QRT_BINARY_KERNELS_AVX512(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const BinaryRow*> binary_rows = {
    &rows::Binary_Fallback_Float_M1,
    QRT_IF_AVX(&rows::Binary_FMA_Float_M1, &rows::Binary_AVX512_Float_M1)};

}  // namespace marlo::kernel
