#pragma once

#include <vector>

#include "qrt_core/kernel/extension/axes.h"
#include "qrt_core/kernel/extension/layout/resampling_cores.h"
#include "qrt_core/kernel/kernel_class.h"

// Kernels that resample FLOAT32 tensors along any axes.

namespace marlo::kernel {

class ResizeKernel;

struct ResizeRow : KernelRow {
  using Family = ResizeKernel;

  resize::Core core = resize::resample_portable;  ///< resamples one axis
  bool takes_blocks = false;  ///< tensors in blocks as well, whose channels stay
};

/// See `runtime::ResizeInfo`. Axes are resampled one after the other from the first to the last,
/// rounded in between; those that keep their size and their places are left out. What each place reads is
/// worked out in the first pass, and again where sizes change.
class ResizeKernel : public KernelFamily {
 public:
  explicit ResizeKernel(const ResizeRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass);
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;

 private:
  /// What the places of an axis read.
  struct Table {
    uint32_t in = 0;
    uint32_t out = 0;
    std::vector<resize::Tap> taps;
    std::vector<uint32_t> ends;  // of each place's taps
  };

  bool sizes_of(const axes::Dims& input, axes::Dims& output) const;
  bool dims_of(const runtime::TensorShape& input, axes::Dims& output) const;
  double scale_of(size_t axis, uint32_t in, uint32_t out) const;
  void add_taps(double place, double last, std::vector<resize::Tap>& taps) const;
  const Table& table_of(size_t axis, uint32_t in, uint32_t out);

  const ResizeRow& row_;
  uint32_t mode_ = 0;
  uint32_t places_ = 0;
  uint32_t nearest_ = 0;
  double cubic_ = -0.75;
  bool exclude_outside_ = false;
  std::vector<uint32_t> sizes_;
  std::vector<float> scales_;
  std::vector<Table> tables_;  // by axis
};

constexpr ResizeRow resampling(resize::Core core, bool takes_blocks) {
  ResizeRow row;
  row.core = core;
  row.takes_blocks = takes_blocks;
  return row;
}

#define QRT_RESIZE_KERNELS_PORTABLE(KERNEL) \
  KERNEL(Resize_Fallback_Float_M1, resampling(resize::resample_portable, false))
#define QRT_RESIZE_KERNELS_AVX(KERNEL) \
  KERNEL(Resize_AVX_Float_M1, on_avx(resampling(resize::resample_avx, true)))

QRT_RESIZE_KERNELS_PORTABLE(QRT_KERNEL)
QRT_IF_AVX(QRT_RESIZE_KERNELS_AVX(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const ResizeRow*> resize_rows = {
    QRT_RESIZE_KERNELS_PORTABLE(QRT_KERNEL_ROW) QRT_IF_AVX(QRT_RESIZE_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
