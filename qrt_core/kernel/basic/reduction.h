#pragma once

#include <cstdint>
#include <vector>

#include "qrt_core/kernel/kernel_class.h"

// The kernel that adds or averages a tensor over axes.

namespace marlo::kernel {

class Reduction;

/// One reduction kernel.
struct ReductionRow : KernelRow {
  using Family = Reduction;
};

/// Sums or means of a FLOAT32 tensor over the axes of "dim", one axis at a time from the highest,
/// each in float and in the source's order. Axes count a batch axis in front, so that those above 0
/// are one lower in a tensor; 0 is the first axis as well, and -1 the last.
///
/// `CheckConfig` refuses an empty list and one with several -1; `Config` accepts both, which is
/// meant. A pass over an empty list copies.
class Reduction : public KernelFamily {
 public:
  explicit Reduction(const ReductionRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  /// @throws std::runtime_error for an "arith_type" without a word
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const { return CheckInputs(tensors); }
  /// @throws std::runtime_error for an INT16 tensor, which the checks accept, and for a list that
  ///   names an axis twice, one that isn't there, or one of size 0
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits pass_refusals(const Shapes& inputs) const;

 private:
  enum class Operation { none, sum, mean };

  const ReductionRow& row_;
  std::vector<int16_t> axes_;
  Operation operation_ = Operation::none;
};

constexpr ReductionRow reduction() { return {{nullptr, ConfigTest::ignored}}; }

#define QRT_REDUCTION_KERNELS(KERNEL) KERNEL(TensorArithmetic_Fallback_M1, reduction())

QRT_REDUCTION_KERNELS(QRT_KERNEL)

inline constexpr std::initializer_list<const ReductionRow*> reduction_rows = {
    QRT_REDUCTION_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
