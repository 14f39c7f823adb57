#pragma once

#include "qrt_core/kernel/extension/layout/resize.h"
#include "qrt_core/runtime/model/extension_info.h"

// Kernels that resample a tensor to sizes that another one has.

namespace marlo::kernel {

class ResizeLikeKernel;

struct ResizeLikeRow : KernelRow {
  using Family = ResizeLikeKernel;

  ResizeRow resize;  ///< what computes it, under the name of this row
};

/// See `runtime::ResizeLikeInfo`: what a `ResizeKernel` makes whose sizes are the second tensor's. Dims of
/// tensors in blocks count as those of planes.
class ResizeLikeKernel : public KernelFamily {
 public:
  static constexpr size_t kLeastInputs = 2;

  explicit ResizeLikeKernel(const ResizeLikeRow& row) : row_(row), resize_(row.resize) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass);
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;

 private:
  bool sizes_of(const runtime::TensorShape& input, const runtime::TensorShape& like,
                axes::Dims& sizes) const;
  runtime::ResizeInfo description_of(const axes::Dims& sizes) const;

  const ResizeLikeRow& row_;
  ResizeKernel resize_;
  axes::Dims sizes_;  // that it is configured for; empty for none
  runtime::ResizeLikeInfo info_;
};

constexpr ResizeLikeRow resize_like(const char* name, ResizeRow resize) {
  ResizeLikeRow row;
  row.resize = named(name, resize);
  return row;
}

#define QRT_RESIZE_LIKE_KERNELS_PORTABLE(KERNEL)                                   \
  KERNEL(ResizeLike_Fallback_Float_M1, resize_like("ResizeLike_Fallback_Float_M1", \
                                                   resampling(resize::resample_portable, false)))
#define QRT_RESIZE_LIKE_KERNELS_AVX(KERNEL) \
  KERNEL(ResizeLike_AVX_Float_M1,           \
         on_avx(resize_like("ResizeLike_AVX_Float_M1", resampling(resize::resample_avx, true))))

QRT_RESIZE_LIKE_KERNELS_PORTABLE(QRT_KERNEL)
QRT_IF_AVX(QRT_RESIZE_LIKE_KERNELS_AVX(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const ResizeLikeRow*> resize_like_rows = {
    QRT_RESIZE_LIKE_KERNELS_PORTABLE(QRT_KERNEL_ROW)
        QRT_IF_AVX(QRT_RESIZE_LIKE_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
