#pragma once

#include <vector>

#include "qrt_core/kernel/extension/axes.h"
#include "qrt_core/kernel/kernel_class.h"

// Kernels that resample FLOAT32 tensors along any axes.

namespace marlo::kernel {

class ResizeKernel;

struct ResizeRow : KernelRow {
  using Family = ResizeKernel;
};

/// See `runtime::ResizeInfo`. Axes are resampled one after the other from the first to the last,
/// rounded in between; those that keep their size and their places are left out.
class ResizeKernel : public KernelFamily {
 public:
  explicit ResizeKernel(const ResizeRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;

 private:
  /// What a place of the output reads along an axis.
  struct Tap {
    uint32_t place;
    float weight;
  };
  using Taps = std::vector<std::vector<Tap>>;

  bool sizes_of(const axes::Dims& input, axes::Dims& output) const;
  double scale_of(size_t axis, uint32_t in, uint32_t out) const;
  Taps taps_of(size_t axis, uint32_t in, uint32_t out) const;
  static void resample_rows(const Taps& taps, const float* from, size_t inner, size_t plane,
                            size_t planes, float* to);
  static void resample_lines(const Taps& taps, const float* from, size_t width, size_t lines,
                             float* to);

  const ResizeRow& row_;
  uint32_t mode_ = 0;
  uint32_t places_ = 0;
  uint32_t nearest_ = 0;
  double cubic_ = -0.75;
  bool exclude_outside_ = false;
  std::vector<uint32_t> sizes_;
  std::vector<float> scales_;
};

#define QRT_RESIZE_KERNELS(KERNEL) KERNEL(Resize_Fallback_Float_M1, (ResizeRow{}))

QRT_RESIZE_KERNELS(QRT_KERNEL)

/// The rows of these kernels.
inline constexpr std::initializer_list<const ResizeRow*> resize_rows = {
    QRT_RESIZE_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
