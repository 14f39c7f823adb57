#pragma once

#include <cstdint>
#include <vector>

#include "qrt_core/kernel/kernel_class.h"

// Kernels that reshape to a layout of known rank, and demand that the description says so. Out of
// blocked tensors they gather the channels back into the order of planes.

namespace marlo::kernel {

class RankedReshape;

/// What a ranked reshape reads.
enum class ReshapeSource {
  blocks_or_planes,          ///< CHW, C4HW4, C8HW8
  blocks_or_planes_by_rank,  ///< also FLEXIABLE, told apart by its dims
  anything,                  ///< copied as it stands
};

/// One ranked reshape kernel.
struct RankedReshapeRow : KernelRow {
  using Family = RankedReshape;

  size_t rank = 0;  ///< of the output; "new_shape" has one entry more in front, the batch
  runtime::LayoutType layout = runtime::LayoutType::C;  ///< of the output
  ReshapeSource source = ReshapeSource::anything;       ///< what it reads
  bool takes_half = false;       ///< whether the tensor checks accept FLOAT16
  bool takes_any_batch = false;  ///< whether a batch of -1 is read as 1
};

/// See `RankedReshapeRow`.
///
/// The entries of "new_shape" behind the batch are positive or -1, at most one of them -1, which
/// becomes what the element count leaves for it. A new shape of fewer elements takes the first ones
/// in the order of planes; one of more throws.
class RankedReshape : public KernelFamily {
 public:
  explicit RankedReshape(const RankedReshapeRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits pass_refusals(const Shapes& inputs) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;

 private:
  bool accepts_type(runtime::DataType type) const;
  bool accepts_layout(const runtime::TensorShape& shape) const;
  bool fits(uint32_t count) const;

  const RankedReshapeRow& row_;
  std::vector<int16_t> new_shape_;
};

/// To one vector, [element count].
constexpr RankedReshapeRow gather_to_vector() {
  RankedReshapeRow row;
  row.rank = 1;
  row.layout = runtime::LayoutType::C;
  row.source = ReshapeSource::blocks_or_planes;
  row.takes_half = true;
  row.takes_any_batch = true;
  return row;
}

/// To channels by length, [C, L].
constexpr RankedReshapeRow gather_to_lines() {
  RankedReshapeRow row;
  row.rank = 2;
  row.layout = runtime::LayoutType::CL;
  row.source = ReshapeSource::blocks_or_planes_by_rank;
  row.takes_half = true;
  return row;
}

/// To planes, [C, H, W], out of lines.
constexpr RankedReshapeRow lines_to_planes() {
  RankedReshapeRow row;
  row.rank = 3;
  row.layout = runtime::LayoutType::CHW;
  return row;
}

#define QRT_RANKED_RESHAPE_KERNELS(KERNEL)                   \
  KERNEL(Reshape_Fallback_CnHWn_To_C_M1, gather_to_vector()) \
  KERNEL(Reshape_Fallback_CnHWn_To_CL_M1, gather_to_lines()) \
  KERNEL(Reshape_Fallback_CL_To_CHW_M1, lines_to_planes())

QRT_RANKED_RESHAPE_KERNELS(QRT_KERNEL)

/// The rows of these kernels.
inline constexpr std::initializer_list<const RankedReshapeRow*> ranked_reshape_rows = {
    QRT_RANKED_RESHAPE_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
