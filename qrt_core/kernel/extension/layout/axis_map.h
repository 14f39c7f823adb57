#pragma once

#include <vector>

#include "qrt_core/kernel/extension/axes.h"
#include "qrt_core/kernel/kernel_class.h"
#include "qrt_core/runtime/model/extension_info.h"

// Kernels that move elements of FLOAT32 tensors: each output element is one of the input, or a
// constant, and where it comes from is decided axis by axis.

namespace marlo::kernel {

class AxisMapKernel;

/// Where an output's elements come from.
struct AxisMaps {
  axes::Dims dims;  ///< of the output, as its shape has them
  /// For each axis of the input the place of each place of the output; -1 for the constant. A dim of
  /// the output that several make up counts as one.
  std::vector<std::vector<int32_t>> places;
  float value = 0.0f;  ///< the constant
};

struct AxisMapRow : KernelRow {
  using Family = AxisMapKernel;

  /// Whether a description is the row's class and its members fit together.
  bool (*is_described)(const runtime::LayerInfo* info) = nullptr;
  /// The maps of an input. @return false for dims that the description doesn't fit
  bool (*map)(const runtime::LayerInfo& info, const axes::Dims& input, AxisMaps& maps) = nullptr;
  const char* description = nullptr;  ///< name of the class, for messages
};

/// See `AxisMapRow`. Moves numbers as they are; what lies in one piece moves in one piece.
class AxisMapKernel : public KernelFamily {
 public:
  explicit AxisMapKernel(const AxisMapRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;

 private:
  bool maps_of(const runtime::TensorShape& shape, AxisMaps& maps) const;

  const AxisMapRow& row_;
  std::shared_ptr<runtime::LayerInfo> info_;  // a copy of the description
};

/// @name Rows
/// @{
namespace axes {
bool is_pad(const runtime::LayerInfo* info);
bool map_pad(const runtime::LayerInfo& info, const Dims& input, AxisMaps& maps);
bool is_gather(const runtime::LayerInfo* info);
bool map_gather(const runtime::LayerInfo& info, const Dims& input, AxisMaps& maps);
bool is_broadcast_to(const runtime::LayerInfo* info);
bool map_broadcast_to(const runtime::LayerInfo& info, const Dims& input, AxisMaps& maps);
bool is_strided_slice(const runtime::LayerInfo* info);
bool map_strided_slice(const runtime::LayerInfo& info, const Dims& input, AxisMaps& maps);
}  // namespace axes

constexpr AxisMapRow axis_map(const char* description,
                              bool (*is_described)(const runtime::LayerInfo* info),
                              bool (*map)(const runtime::LayerInfo& info, const axes::Dims& input,
                                          AxisMaps& maps)) {
  AxisMapRow row;
  row.description = description;
  row.is_described = is_described;
  row.map = map;
  return row;
}

#define QRT_AXIS_MAP_KERNELS(KERNEL)                                                          \
  KERNEL(Pad_Fallback_Float_M1, axis_map("PadInfo", axes::is_pad, axes::map_pad))             \
  KERNEL(Gather_Fallback_Float_M1, axis_map("GatherInfo", axes::is_gather, axes::map_gather)) \
  KERNEL(BroadcastTo_Fallback_Float_M1,                                                       \
         axis_map("BroadcastToInfo", axes::is_broadcast_to, axes::map_broadcast_to))          \
  KERNEL(StridedSlice_Fallback_Float_M1,                                                      \
         axis_map("StridedSliceInfo", axes::is_strided_slice, axes::map_strided_slice))

QRT_AXIS_MAP_KERNELS(QRT_KERNEL)
/// @}

/// The rows of these kernels.
inline constexpr std::initializer_list<const AxisMapRow*> axis_map_rows = {
    QRT_AXIS_MAP_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
