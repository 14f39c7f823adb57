#pragma once

#include "qrt_core/kernel/basic/adaptive_pooling_cores.h"
#include "qrt_core/kernel/kernel_class.h"

// Average pooling of FLOAT32 planes to a given size.

namespace marlo::kernel {

class AdaptivePooling;

/// One adaptive pooling kernel.
struct AdaptivePoolingRow : KernelRow {
  using Family = AdaptivePooling;

  runtime::LayoutType layout = runtime::LayoutType::CHW;              ///< of input and output
  pooling::WindowAverage average = pooling::window_average_portable;  ///< of a window
};

/// [C, H, W] to [C, "output_size"]. The window of output row i reaches from floor(i * s) to
/// ceil((i + 1) * s), with s = H / H_out in float, and columns likewise, so that neighbours may
/// overlap; a window ends with the plane where the rounding of s would take it one further. The sum
/// is divided by the window's height and then by its width. In blocks of channels likewise.
class AdaptivePooling : public KernelFamily {
 public:
  explicit AdaptivePooling(const AdaptivePoolingRow& row) : row_(row) {}

  /// Refuses a description without two sizes.
  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const { return CheckInputs(tensors); }
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;

 private:
  const AdaptivePoolingRow& row_;
  uint32_t height_ = 0;
  uint32_t width_ = 0;
};

#define QRT_ADAPTIVE_POOLING_KERNELS(KERNEL) \
  KERNEL(AdaptivePooling2D_Avg_Fallback_CHW_Float_M1, AdaptivePoolingRow())

QRT_ADAPTIVE_POOLING_KERNELS(QRT_KERNEL)

inline constexpr std::initializer_list<const AdaptivePoolingRow*> adaptive_pooling_rows = {
    QRT_ADAPTIVE_POOLING_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
