#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "qrt_core/kernel/conv/steps/conv_cores.h"
#include "qrt_core/kernel/conv/steps/conv_geometry.h"
#include "qrt_core/kernel/conv/steps/convolution_facts.h"
#include "qrt_core/kernel/kernel_class.h"
#include "qrt_core/kernel/layout/fill.h"

// What all convolution kernels share: parameters, weights, tensor checks and the steps of a pass.
// A convolution adds onto bias or zero and has no activation of its own.

namespace marlo::kernel {

template <typename Geometry>
class Convolution;

/// What a core reads.
enum class Margin {
  none,     ///< the input itself
  padding,  ///< a copy with the layer's paddings
  to_even,  ///< such a copy, with zeros to the right and below up to an even size
};

/// One convolution kernel: what it accepts, and what its steps do.
template <typename Geometry>
struct ConvolutionRow : KernelRow {
  using Family = Convolution<Geometry>;
  using Params = typename Geometry::Params;
  using TensorPointer = std::shared_ptr<runtime::TensorCPU>;

  Accepts accepts;               ///< the layers it takes
  ConvolutionSide input;         ///< what is asked of the input
  ConvolutionSide output;        ///< what is asked of the output
  Margin margin = Margin::none;  ///< what the core reads; a copy is made on every pass
  /// Floats behind the copy that the last vector of a row may reach; none for a core that reads
  /// number by number.
  uint32_t room = 16;
  /// A pass takes an input of any layout, as long as it has the dims. Padding doesn't.
  bool takes_any_layout = false;
  /// The weights in the order in which the core reads them; null for a core that reads them as they
  /// come.
  TensorPointer (*pack)(TensorPointer weight, std::shared_ptr<runtime::DeviceCPU> device) = nullptr;
  /// The same where the order depends on the layer; takes the place of `pack`.
  TensorPointer (*pack_for)(TensorPointer weight, const Params& params,
                            std::shared_ptr<runtime::DeviceCPU> device) = nullptr;
  fill::Core fill = nullptr;  ///< repeats the bias over an output; without one it is cleared
  /// The core starts from `ConvTask::bias` itself and writes every output that has weights, so that
  /// the step above is left out where all have.
  bool starts_from_bias = false;
  Computes computes = Computes::first_group;  ///< of the channels
  bool leaves_odd_ends = false;               ///< an odd last row and column stay as they begin
  /// Adds the products onto the output; in place it writes over its input, of which it reads each
  /// number before, and starts from the bias.
  conv::Core core = nullptr;
  conv::Method method = nullptr;  ///< takes the place of `core` where scratch memory is needed

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

  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits pass_refusals(const Shapes& inputs) const;
  Misfits differences(const LayerInfo& info, const Shapes& inputs) const;

 private:
  using TensorPointer = std::shared_ptr<runtime::TensorCPU>;

  // What the core reads: dims, and where the numbers are.
  struct Source {
    TensorPointer memory;
    std::vector<uint32_t> dims;
  };

  runtime::TensorShape output_shape(const runtime::TensorShape& input) const;
  void check_input(const Tensors& inputs) const;
  uint32_t computed_channels() const;
  Source source_of(TensorPointer input, runtime::DeviceCPU& device) const;
  TensorPointer initial_output(const runtime::TensorShape& shape, runtime::DeviceCPU& device) const;
  ConvTask task_of(const Source& source, runtime::TensorCPU& output) const;
  TensorPointer without(const Frame& frame, TensorPointer result, runtime::DeviceCPU& device) const;

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
