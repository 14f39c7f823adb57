#pragma once

#include <cstdint>
#include <vector>

#include "qrt_core/kernel/kernel_class.h"

// Kernels that give planar data any other dims. The bytes stay as they stand, copied or in place: a
// blocked input keeps its block order.

namespace marlo::kernel {

class Reshape;

/// What the first entry of "new_shape", the batch, may be.
enum class BatchEntry {
  any,
  one,  ///< anything else throws
};

/// What `CheckOutputs` compares the dims of an output with.
enum class OutputRank {
  without_batch,          ///< the entries of "new_shape" behind the batch
  with_or_without_batch,  ///< these, or all entries; the value of a batch isn't looked at
};

/// One reshape kernel.
struct ReshapeRow : KernelRow {
  using Family = Reshape;

  runtime::LayoutType layout = runtime::LayoutType::FLEXIABLE;  ///< of the output
  BatchEntry batch = BatchEntry::any;                           ///< what "new_shape" may begin with
  OutputRank output_rank = OutputRank::with_or_without_batch;   ///< for its check
};

/// See `ReshapeRow`.
///
/// The output's dims are the entries of "new_shape" behind the first. An entry of zero or less
/// becomes the element count divided by the product of all positive entries. A new shape of fewer
/// elements takes the first ones; one of more throws.
class Reshape : public KernelFamily {
 public:
  explicit Reshape(const ReshapeRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits pass_refusals(const Shapes& inputs) const;
  Misfits differences(const LayerInfo& info, const Shapes& inputs) const;

 private:
  const ReshapeRow& row_;
  std::vector<int32_t> entries_;  // of "new_shape"
  uint64_t known_ = 1;            // product of the positive entries, stopped beyond 32 bits
};

/// A reshape to a layout.
constexpr ReshapeRow reshape_to(runtime::LayoutType layout) {
  ReshapeRow row;
  row.layout = layout;
  return row;
}

/// A reshape to a sequence of vectors, which has no batch.
constexpr ReshapeRow reshape_to_sequence() {
  ReshapeRow row = reshape_to(runtime::LayoutType::SC);
  row.batch = BatchEntry::one;
  return row;
}

/// A reshape to no layout in particular.
constexpr ReshapeRow reshape_freely() {
  ReshapeRow row;
  row.output_rank = OutputRank::without_batch;
  return row;
}

#define QRT_RESHAPE_KERNELS(KERNEL)                                        \
  KERNEL(Reshape_Fallback_To_C_M1, reshape_to(runtime::LayoutType::C))     \
  KERNEL(Reshape_Fallback_To_CHW_M1, reshape_to(runtime::LayoutType::CHW)) \
  KERNEL(Reshape_Fallback_To_SC_M1, reshape_to_sequence())                 \
  KERNEL(Transform_MainMemory_Reshape_Fallback, reshape_freely())

QRT_RESHAPE_KERNELS(QRT_KERNEL)

/// The rows of these kernels.
inline constexpr std::initializer_list<const ReshapeRow*> reshape_rows = {
    QRT_RESHAPE_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
