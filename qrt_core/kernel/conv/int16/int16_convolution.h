#pragma once

#include <memory>

#include "qrt_core/kernel/conv/steps/convolution_facts.h"
#include "qrt_core/kernel/kernel_class.h"

// The fixed-point 1x1 convolution. A number v of a tensor with step size s stands for v / 2^s.

namespace marlo::kernel {

namespace functional {

/// A fixed-point copy of a FLOAT32 tensor: INT16, with `step` fractional bits, each value rounded
/// to the nearest, halves away from zero, and limited to 16 bits.
/// @throws std::runtime_error if `device` gives no tensor
std::shared_ptr<runtime::TensorCPU> Function_Tensor_Float_To_Int16(
    std::shared_ptr<runtime::TensorCPU> tensor, uint16_t step,
    std::shared_ptr<runtime::DeviceCPU> device);

}  // namespace functional

/// Gives every pixel of block b the eight values of `bias` from 8 b on.
/// @return 0, or -2 unless both are INT16 in main memory, of layouts GN and C8HW8
int FillBias_C8HW8_Int16_SSE(std::shared_ptr<runtime::TensorCPU> bias,
                             std::shared_ptr<runtime::TensorCPU> output);

/// Clears a tensor. @return 0, or -2 unless it is INT16 in main memory
int FillZero_Int16(std::shared_ptr<runtime::TensorCPU> output);

class Int16Convolution;

struct Int16ConvolutionRow : KernelRow {
  using Family = Int16Convolution;

  Accepts accepts = in_blocks_of(8, window_of(1, 1, 1, Paddings::none));  ///< the layers it takes
};

/// Over C8HW8 tensors of step sizes from 8 to 12. Products are scaled by the weights' step alone,
/// so that the output has the input's step; bias and output are labelled with the parameter's, and
/// it is up to the model that the two are equal.
class Int16Convolution : public KernelFamily {
 public:
  explicit Int16Convolution(const Int16ConvolutionRow& row) : row_(row) {}

  /// Takes an `InferenceParamConv2DQuant` with both steps from 8 to 12.
  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;

  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits differences(const LayerInfo& info, const Shapes& inputs) const;

 private:
  const Int16ConvolutionRow& row_;
  Conv2dParams params_;
  uint16_t weight_step_size_ = 8;
  uint16_t output_step_size_ = 11;
  std::shared_ptr<runtime::TensorCPU> weight_;
  std::shared_ptr<runtime::TensorCPU> bias_;  // empty without a bias
};

#define QRT_INT16_KERNELS_SSE(KERNEL) \
  KERNEL(Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1, (Int16ConvolutionRow{}))

QRT_IF_SSE(QRT_INT16_KERNELS_SSE(QRT_KERNEL))

inline constexpr std::initializer_list<const Int16ConvolutionRow*> int16_convolution_rows = {
    QRT_IF_SSE(QRT_INT16_KERNELS_SSE(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
