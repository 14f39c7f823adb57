#pragma once

#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/tensor/context.h"
#include "qrt_core/runtime/tensor/tensor.h"

namespace marlo::runtime {

class LayerInfo;
class InferenceParam;

/// Results of the slots that return integers.
enum KernelResult : int {
  KERNEL_OK = 0,             ///< success, or acceptable
  KERNEL_REFUSED = -1,       ///< `CheckConfig` refused, or `Forward` failed
  KERNEL_BAD_TENSOR = -2,    ///< `CheckInputs` or `CheckOutputs` refused
  KERNEL_HAS_NO_STATE = -4,  ///< `ResetState` has nothing to reset
};

/// One operator on one layout and instruction set.
///
/// A kernel is made empty by its factory, configured once with its layer's description, and then
/// run any number of times. It isn't reentrant and belongs to one thread at a time.
class IKernel {
 public:
  /// One tensor per input or output, in the order of the layer's positions.
  using Tensors = std::vector<std::shared_ptr<Tensor>>;

  IKernel() = default;
  IKernel(const IKernel&) = delete;
  IKernel& operator=(const IKernel&) = delete;
  virtual ~IKernel() = default;

  /// The class name, which is also the registry key.
  virtual std::string GetKernelName() = 0;

  /// Whether this kernel can run the described layer: 0 for yes, -1 for no. Changes nothing.
  ///
  /// The default is for kernels without a description: it accepts two empty pointers only.
  virtual int CheckConfig(std::shared_ptr<LayerInfo> info, std::shared_ptr<InferenceParam> param) {
    return info == nullptr && param == nullptr ? KERNEL_OK : KERNEL_REFUSED;
  }

  /// Takes the layer's parameters, packs its weights and makes tensors that last.
  /// @return false if the layer was refused; the kernel is then not configured
  virtual bool Config(std::shared_ptr<LayerInfo> info, std::shared_ptr<InferenceParam> param,
                      std::shared_ptr<Context> context) = 0;

  /// Whether the last `Config` succeeded.
  virtual bool IsConfigured() { return configured; }

  /// The shapes of the outputs for given shapes of the inputs. The default is a copy of these.
  virtual std::vector<TensorShape> InferOutputShapes(const std::vector<TensorShape>& shapes) {
    return shapes;
  }

  /// Called before each `Forward` of a pass; its result is ignored.
  /// @param context the pass's context
  /// @param inputs what `Forward` is about to get
  /// @param outputs empty; what is appended here stays, in front of what `Forward` appends
  /// @param transient whether the outputs may be recycled when the pass ends
  virtual int PrepareForward(const std::shared_ptr<Context>& context, Tensors& inputs,
                             bool& transient, Tensors& outputs) {
    (void)context, (void)inputs, (void)transient, (void)outputs;
    return KERNEL_OK;
  }

  /// Clears the state carried from pass to pass. @return 0, or -4 if the kernel has none
  virtual int ResetState() { return KERNEL_HAS_NO_STATE; }

  /// Whether `Forward` can take these inputs: 0 or -2. `Forward` itself trusts its caller.
  virtual int CheckInputs(const Tensors& tensors) = 0;

  /// Runs the operator and appends new tensors to `outputs`.
  /// @return 0
  /// @throws std::runtime_error for inputs that it can't read
  virtual int Forward(const Tensors& inputs, Tensors& outputs,
                      std::shared_ptr<Context> context) = 0;

  /// Whether these tensors are what `Forward` would make: 0 or -2.
  virtual int CheckOutputs(const Tensors& tensors) = 0;

 protected:
  bool configured = false;  ///< whether the last `Config` succeeded
};

}  // namespace marlo::runtime
