#pragma once

#include <string>

#include "qrt_core/kernel/kernel_class.h"

// The kernel that samples a picture at positions given by a second tensor.

namespace marlo::kernel {

class GridSample;

struct GridSampleRow : KernelRow {
  using Family = GridSample;
};

/// Samples a picture [C, H, W] at the positions of a grid [H_out, W_out, 2], pairs of x and y from
/// -1 to 1, into [C, H_out, W_out]. Nearest and bilinear; outside the picture is 0 or its border.
class GridSample : public KernelFamily {
 public:
  static constexpr size_t kLeastInputs = 2;

  explicit GridSample(const GridSampleRow& row) : row_(row) {}

  /// @throws std::runtime_error for a mode or padding mode that has no word
  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits pass_refusals(const Shapes& inputs) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;

  /// Of the grid's shape it asks for three dims, and for a third of 2 only where there aren't
  /// three.
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;

  /// @throws std::runtime_error for tensors that aren't a picture and a grid
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;

 private:
  const GridSampleRow& row_;
  std::string mode_;
  std::string padding_mode_;
  bool align_corners_ = false;
};

#define QRT_GRID_SAMPLE_KERNELS(KERNEL) KERNEL(GridSample_Fallback_CHW_Float_M1, (GridSampleRow{}))

QRT_GRID_SAMPLE_KERNELS(QRT_KERNEL)

inline constexpr std::initializer_list<const GridSampleRow*> grid_sample_rows = {
    QRT_GRID_SAMPLE_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
