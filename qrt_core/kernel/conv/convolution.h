#pragma once

#include <memory>

#include "qrt_core/kernel/conv/conv_cores.h"
#include "qrt_core/kernel/conv/conv_geometry.h"
#include "qrt_core/kernel/conv/fill.h"
#include "qrt_core/kernel/conv/padding.h"
#include "qrt_core/kernel/kernel_class.h"

// What all convolution kernels share: parameters, weights, tensor checks and the steps of a pass.
// A convolution adds onto bias or zero and has no activation of its own.

namespace marlo::kernel {

template <typename Geometry>
class Convolution;

/// What a kernel demands of the tensor on one of its sides. Data types that a check lets pass are
/// not always computed: a pass refuses FLOAT16, so that a configuration can fall back before it.
struct ConvolutionSide {
  runtime::LayoutType layout = runtime::LayoutType::CHW;  ///< of the tensor
  bool passes_half = false;    ///< the check accepts FLOAT16 beside FLOAT32
  bool tests_channels = true;  ///< the check compares the channels with the description
};

/// One convolution kernel: what it accepts, and the functions that its steps call.
template <typename Geometry>
struct ConvolutionRow : KernelRow {
  using Family = Convolution<Geometry>;
  using Params = typename Geometry::Params;
  using TensorPointer = std::shared_ptr<runtime::TensorCPU>;

  /// Whether the kernel can run these parameters.
  bool (*accepts)(const Params& params) = nullptr;
  ConvolutionSide input;   ///< what is asked of the input
  ConvolutionSide output;  ///< what is asked of the output
  /// The padded copy of the input, made on every pass; null for a core that needs none.
  TensorPointer (*pad)(const TensorPointer& input, const Params& params,
                       const std::shared_ptr<runtime::DeviceCPU>& device) = nullptr;
  /// The weights in the order in which the core reads them; null for a core that reads them as they
  /// come.
  TensorPointer (*pack)(TensorPointer weight, std::shared_ptr<runtime::DeviceCPU> device) = nullptr;
  /// Gives an output the bias of its channels; without a bias it is cleared.
  int (*fill_bias)(TensorPointer bias, TensorPointer output) = nullptr;
  /// The core starts from `ConvTask::bias` itself and writes every output that has weights, so that
  /// the step above is left out where all have.
  bool starts_from_bias = false;
  bool is_depthwise = false;      ///< the core computes one output channel for each group
  conv::Core core = nullptr;      ///< adds the products onto the output
  conv::Method method = nullptr;  ///< takes the place of `core` where scratch memory is needed
  /// Cuts the paddings off a result that is larger by them. Null for a result that is what it is.
  TensorPointer (*crop)(TensorPointer result, uint32_t left, uint32_t right, uint32_t top,
                        uint32_t bottom, std::shared_ptr<runtime::DeviceCPU> device) = nullptr;

  /// The same kernel with one layout on both sides.
  constexpr ConvolutionRow in_layout(runtime::LayoutType layout) const {
    ConvolutionRow row = *this;
    row.input.layout = row.output.layout = layout;
    return row;
  }
};

/// See `ConvolutionRow`. Immutable once configured.
template <typename Geometry>
class Convolution : public KernelFamily {
 public:
  using Row = ConvolutionRow<Geometry>;
  using Params = typename Geometry::Params;

  explicit Convolution(const Row& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;

 private:
  using TensorPointer = std::shared_ptr<runtime::TensorCPU>;

  runtime::TensorShape output_shape(const runtime::TensorShape& input) const;
  TensorPointer prepared_input(const Tensors& inputs, const Pass& pass) const;
  TensorPointer initial_output(const runtime::TensorShape& shape, const Pass& pass) const;
  ConvTask task_of(const runtime::TensorCPU& input, runtime::TensorCPU& output) const;
  TensorPointer cropped(TensorPointer result, const Pass& pass) const;

  const Row& row_;
  Params params_;
  TensorPointer weight_;
  TensorPointer bias_;  // empty without a bias
};

extern template class Convolution<PlaneGeometry>;
extern template class Convolution<TransposedGeometry>;
extern template class Convolution<LineGeometry>;
extern template class Convolution<ScatterGeometry>;

}  // namespace marlo::kernel
