#pragma once

#include <memory>
#include <vector>

#include "qrt_core/kernel/extension/axes.h"
#include "qrt_core/kernel/kernel_class.h"

// Kernels that give a constant, rows of a table, and the same elements under other dims.

namespace marlo::kernel {

class ConstantKernel;
class EmbeddingKernel;
class ReshapeToKernel;

struct ConstantRow : KernelRow {
  using Family = ConstantKernel;
};

struct EmbeddingRow : KernelRow {
  using Family = EmbeddingKernel;
};

struct ReshapeToRow : KernelRow {
  using Family = ReshapeToKernel;
};

/// See `runtime::ConstantInfo`. Every pass gets a tensor of its own, so that what is behind may
/// work in place.
class ConstantKernel : public KernelFamily {
 public:
  static constexpr bool kTakesAnyInputs = true;

  explicit ConstantKernel(const ConstantRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes&) const { return {shape_}; }
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;

 private:
  const ConstantRow& row_;
  runtime::TensorShape shape_;
  std::vector<float> values_;
};

/// See `runtime::EmbeddingInfo`. Numbers that are no row are refused in the pass; the part of a
/// FLOAT32 number behind the point is left out.
class EmbeddingKernel : public KernelFamily {
 public:
  explicit EmbeddingKernel(const EmbeddingRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;

  /// @throws std::runtime_error for a number that is no row
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;

 private:
  const EmbeddingRow& row_;
  uint32_t rows_ = 0;
  uint32_t width_ = 0;
  std::vector<float> table_;
};

/// See `runtime::ReshapeToInfo`. Copies, or gives its input the dims.
class ReshapeToKernel : public KernelFamily {
 public:
  explicit ReshapeToKernel(const ReshapeToRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;

 private:
  bool dims_of(const axes::Dims& input, axes::Dims& output) const;

  const ReshapeToRow& row_;
  std::vector<int32_t> dims_;
  runtime::LayoutType layout_ = runtime::LayoutType::FLEXIABLE;
};

#define QRT_TENSOR_KERNELS(KERNEL)                      \
  KERNEL(Constant_Fallback_Float_M1, (ConstantRow{}))   \
  KERNEL(Embedding_Fallback_Float_M1, (EmbeddingRow{})) \
  KERNEL(ReshapeTo_Fallback_Float_M1, (ReshapeToRow{})) \
  KERNEL(ReshapeTo_Inplace_Fallback_Float_M1, in_place(ReshapeToRow()))

QRT_TENSOR_KERNELS(QRT_KERNEL)

/// The rows of these kernels.
inline constexpr std::initializer_list<const KernelRow*> tensor_kernel_rows = {
    QRT_TENSOR_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
