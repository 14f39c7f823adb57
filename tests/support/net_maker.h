#pragma once

#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/engine/net.h"
#include "tests/support/counting_pool.h"
#include "tests/support/fake_kernel.h"

namespace marlo::test {

/// Makes networks of fake kernels by hand, on counting pools.
///
/// The kernel of layer i is named "i"; it adds up the first elements of its inputs.
class NetMaker {
 public:
  /// A layer that takes its tensor from the caller. @return its index
  uint32_t input() { return add("Input", {}); }

  /// A layer on earlier ones. @return its index
  uint32_t add(const std::vector<uint32_t>& sources) { return add("Activation", sources); }

  uint32_t add(const std::string& name, const std::vector<uint32_t>& sources) {
    const auto index = static_cast<uint32_t>(layers.size());
    auto layer = std::make_shared<runtime::Layer>();
    layer->name = name;
    layer->kernel = fake(std::to_string(index));
    for (uint32_t position = 0; position < sources.size(); ++position) {
      layer->inputs.emplace_back(sources[position], 0);
      layers[sources[position]]->consumers.emplace_back(index, position);
    }
    layers.push_back(std::move(layer));
    return index;
  }

  /// A chain: an input, and `length` - 1 layers that each read the one before.
  void chain(uint32_t length) {
    input();
    for (uint32_t i = 1; i < length; ++i) add({i - 1});
  }

  std::shared_ptr<FakeKernel> fake(const std::string& name) {
    return std::make_shared<FakeKernel>(name, calls);
  }

  FakeKernel& kernel(uint32_t index) { return static_cast<FakeKernel&>(*layers[index]->kernel); }

  runtime::Net net() const { return runtime::Net(layers, {}); }

  /// A tensor of one float from the static pool.
  std::shared_ptr<runtime::Tensor> number(float value) {
    return counting.device().CreateF32CMainMemory(1, &value);
  }

  std::unordered_map<unsigned int, runtime::Net::Tensors> run(
      const std::unordered_map<unsigned int, std::shared_ptr<runtime::Tensor>>& inputs,
      const std::vector<unsigned int>& output_ids, std::vector<float>* cpu_times = nullptr,
      std::vector<float>* gpu_times = nullptr) {
    return net().Forward(inputs, output_ids, counting.context, cpu_times, gpu_times);
  }

  std::vector<std::string> ran() const { return called(*calls, KernelCall::forward); }

  CountingContext counting;
  std::shared_ptr<KernelCalls> calls = std::make_shared<KernelCalls>();
  std::vector<std::shared_ptr<runtime::Layer>> layers;
};

/// The first element of a FLOAT32 tensor.
inline float first_of(const std::shared_ptr<runtime::Tensor>& tensor) {
  return *static_cast<const float*>(tensor->handle.cpu);
}

}  // namespace marlo::test
