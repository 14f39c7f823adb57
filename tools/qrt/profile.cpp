#include "tools/qrt/profile.h"

#include <algorithm>
#include <chrono>

namespace qrt_tool {

using marlo::runtime::Context;
using marlo::runtime::IKernel;
using marlo::runtime::InferenceParam;
using marlo::runtime::LayerInfo;
using marlo::runtime::Net;
using marlo::runtime::TensorShape;

namespace {

using Clock = std::chrono::steady_clock;

double milliseconds_since(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

}  // namespace

/// A kernel that notes how long another one takes.
class Profiler::TimedKernel final : public IKernel {
 public:
  explicit TimedKernel(std::shared_ptr<IKernel> kernel) : kernel_(std::move(kernel)) {}

  std::string GetKernelName() override { return kernel_->GetKernelName(); }
  int CheckConfig(std::shared_ptr<LayerInfo> info, std::shared_ptr<InferenceParam> param) override {
    return kernel_->CheckConfig(std::move(info), std::move(param));
  }
  bool Config(std::shared_ptr<LayerInfo> info, std::shared_ptr<InferenceParam> param,
              std::shared_ptr<Context> context) override {
    return kernel_->Config(std::move(info), std::move(param), std::move(context));
  }
  bool IsConfigured() override { return kernel_->IsConfigured(); }
  std::vector<TensorShape> InferOutputShapes(const std::vector<TensorShape>& shapes) override {
    return kernel_->InferOutputShapes(shapes);
  }
  int PrepareForward(const std::shared_ptr<Context>& context, Tensors& inputs, bool& transient,
                     Tensors& outputs) override {
    const Clock::time_point start = Clock::now();
    const int result = kernel_->PrepareForward(context, inputs, transient, outputs);
    spent_ms_ += milliseconds_since(start);
    return result;
  }
  int ResetState() override { return kernel_->ResetState(); }
  int CheckInputs(const Tensors& tensors) override { return kernel_->CheckInputs(tensors); }
  int Forward(const Tensors& inputs, Tensors& outputs, std::shared_ptr<Context> context) override {
    const Clock::time_point start = Clock::now();
    const int result = kernel_->Forward(inputs, outputs, std::move(context));
    spent_ms_ += milliseconds_since(start);
    return result;
  }
  int CheckOutputs(const Tensors& tensors) override { return kernel_->CheckOutputs(tensors); }

  const std::shared_ptr<IKernel>& kernel() const { return kernel_; }

  double take_spent_ms() { return std::exchange(spent_ms_, 0.0); }

 private:
  std::shared_ptr<IKernel> kernel_;
  double spent_ms_ = 0.0;
};

/// One wrapped kernel, and where it stands in the network.
struct Profiler::Entry {
  uint32_t layer;
  std::string role;
  std::shared_ptr<TimedKernel> timer;
  std::shared_ptr<IKernel>* place;
  std::vector<double> samples;
};

double median(std::vector<double> samples) {
  if (samples.empty()) return 0.0;
  std::sort(samples.begin(), samples.end());
  const size_t middle = samples.size() / 2;
  if (samples.size() % 2 == 1) return samples[middle];
  return (samples[middle - 1] + samples[middle]) / 2.0;
}

Profiler::Profiler(Net& net) {
  for (uint32_t index = 0; index < net.layers.size(); ++index) {
    marlo::runtime::Layer& layer = *net.layers[index];
    for (auto& [position, kernel] : layer.input_converters) {
      wrap(index, "input " + std::to_string(position), kernel);
    }
    wrap(index, "", layer.kernel);
    for (auto& [position, kernel] : layer.output_converters) {
      wrap(index, "output " + std::to_string(position), kernel);
    }
  }
}

Profiler::~Profiler() {
  for (Entry& entry : entries_) *entry.place = entry.timer->kernel();
}

void Profiler::wrap(uint32_t layer, const std::string& role, std::shared_ptr<IKernel>& kernel) {
  if (kernel == nullptr) return;
  auto timer = std::make_shared<TimedKernel>(kernel);
  kernel = timer;
  entries_.push_back({layer, role, std::move(timer), &kernel, {}});
}

void Profiler::end_pass() {
  for (Entry& entry : entries_) entry.samples.push_back(entry.timer->take_spent_ms());
}

void Profiler::clear() {
  for (Entry& entry : entries_) {
    entry.timer->take_spent_ms();
    entry.samples.clear();
  }
}

std::vector<Profiler::Row> Profiler::rows() const {
  std::vector<Row> rows;
  rows.reserve(entries_.size());
  for (const Entry& entry : entries_) {
    rows.push_back(
        {entry.layer, entry.role, entry.timer->kernel()->GetKernelName(), median(entry.samples)});
  }
  return rows;
}

}  // namespace qrt_tool
