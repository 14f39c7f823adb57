#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "qrt_core/qrt_core.h"

// Watching the kernels of a network from outside: the engine isn't involved.

namespace marlo::toolkit {

/// A kernel that hands every call on to another one. Derived classes look at what they want.
class KernelWrapper : public runtime::IKernel {
 public:
  using LayerInfoPointer = std::shared_ptr<runtime::LayerInfo>;
  using ParamPointer = std::shared_ptr<runtime::InferenceParam>;
  using ContextPointer = std::shared_ptr<runtime::Context>;
  using Shapes = std::vector<runtime::TensorShape>;

  explicit KernelWrapper(std::shared_ptr<IKernel> kernel) : kernel_(std::move(kernel)) {}

  std::string GetKernelName() override { return kernel_->GetKernelName(); }
  int CheckConfig(LayerInfoPointer info, ParamPointer param) override {
    return kernel_->CheckConfig(std::move(info), std::move(param));
  }
  bool Config(LayerInfoPointer info, ParamPointer param, ContextPointer context) override {
    return kernel_->Config(std::move(info), std::move(param), std::move(context));
  }
  bool IsConfigured() override { return kernel_->IsConfigured(); }
  Shapes InferOutputShapes(const Shapes& shapes) override {
    return kernel_->InferOutputShapes(shapes);
  }
  int PrepareForward(const ContextPointer& context, Tensors& inputs, bool& transient,
                     Tensors& outputs) override {
    return kernel_->PrepareForward(context, inputs, transient, outputs);
  }
  int ResetState() override { return kernel_->ResetState(); }
  int CheckInputs(const Tensors& tensors) override { return kernel_->CheckInputs(tensors); }
  int Forward(const Tensors& inputs, Tensors& outputs, ContextPointer context) override {
    return kernel_->Forward(inputs, outputs, std::move(context));
  }
  int CheckOutputs(const Tensors& tensors) override { return kernel_->CheckOutputs(tensors); }

  const std::shared_ptr<IKernel>& kernel() const { return kernel_; }

 private:
  std::shared_ptr<IKernel> kernel_;
};

/// What a kernel does in its layer.
enum class KernelRole { input_converter, own, output_converter };

/// Where a kernel stands in a network.
struct KernelPlace {
  uint32_t layer = 0;
  KernelRole role = KernelRole::own;
  uint32_t position = 0;  ///< of the input or output that a converter serves
};

/// The places of all kernels of a network, taken by others as long as this lives.
class KernelsTaken {
 public:
  using Kernel = std::shared_ptr<runtime::IKernel>;

  /// @param wrap makes what takes a kernel's place
  KernelsTaken(runtime::Net& net,
               const std::function<Kernel(const KernelPlace&, const Kernel&)>& wrap);
  KernelsTaken(const KernelsTaken&) = delete;
  KernelsTaken& operator=(const KernelsTaken&) = delete;
  ~KernelsTaken();

 private:
  std::vector<std::pair<Kernel*, Kernel>> taken_;  // places, and who stood there
};

}  // namespace marlo::toolkit
