#pragma once

#include <cstdint>
#include <vector>

#include "qrt_core/kernel/kernel_class.h"

// The kernel that transposes the axes of a tensor.

namespace marlo::kernel {

class Permute;

/// One permutation kernel.
struct PermuteRow : KernelRow {
  using Family = Permute;
};

/// Size i of the output is size axes[i] of the input; elements of any data type move along. The
/// output is FLEXIABLE. Where `outputs` holds a tensor already, that one is written and nothing is
/// appended.
class Permute : public KernelFamily {
 public:
  static constexpr bool kTakesAnyInputs = true;

  explicit Permute(const PermuteRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits pass_refusals(const Shapes& inputs) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const { return CheckInputs(tensors); }
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;

 private:
  const PermuteRow& row_;
  std::vector<uint32_t> axes_;
};

#define QRT_PERMUTE_KERNELS(KERNEL) KERNEL(Transform_MainMemory_Permute_Fallback, PermuteRow())

QRT_PERMUTE_KERNELS(QRT_KERNEL)

/// The rows of these kernels.
inline constexpr std::initializer_list<const PermuteRow*> permute_rows = {
    QRT_PERMUTE_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
