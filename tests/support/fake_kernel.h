#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/engine/kernel.h"

namespace marlo::test {

/// One call that a fake kernel received.
struct KernelCall {
  enum Slot { config, prepare, forward };
  Slot slot;
  std::string kernel;
  bool transient = false;                    // of a call of `PrepareForward`
  std::vector<runtime::Tensor*> inputs;      // addresses only, so that the record keeps nothing
  std::shared_ptr<runtime::LayerInfo> info;  // of a call of `Config`
  std::shared_ptr<runtime::InferenceParam> param;
};

using KernelCalls = std::vector<KernelCall>;

/// A kernel that writes down its calls. Its output is one new tensor whose only element is the sum
/// of the inputs' first elements, plus `addend`, unless `run` says otherwise.
class FakeKernel final : public runtime::IKernel {
 public:
  using Run = std::function<int(const Tensors& inputs, Tensors& outputs, runtime::DeviceCPU&)>;

  FakeKernel(std::string name, std::shared_ptr<KernelCalls> calls)
      : name_(std::move(name)), calls_(std::move(calls)) {}

  std::string GetKernelName() override { return name_; }

  bool Config(std::shared_ptr<runtime::LayerInfo> info,
              std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context>) override {
    calls_->push_back({KernelCall::config, name_, false, {}, info, param});
    configured = !refuses;
    return configured;
  }

  int PrepareForward(const std::shared_ptr<runtime::Context>&, Tensors& inputs, bool& transient,
                     Tensors&) override {
    calls_->push_back({KernelCall::prepare, name_, transient, addresses(inputs), nullptr, nullptr});
    return prepare_result;
  }

  int CheckInputs(const Tensors&) override { return runtime::KERNEL_OK; }
  int CheckOutputs(const Tensors&) override { return runtime::KERNEL_OK; }

  int Forward(const Tensors& inputs, Tensors& outputs,
              std::shared_ptr<runtime::Context> context) override {
    calls_->push_back({KernelCall::forward, name_, false, addresses(inputs), nullptr, nullptr});
    if (run) return run(inputs, outputs, *context->cpu);
    float sum = addend;
    for (const auto& tensor : inputs) sum += *static_cast<float*>(tensor->handle.cpu);
    outputs.push_back(context->cpu->CreateF32CMainMemory(1, &sum));
    return runtime::KERNEL_OK;
  }

  float addend = 0.0f;
  bool refuses = false;    ///< whether `Config` returns false
  int prepare_result = 0;  ///< what `PrepareForward` returns
  Run run;

 private:
  static std::vector<runtime::Tensor*> addresses(const Tensors& tensors) {
    std::vector<runtime::Tensor*> result;
    for (const auto& tensor : tensors) result.push_back(tensor.get());
    return result;
  }

  std::string name_;
  std::shared_ptr<KernelCalls> calls_;
};

/// A registry of fake kernels that share one record of their calls.
class FakeRegistry {
 public:
  using Tweak = std::function<void(FakeKernel&)>;

  /// Enters a kernel; `tweak` is applied to each one made.
  FakeRegistry& add(const std::string& name, Tweak tweak = {}) {
    kernels.Register(
        name,
        [name, tweak, record = calls] {
          auto kernel = std::make_shared<FakeKernel>(name, record);
          if (tweak) tweak(*kernel);
          return kernel;
        },
        false);
    return *this;
  }

  runtime::KernelRegistry kernels;
  std::shared_ptr<KernelCalls> calls = std::make_shared<KernelCalls>();
};

/// The names of the kernels whose slot was called, in order.
inline std::vector<std::string> called(const KernelCalls& calls, KernelCall::Slot slot) {
  std::vector<std::string> names;
  for (const KernelCall& call : calls) {
    if (call.slot == slot) names.push_back(call.kernel);
  }
  return names;
}

/// The flag that each call of `PrepareForward` on the named kernel received.
inline std::vector<bool> transient_flags(const KernelCalls& calls, const std::string& kernel) {
  std::vector<bool> flags;
  for (const KernelCall& call : calls) {
    if (call.slot == KernelCall::prepare && call.kernel == kernel) flags.push_back(call.transient);
  }
  return flags;
}

}  // namespace marlo::test
