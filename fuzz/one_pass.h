#pragma once

#include <algorithm>
#include <cstdint>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "qrt_core/qrt_core.h"
#include "tests/support/processor.h"

// One pass of a network from a foreign file, with inputs of the size that it declares.

namespace marlo::fuzz {

/// Runs a step whose input may be refused: by an exception, never by anything else.
template <typename Step>
bool accepted(Step step) {
  try {
    step();
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

/// Whether this processor has what a kernel needs: which kernels run is the file's choice.
inline bool can_run(const std::string& kernel) {
  return test::processor_has(runtime::needs_of(kernel));
}

inline bool can_run(const runtime::Net& net) {
  const auto runs = [](const std::shared_ptr<runtime::IKernel>& kernel) {
    return kernel == nullptr || can_run(kernel->GetKernelName());
  };
  for (const auto& layer : net.layers) {
    bool all = runs(layer->kernel);
    for (const auto& [position, converter] : layer->input_converters) all = all && runs(converter);
    for (const auto& [position, converter] : layer->output_converters) all = all && runs(converter);
    if (!all) return false;
  }
  return true;
}

/// A pool that hands out so many bytes in all, however many of them come back: it bounds both the
/// memory and, since tensors are written once, the time of what runs on it.
class BudgetPool final : public runtime::MemoryPool {
 public:
  explicit BudgetPool(uint64_t budget) : budget_(budget) {}

  void* Allocate(uint64_t size) override {
    if (size > budget_) throw std::bad_alloc();
    budget_ -= size;
    return pool_.Allocate(size);
  }
  void Free(void* address) override { pool_.Free(address); }
  void ReleaseFreeBlocks() override { pool_.ReleaseFreeBlocks(); }
  uint64_t TotalBytes() override { return pool_.TotalBytes(); }

  void refill(uint64_t budget) { budget_ = budget; }

 private:
  runtime::AlignUpPool pool_{64};
  uint64_t budget_;
};

/// A context for foreign networks: weights of up to 64 MiB, and tensors of a pass of 128 KiB in
/// all.
class BudgetContext {
 public:
  static constexpr uint64_t kPassBytes = 128 * 1024;

  BudgetContext() {
    auto device = runtime::CreateDeviceCPU(runtime::DetectCPUDevice(), fixed_, nullptr, passing_);
    context =
        runtime::CreateContext(std::move(device), nullptr, nullptr, nullptr, nullptr, nullptr);
  }

  /// As many bytes for the next pass and its inputs as there were for the last.
  void refill() {
    fixed_->refill(kPassBytes);
    passing_->refill(kPassBytes);
    context->cpu->dynamic_mode = false;  // a pass that throws leaves it on
  }

 private:
  std::shared_ptr<BudgetPool> fixed_ = std::make_shared<BudgetPool>(uint64_t{64} << 20);
  std::shared_ptr<BudgetPool> passing_ = std::make_shared<BudgetPool>(kPassBytes);

 public:
  std::shared_ptr<runtime::Context> context;
};

/// The channels or features that the first reader of an input demands; 1 where none does.
inline uint32_t demanded_channels(const runtime::QRModelInfo& info, const std::string& input) {
  for (const std::string& id : info.squential_ids) {
    const auto found = info.layers.find(id);
    if (found == info.layers.end() || found->second == nullptr) continue;
    const runtime::LayerInfo* layer = found->second.get();
    const std::vector<std::string>& sources = layer->input_ids;
    if (std::find(sources.begin(), sources.end(), input) == sources.end()) continue;
    if (const auto* c = dynamic_cast<const runtime::Conv2dInfo*>(layer)) return c->in_channels;
    if (const auto* c = dynamic_cast<const runtime::Conv1dInfo*>(layer)) return c->in_channels;
    if (const auto* c = dynamic_cast<const runtime::ConvTranspose2dInfo*>(layer)) {
      return c->in_channels;
    }
    if (const auto* c = dynamic_cast<const runtime::FullConnectionInfo*>(layer)) {
      return c->in_features;
    }
    if (const auto* c = dynamic_cast<const runtime::RecurrentInfo*>(layer)) return c->in_size;
    return 1;
  }
  return 1;
}

/// The forms in which an input of so many channels is tried: pixels are left out until it is small.
inline std::vector<runtime::TensorShape> input_forms(uint32_t channels, uint32_t height,
                                                     uint32_t width) {
  constexpr uint64_t kMostFloats = BudgetContext::kPassBytes / sizeof(float) / 8;
  while (height > 1 && uint64_t{channels} * height * width > kMostFloats) height /= 2;
  while (width > 1 && uint64_t{channels} * height * width > kMostFloats) width /= 2;
  using runtime::DataType;
  using runtime::LayoutType;
  const auto floats = [](std::vector<uint32_t> dims, LayoutType layout) {
    return runtime::TensorShape(std::move(dims), DataType::FLOAT32, layout);
  };
  const uint32_t blocks4 = (channels + 3) / 4;
  const uint32_t blocks8 = (channels + 7) / 8;
  return {floats({channels, height, width}, LayoutType::CHW),
          floats({blocks4, height, width, 4}, LayoutType::C4HW4),
          floats({blocks8, height, width, 8}, LayoutType::C8HW8),
          floats({channels}, LayoutType::C),
          floats({height, channels}, LayoutType::SC),
          floats({channels, width}, LayoutType::CL)};
}

/// Asks whether the layers of a network fit together and runs one pass of it, with inputs of every
/// form. What doesn't fit may be refused, by an exception.
/// @param declared height and width of the inputs come from its header, up to 32
inline void run_passes(const runtime::Net& net, const runtime::QRModelInfo& declared,
                       BudgetContext& budget) {
  if (!can_run(net)) return;
  static constexpr uint32_t kMostPixels = 32;
  const auto size = [](uint32_t number) -> uint32_t {
    return number == 0 ? 8 : std::min(number, uint32_t{kMostPixels});
  };
  const uint32_t height = size(declared.extra_info.model_base_h);
  const uint32_t width = size(declared.extra_info.model_base_w);
  std::vector<unsigned int> wanted;
  for (uint32_t i = 0; i < net.layers.size(); ++i) {
    if (net.layers[i]->consumers.empty()) wanted.push_back(i);
  }
  const size_t forms = input_forms(1, 1, 1).size();
  for (size_t form = 0; form < forms; ++form) {
    budget.refill();
    std::unordered_map<unsigned int, std::shared_ptr<runtime::Tensor>> inputs;
    std::unordered_map<unsigned int, runtime::TensorShape> shapes;
    accepted([&] {
      for (const auto& [id, index] : net.input_map) {
        const uint32_t channels = demanded_channels(declared, id);
        const runtime::TensorShape shape = input_forms(channels, height, width)[form];
        shapes[index] = shape;
        std::vector<float> values(runtime::ElementCount(shape));
        for (size_t i = 0; i < values.size(); ++i) values[i] = static_cast<float>(i % 17) - 8.0f;
        inputs[index] = budget.context->cpu->CreateTensor(shape, values.data());
      }
      utility::check_shapes(net, shapes, budget.context);
      net.Forward(inputs, wanted, budget.context, nullptr, nullptr);
    });
  }
}

/// A configuration that gives each layer one of the kernels that accept its description, a
/// different one for each number. @return null for more than 64 layers or one that no kernel
/// accepts
inline std::shared_ptr<runtime::QRModelCfg> some_configuration(
    const runtime::QRModelInfo& info, const runtime::KernelRegistry& kernels, size_t number) {
  constexpr size_t kMostLayers = 64;
  if (info.squential_ids.size() > kMostLayers) return nullptr;
  std::vector<std::string> keys = kernels.Keys();
  std::sort(keys.begin(), keys.end());
  auto configuration = std::make_shared<runtime::QRModelCfg>();
  configuration->squential_ids = info.squential_ids;
  for (const std::string& id : info.squential_ids) {
    const auto found = info.layers.find(id);
    if (found == info.layers.end()) return nullptr;
    std::vector<std::string> fitting;
    for (const std::string& key : keys) {
      if (!can_run(key)) continue;
      accepted([&] {
        if (kernels.Create(key)->CheckConfig(found->second, nullptr) == 0) fitting.push_back(key);
      });
    }
    auto layer = std::make_shared<runtime::LayerCfg>();
    layer->kernel = std::make_shared<runtime::KernelCfg>();
    layer->kernel->kernel_type =
        fitting.empty() ? "Input_Fallback_M1" : fitting[number % fitting.size()];
    configuration->layer_cfgs[id] = layer;
  }
  return configuration;
}

/// Configures a network in several ways and runs one pass of each.
inline void run_network(const std::shared_ptr<runtime::QRModelInfo>& info,
                        const runtime::KernelRegistry& kernels) {
  constexpr size_t kConfigurations = 3;
  for (size_t number = 0; number < kConfigurations; ++number) {
    BudgetContext budget;
    accepted([&] {
      const auto configuration = some_configuration(*info, kernels, number);
      if (configuration == nullptr) return;
      const auto net = runtime::CreateNet(info, configuration, kernels, budget.context);
      run_passes(*net, *info, budget);
    });
  }
}

}  // namespace marlo::fuzz
