#pragma once

#include "qrt_core/kernel/extension/axes.h"
#include "qrt_core/kernel/extension/matrix/matrix_product_cores.h"
#include "qrt_core/kernel/kernel_class.h"

// Products of two tensors of matrices.

namespace marlo::kernel {

class MatMul;

struct MatMulRow : KernelRow {
  using Family = MatMul;

  matrix::ProductCores cores;  ///< product and panel
};

/// A MatMulInfo's product of two FLOAT32 tensors. The second one is packed in every pass.
class MatMul : public KernelFamily {
 public:
  static constexpr size_t kLeastInputs = 2;

  explicit MatMul(const MatMulRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);

  /// @throws std::runtime_error for dims that don't fit together
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;

  /// @throws std::runtime_error as `InferOutputShapes`
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;

 private:
  struct Sizes;

  Sizes sizes_of(const axes::Dims& a, const axes::Dims& b) const;

  const MatMulRow& row_;
  bool transpose_a_ = false;
  bool transpose_b_ = false;
  float alpha_ = 1.0f;
};

constexpr MatMulRow matmul(matrix::ProductCores cores) {
  MatMulRow row;
  row.cores = cores;
  return row;
}

#define QRT_MATMUL_KERNELS_PORTABLE(KERNEL) \
  KERNEL(MatMul_Fallback_Float_M1, matmul(matrix::kProductPortable))
#define QRT_MATMUL_KERNELS_FMA(KERNEL) \
  KERNEL(MatMul_FMA_Float_M1, on_fma(matmul(matrix::kProductFma)))
#define QRT_MATMUL_KERNELS_AVX512(KERNEL) \
  KERNEL(MatMul_AVX512_Float_M1, on_avx512(matmul(matrix::kProductAvx512)))

QRT_MATMUL_KERNELS_PORTABLE(QRT_KERNEL)
QRT_IF_AVX(QRT_MATMUL_KERNELS_FMA(QRT_KERNEL))
QRT_IF_AVX(QRT_MATMUL_KERNELS_AVX512(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const MatMulRow*> matmul_rows = {
    QRT_MATMUL_KERNELS_PORTABLE(QRT_KERNEL_ROW) QRT_IF_AVX(QRT_MATMUL_KERNELS_FMA(QRT_KERNEL_ROW))
        QRT_IF_AVX(QRT_MATMUL_KERNELS_AVX512(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
