#pragma once

#include <cstdint>
#include <functional>
#include <map>

#include "qrt_core/kernel/kernel_class.h"

// The kernel that combines two FLOAT32 tensors of different shapes.

namespace marlo::kernel {

/// An operator on two numbers.
using BroadcastFunction = std::function<float(const float& a, const float& b)>;

/// The operators by "op_type": 0 a + b, 1 a - b, 2 a * b, 3 a / b, 4 maximum, 5 minimum; the last
/// two are b where either is a NaN.
///
/// A pass with another "op_type" enters an empty function under it, which is meant, and must not
/// run while other threads read the table.
extern std::map<uint16_t, BroadcastFunction> broadcast_functions;

class Broadcast;

/// One broadcasting kernel.
struct BroadcastRow : KernelRow {
  using Family = Broadcast;
};

/// Combines tensors whose dims, aligned at the last, are equal or 1. Any ranks and layouts.
class Broadcast : public KernelFamily {
 public:
  static constexpr size_t kLeastInputs = 2;

  explicit Broadcast(const BroadcastRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits pass_refusals(const Shapes& inputs) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  /// @throws std::bad_function_call for an "op_type" that isn't in the table
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;

 private:
  const BroadcastRow& row_;
  uint16_t op_type_ = 0;
};

#define QRT_BROADCAST_KERNELS(KERNEL) KERNEL(BroadcastOperator_Fallback_Float_M1, BroadcastRow())

QRT_BROADCAST_KERNELS(QRT_KERNEL)

inline constexpr std::initializer_list<const BroadcastRow*> broadcast_rows = {
    QRT_BROADCAST_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
