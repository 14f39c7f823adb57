#pragma once

#include "qrt_core/kernel/kernel_class.h"
#include "qrt_core/kernel/tensor_checks.h"

// Kernels that hand their inputs on: the same tensor objects come out.

namespace marlo::kernel {

class PassThrough;

/// One kernel that hands its inputs on.
struct PassThroughRow : KernelRow {
  using Family = PassThrough;

  bool (*acceptable)(const runtime::IKernel::Tensors&) =
      nullptr;                   ///< what the tensor checks demand
  const char* inputs = nullptr;  ///< the same in words
};

/// See `PassThroughRow`.
class PassThrough : public KernelFamily {
 public:
  static constexpr bool kTakesAnyInputs = true;

  explicit PassThrough(const PassThroughRow& row) : row_(row) {}

  /// `Config` takes any description or parameter, and refuses a call without either.
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  int CheckInputs(const Tensors& tensors) const { return tensor_verdict(row_.acceptable(tensors)); }
  int CheckOutputs(const Tensors& tensors) const { return CheckInputs(tensors); }

  int Forward(const Tensors& inputs, Tensors& outputs, const Pass&) const {
    outputs = inputs;
    return runtime::KERNEL_OK;
  }

 private:
  const PassThroughRow& row_;
};

/// Whether a vector holds exactly one tensor, of whatever kind.
inline bool is_one_tensor(const runtime::IKernel::Tensors& tensors) { return tensors.size() == 1; }

/// A row whose kernel accepts any layer description.
constexpr PassThroughRow pass_through(bool (*acceptable)(const runtime::IKernel::Tensors&),
                                      const char* inputs) {
  PassThroughRow row;
  row.config_test = ConfigTest::inverted;
  row.input_use = runtime::InputUse::passes_on;
  row.acceptable = acceptable;
  row.inputs = inputs;
  return row;
}

// Input_Fallback_M1 is the kernel of input layers, Straight_Through_Fallback_M1 a layer without
// effect.
#define QRT_PASS_THROUGH_KERNELS(KERNEL)                                \
  KERNEL(Input_Fallback_M1, pass_through(&is_one_tensor, "one tensor")) \
  KERNEL(Straight_Through_Fallback_M1,                                  \
         pass_through(&is_one_in_main_memory, "one tensor in main memory"))

QRT_PASS_THROUGH_KERNELS(QRT_KERNEL)

inline constexpr std::initializer_list<const PassThroughRow*> pass_through_rows = {
    QRT_PASS_THROUGH_KERNELS(QRT_KERNEL_ROW)};

}  // namespace marlo::kernel
