#include "qrt_toolkit/tune/meter.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <exception>
#include <functional>
#include <limits>
#include <stdexcept>

#include "qrt_core/runtime/engine/net.h"
#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_core/runtime/tensor/shape_text.h"
#include "qrt_core/utility/application.h"
#include "qrt_toolkit/assign/network.h"
#include "qrt_toolkit/assign/trial.h"
#include "qrt_toolkit/bench/stopwatch.h"

namespace marlo::toolkit {
namespace {

using Clock = std::chrono::steady_clock;
using runtime::TensorShape;

constexpr double kNever = std::numeric_limits<double>::infinity();

double milliseconds_since(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double median_of(std::vector<double> samples) {
  const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
  std::nth_element(samples.begin(), middle, samples.end());
  return *middle;
}

/// What works read, once for all that read the same: each sample writes it anew.
class Inputs {
 public:
  struct Input {
    std::vector<float> numbers;
    std::shared_ptr<runtime::Tensor> tensor;
  };

  explicit Inputs(Workshop& workshop) : workshop_(workshop) {}

  std::shared_ptr<Input> of(const Work& work, size_t i) {
    const TensorShape& shape = work.inputs[i];
    std::shared_ptr<Input>& input = known_[std::to_string(i) + ' ' + runtime::ShapeText(shape)];
    if (input != nullptr) return input;
    input = std::make_shared<Input>();
    const auto seed = static_cast<uint32_t>(i + 1);
    input->numbers = work.info == nullptr ? trial_numbers(runtime::ElementCount(shape), seed)
                                          : trial_numbers(*work.info, shape, seed);
    input->tensor = workshop_.context()->cpu->CreateTensor(shape, input->numbers.data());
    return input;
  }

 private:
  Workshop& workshop_;
  std::map<std::string, std::shared_ptr<Input>> known_;
};

/// One kernel with what it reads.
class Subject {
 public:
  Subject(const Work& work, Workshop& workshop, Inputs& inputs) : workshop_(workshop) {
    kernel_ = workshop.configured(work.kernel, work.info);
    for (size_t i = 0; i < work.inputs.size(); ++i) {
      inputs_.push_back(inputs.of(work, i));
      tensors_.push_back(inputs_.back()->tensor);
    }
  }

  /// As in a pass: the inputs have just been written, and outputs come from the pool of passes.
  double sample() {
    if (kernel_ == nullptr) return kNever;
    for (const auto& input : inputs_) {
      std::memcpy(input->tensor->handle.cpu, input->numbers.data(),
                  input->numbers.size() * sizeof(float));
    }
    runtime::DeviceCPU& device = *workshop_.context()->cpu;
    runtime::IKernel::Tensors outputs;
    bool transient = true;
    device.dynamic_mode = true;
    const Stopwatch watch;
    try {
      kernel_->PrepareForward(workshop_.context(), tensors_, transient, outputs);
      kernel_->Forward(tensors_, outputs, workshop_.context());
    } catch (const std::runtime_error&) {
      kernel_ = nullptr;
    }
    const double time = watch.times().cpu_ms;
    outputs.clear();
    device.dynamic_mode = false;
    return kernel_ == nullptr ? kNever : time;
  }

 private:
  Workshop& workshop_;
  std::shared_ptr<runtime::IKernel> kernel_;
  std::vector<std::shared_ptr<Inputs::Input>> inputs_;
  runtime::IKernel::Tensors tensors_;
};

/// One network with its inputs.
class Network {
 public:
  Network(const runtime::QRTModel& model, const std::string& id,
          const std::map<std::string, TensorShape>& shapes,
          const runtime::KernelRegistry& kernels) {
    constexpr unsigned int kAlignment = 64;
    utility::create_context(context_, kAlignment);
    const auto& info = model.model_arr->infos.at(id);
    net_ = runtime::CreateNet(info, model.config_arr->cfgs.at(id)->cpu_sse, kernels, context_);
    uint32_t place = 0;
    for (const std::string& layer : info->squential_ids) {
      const auto& outputs = info->squential_output_ids;
      if (std::find(outputs.begin(), outputs.end(), layer) != outputs.end()) {
        wanted_.push_back(place);
      }
      const auto shape = shapes.find(layer);
      if (shape != shapes.end() && net_->input_map.count(layer) != 0) {
        inputs_[place] = shape->second;
      }
      ++place;
    }
  }

  double sample() {
    std::unordered_map<unsigned int, std::shared_ptr<runtime::Tensor>> tensors;
    for (const auto& [place, shape] : inputs_) {
      const auto numbers = trial_numbers(*net_, place, shape);
      tensors[place] = context_->cpu->CreateTensor(shape, numbers.data());
    }
    const Stopwatch watch;
    net_->Forward(tensors, wanted_, context_, nullptr, nullptr);
    return watch.times().cpu_ms;
  }

 private:
  std::shared_ptr<runtime::Context> context_;
  std::shared_ptr<runtime::Net> net_;
  std::map<unsigned int, TensorShape> inputs_;
  std::vector<unsigned int> wanted_;
};

}  // namespace

Meter::~Meter() = default;

/// How many samples rivals get.
struct ClockMeter::Sampling {
  size_t least = 3;  ///< of those that aren't far behind
  size_t most = 15;  ///< of those that are close
  double hopeless =
      2.5;               ///< so many times the best when caches and pools warm up: no sample at all
  double far = 1.6;      ///< so many times the best: no further samples
  double close = 1.08;   ///< so many times the best: all samples
  double longest = 400;  ///< milliseconds for all together, once each has the least
};

/// Runs rivals in turn. A rival takes one sample a call, and infinity where it fails.
std::vector<double> ClockMeter::medians(const std::vector<std::function<double()>>& rivals,
                                        const Sampling& sampling) const {
  constexpr size_t kFewest = 2;
  constexpr size_t kEnoughAlone = 5;
  constexpr double kPatience = 3;
  constexpr double kShort = 5;  // milliseconds
  std::vector<double> fastest;
  fastest.reserve(rivals.size());
  std::vector<std::vector<double>> samples(rivals.size());
  for (const auto& rival : rivals) fastest.push_back(goes_on() ? rival() : kNever);
  const std::vector<double> warm = fastest;
  const Clock::time_point start = Clock::now();
  for (size_t round = 0; round < sampling.most; ++round) {
    const double spent = milliseconds_since(start);
    if (round >= sampling.least && spent > sampling.longest) break;
    // Works of seconds are steady enough.
    if (round >= kFewest && spent > kPatience * sampling.longest) break;
    const double best = *std::min_element(fastest.begin(), fastest.end());
    const double factor = round == 0               ? sampling.hopeless
                          : round < sampling.least ? sampling.far
                                                   : sampling.close;
    // A first run may take long for other reasons.
    const double bound = std::max(best * factor, round == 0 ? kShort : 0.0);
    const auto is_in = [&](double ms) { return ms <= bound; };
    // Who is far ahead of all others needs no comparison.
    if (round >= kEnoughAlone && std::count_if(fastest.begin(), fastest.end(), is_in) == 1) break;
    for (size_t i = 0; i < rivals.size(); ++i) {
      if (!is_in(fastest[i])) continue;
      if (!goes_on()) break;
      samples[i].push_back(rivals[i]());
      fastest[i] = std::min(round == 0 ? kNever : fastest[i], samples[i].back());
    }
  }
  std::vector<double> medians;
  medians.reserve(samples.size());
  for (size_t i = 0; i < samples.size(); ++i) {
    medians.push_back(samples[i].empty() ? warm[i] : median_of(samples[i]));
  }
  return medians;
}

std::vector<double> ClockMeter::time_work(const std::vector<Work>& rivals) {
  Workshop workshop(kernels_);
  Inputs inputs(workshop);
  std::vector<std::unique_ptr<Subject>> subjects;
  std::vector<std::function<double()>> runs;
  for (const Work& work : rivals) {
    if (!goes_on()) return std::vector<double>(rivals.size(), kNever);
    subjects.push_back(std::make_unique<Subject>(work, workshop, inputs));
    runs.emplace_back([subject = subjects.back().get()] { return subject->sample(); });
  }
  return medians(runs, Sampling());
}

std::vector<double> ClockMeter::time_passes(const std::vector<const runtime::QRTModel*>& models,
                                            const std::string& network,
                                            const std::map<std::string, TensorShape>& inputs) {
  std::vector<std::unique_ptr<Network>> networks;
  std::vector<std::function<double()>> runs;
  for (const runtime::QRTModel* model : models) {
    if (!goes_on()) return std::vector<double>(models.size(), kNever);
    networks.push_back(std::make_unique<Network>(*model, network, inputs, kernels_));
    runs.emplace_back([subject = networks.back().get()] { return subject->sample(); });
  }
  Sampling sampling;
  sampling.least = 5;
  sampling.most = 41;
  sampling.close = 1.05;
  sampling.longest = 3000;
  return medians(runs, sampling);
}

}  // namespace marlo::toolkit
