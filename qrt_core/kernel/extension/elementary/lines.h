#pragma once

#include <vector>

#include "qrt_core/kernel/extension/elementary/line_cores.h"
#include "qrt_core/kernel/kernel_class.h"

// Kernels that normalise FLOAT32 tensors along axes: softmax, layer and group normalisation.

namespace marlo::kernel {

class AxisSoftmax;
class LayerNorm;
class GroupNorm;

struct AxisSoftmaxRow : KernelRow {
  using Family = AxisSoftmax;

  elementary::LineCores cores;  ///< what computes it
};

struct LayerNormRow : KernelRow {
  using Family = LayerNorm;

  elementary::LineCores cores;  ///< what computes it
};

struct GroupNormRow : KernelRow {
  using Family = GroupNorm;

  elementary::LineCores cores;  ///< what computes it
};

/// Softmax along an axis, less the largest number of each line. Of the documented descriptions it
/// takes SoftmaxInfo.
class AxisSoftmax : public KernelFamily {
 public:
  explicit AxisSoftmax(const AxisSoftmaxRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const { return CheckInputs(tensors); }
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;

 private:
  const AxisSoftmaxRow& row_;
  int32_t axis_ = 0;
  bool logarithm_ = false;
};

/// What the two normalisations hold.
class LineNorm : public KernelFamily {
 protected:
  /// Reads what a description holds: factors and shifts as Base64 of floats, or nothing.
  void take(float eps, const std::string& scale, const std::string& shift);

  float eps_ = 0.0f;          ///< added to the variance
  std::vector<float> scale_;  ///< empty for 1
  std::vector<float> shift_;  ///< empty for 0
};

/// See `runtime::LayerNormInfo`.
class LayerNorm : public LineNorm {
 public:
  explicit LayerNorm(const LayerNormRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const { return CheckInputs(tensors); }
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;

 private:
  bool fits(const runtime::TensorShape& shape) const;

  const LayerNormRow& row_;
  int32_t axis_ = 0;
};

/// See `runtime::GroupNormInfo`. Of the documented descriptions it takes InstanceNorm2dInfo, as
/// groups of one channel, unless it tracks running statistics.
class GroupNorm : public LineNorm {
 public:
  explicit GroupNorm(const GroupNormRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const { return CheckInputs(tensors); }
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;

 private:
  bool fits(const runtime::TensorShape& shape) const;

  const GroupNormRow& row_;
  uint32_t groups_ = 0;  // 0: as many as channels
};

/// A row of these families.
template <typename Row>
constexpr Row over_lines(elementary::LineCores cores) {
  Row row;
  row.cores = cores;
  return row;
}

#define QRT_LINE_KERNELS(KERNEL, set, on_set, cores)                                          \
  KERNEL(AxisSoftmax_##set##_Float_M1, on_set(over_lines<AxisSoftmaxRow>(elementary::cores))) \
  KERNEL(AxisSoftmax_Inplace_##set##_Float_M1,                                                \
         in_place(on_set(over_lines<AxisSoftmaxRow>(elementary::cores))))                     \
  KERNEL(LayerNorm_##set##_Float_M1, on_set(over_lines<LayerNormRow>(elementary::cores)))     \
  KERNEL(GroupNorm_##set##_Float_M1, on_set(over_lines<GroupNormRow>(elementary::cores)))
#define QRT_LINE_KERNELS_PORTABLE(KERNEL) QRT_LINE_KERNELS(KERNEL, Fallback, , kLinesPortable)
#define QRT_LINE_KERNELS_FMA(KERNEL) QRT_LINE_KERNELS(KERNEL, FMA, on_fma, kLinesFma)
#define QRT_LINE_KERNELS_AVX512(KERNEL) QRT_LINE_KERNELS(KERNEL, AVX512, on_avx512, kLinesAvx512)

QRT_LINE_KERNELS_PORTABLE(QRT_KERNEL)
QRT_IF_AVX(QRT_LINE_KERNELS_FMA(QRT_KERNEL))
QRT_IF_AVX(QRT_LINE_KERNELS_AVX512(QRT_KERNEL))

/// The rows of the kernels that this build contains, by family.
inline constexpr std::initializer_list<const AxisSoftmaxRow*> axis_softmax_rows = {
    &rows::AxisSoftmax_Fallback_Float_M1, &rows::AxisSoftmax_Inplace_Fallback_Float_M1,
    QRT_IF_AVX(&rows::AxisSoftmax_FMA_Float_M1, &rows::AxisSoftmax_Inplace_FMA_Float_M1,
               &rows::AxisSoftmax_AVX512_Float_M1, &rows::AxisSoftmax_Inplace_AVX512_Float_M1)};
inline constexpr std::initializer_list<const LayerNormRow*> layer_norm_rows = {
    &rows::LayerNorm_Fallback_Float_M1,
    QRT_IF_AVX(&rows::LayerNorm_FMA_Float_M1, &rows::LayerNorm_AVX512_Float_M1)};
inline constexpr std::initializer_list<const GroupNormRow*> group_norm_rows = {
    &rows::GroupNorm_Fallback_Float_M1,
    QRT_IF_AVX(&rows::GroupNorm_FMA_Float_M1, &rows::GroupNorm_AVX512_Float_M1)};

}  // namespace marlo::kernel
