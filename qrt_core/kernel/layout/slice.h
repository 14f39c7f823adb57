#pragma once

#include <cstdint>
#include <vector>

#include "qrt_core/kernel/kernel_class.h"

// The kernel that cuts a strided box out of a CHW tensor.

namespace marlo::kernel {

class Slice;

struct SliceRow : KernelRow {
  using Family = Slice;
};

/// Takes channels, rows and columns from start to below end in steps. "slice_dims" holds start, end
/// and step of each; a dimension of the result has (end - start) / step entries, rounded down.
class Slice : public KernelFamily {
 public:
  explicit Slice(const SliceRow& row) : row_(row) {}

  /// Refuses the ordinary case of a start below its end, and of several triples looks only at every
  /// third. `Config` doesn't follow it.
  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);

  /// @throws std::runtime_error for a triple that takes nothing sensible
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const { return CheckInputs(tensors); }

  /// @throws std::runtime_error for triples that reach outside the input
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits pass_refusals(const Shapes& inputs) const;

 private:
  bool stays_inside(size_t axis, size_t count, size_t size) const;

  const SliceRow& row_;
  std::vector<int16_t> triples_;
};

#define QRT_SLICE_KERNELS(KERNEL) \
  KERNEL(Slice_Fallback_CHW_Float_M1, (SliceRow{{nullptr, ConfigTest::ignored}}))

QRT_SLICE_KERNELS(QRT_KERNEL)

inline constexpr std::initializer_list<const SliceRow*> slice_rows = {
    QRT_SLICE_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
