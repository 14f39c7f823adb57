#pragma once

#include <memory>

#include "qrt_core/kernel/extension/matrix/matrix_product_cores.h"
#include "qrt_core/kernel/kernel_class.h"

// Full connections of the second set: of one vector, and of every vector along the last axis.

namespace marlo::kernel {

class Dense;

struct DenseRow : KernelRow {
  using Family = Dense;

  matrix::ProductCores cores;  ///< product and panel
  /// Takes a FullConnectionInfo and one vector, whose layout isn't compared, to a vector of layout
  /// C; otherwise a DenseInfo and any number of vectors.
  bool is_full_connection = false;
};

/// See `DenseRow`. Weights are packed when the layer is configured. Immutable then.
class Dense : public KernelFamily {
 public:
  explicit Dense(const DenseRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;

 private:
  bool fits(const runtime::TensorShape& shape) const;

  const DenseRow& row_;
  uint32_t in_features_ = 0;
  uint32_t out_features_ = 0;
  std::shared_ptr<runtime::TensorCPU> packed_;
  std::shared_ptr<runtime::TensorCPU> bias_;  // empty without a bias
};

constexpr DenseRow dense(matrix::ProductCores cores) {
  DenseRow row;
  row.cores = cores;
  return row;
}

constexpr DenseRow wide_full_connection(matrix::ProductCores cores) {
  DenseRow row = dense(cores);
  row.is_full_connection = true;
  return row;
}

#define QRT_DENSE_KERNELS_PORTABLE(KERNEL) \
  KERNEL(Dense_Fallback_Float_M1, dense(matrix::kProductPortable))
#define QRT_DENSE_KERNELS_FMA(KERNEL)                            \
  KERNEL(Dense_FMA_Float_M1, on_fma(dense(matrix::kProductFma))) \
  KERNEL(FullConnection_FMA_C_Float_M1, on_fma(wide_full_connection(matrix::kProductFma)))
#define QRT_DENSE_KERNELS_AVX512(KERNEL)                                  \
  KERNEL(Dense_AVX512_Float_M1, on_avx512(dense(matrix::kProductAvx512))) \
  KERNEL(FullConnection_AVX512_C_Float_M1, on_avx512(wide_full_connection(matrix::kProductAvx512)))

QRT_DENSE_KERNELS_PORTABLE(QRT_KERNEL)
QRT_IF_AVX(QRT_DENSE_KERNELS_FMA(QRT_KERNEL))
QRT_IF_AVX(QRT_DENSE_KERNELS_AVX512(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const DenseRow*> dense_rows = {
    QRT_DENSE_KERNELS_PORTABLE(QRT_KERNEL_ROW) QRT_IF_AVX(QRT_DENSE_KERNELS_FMA(QRT_KERNEL_ROW))
        QRT_IF_AVX(QRT_DENSE_KERNELS_AVX512(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
