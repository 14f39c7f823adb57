#pragma once

#include <cstdint>
#include <vector>

#include "qrt_core/kernel/kernel_class.h"

// The kernel that stands in for a layer without an implementation.

namespace marlo::kernel {

class Placeholder;

struct PlaceholderRow : KernelRow {
  using Family = Placeholder;
};

/// Makes a FLOAT32 CHW tensor of the dims "output_shape" that holds 128 everywhere, whatever the
/// input, so that a network can be exercised.
class Placeholder : public KernelFamily {
 public:
  static constexpr bool kTakesAnyInputs = true;

  explicit Placeholder(const PlaceholderRow&) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;

  /// Looks at the first tensor only.
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const { return CheckInputs(tensors); }
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;

 private:
  std::vector<uint16_t> output_shape_;
};

#define QRT_PLACEHOLDER_KERNELS(KERNEL) \
  KERNEL(LayerPlaceholder_Fallback_Float_M1, (PlaceholderRow{}))

QRT_PLACEHOLDER_KERNELS(QRT_KERNEL)

inline constexpr std::initializer_list<const PlaceholderRow*> placeholder_rows = {
    QRT_PLACEHOLDER_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
