#include "qrt_toolkit/explain/passes.h"

#include <algorithm>
#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_core/utility/application.h"
#include "qrt_toolkit/bench/lane.h"
#include "qrt_toolkit/bench/sampling.h"
#include "qrt_toolkit/watch/reset_states.h"

namespace marlo::toolkit {
namespace {

constexpr unsigned int kAlignment = 64;

/// Milliseconds that a stopwatch shows when nothing happens.
double cost_of_watch() {
  constexpr size_t kSamples = 1001;
  std::vector<double> samples;
  samples.reserve(kSamples);
  for (size_t i = 0; i < kSamples; ++i) {
    const Stopwatch watch;
    samples.push_back(watch.times().cpu_ms);
  }
  return median(std::move(samples));
}

/// A profile without what its stopwatches show for themselves: a kernel has two of them, one for
/// preparing and one for running.
Profile without_watches(Profile profile) {
  constexpr double kWatches = 2;
  const double cost = kWatches * cost_of_watch();
  for (ProfileRow& row : profile.rows) row.times.cpu_ms = std::max(0.0, row.times.cpu_ms - cost);
  return profile;
}

}  // namespace

TimedNetwork::TimedNetwork(const runtime::QRTModel& model, const std::string& id,
                           const std::map<std::string, runtime::TensorShape>& inputs,
                           const runtime::KernelRegistry& kernels) {
  utility::create_context(context_, kAlignment);
  const auto& info = model.model_arr->infos.at(id);
  net_ = runtime::CreateNet(info, model.config_arr->cfgs.at(id)->cpu_sse, kernels, context_);
  for (const auto& [layer, place] : net_->input_map) {
    const auto shape = inputs.find(layer);
    if (shape == inputs.end()) {
      throw std::invalid_argument("the shape of input \"" + layer + "\" isn't known");
    }
    inputs_[place] = shape->second;
    bytes_[place] = made_up_numbers(shape->second, *net_, place);
  }
  const std::vector<std::string>& ids = info->squential_ids;
  for (const std::string& output : info->squential_output_ids) {
    const auto place = std::find(ids.begin(), ids.end(), output);
    if (place == ids.end()) throw std::invalid_argument("there is no layer \"" + output + "\"");
    wanted_.push_back(static_cast<unsigned int>(place - ids.begin()));
  }
  if (wanted_.empty()) throw std::invalid_argument("the network returns nothing");
}

Times TimedNetwork::pass() {
  reset_states(*net_);
  // New tensors for every pass: a kernel that works in place writes over its input.
  std::unordered_map<unsigned int, std::shared_ptr<runtime::Tensor>> tensors;
  for (const auto& [place, shape] : inputs_) {
    tensors[place] = context_->cpu->CreateTensor(shape, bytes_.at(place).data());
  }
  const Stopwatch watch;
  const auto results = net_->Forward(tensors, wanted_, context_, nullptr, nullptr);
  return watch.times();
}

/// Whoever is asked may take his time, and pass by pass that would be in the way.
bool TimedNetwork::goes_on(const PassBudget& budget) {
  constexpr std::chrono::milliseconds kBetween(50);
  const auto now = std::chrono::steady_clock::now();
  if (is_ended_ || !budget.go_on || now - asked_ < kBetween) return !is_ended_;
  is_ended_ = !budget.go_on();
  asked_ = now;
  return !is_ended_;
}

/// Runs `pass`, which says how long it took, until the budget is used up.
template <typename Pass>
size_t TimedNetwork::run_passes(const PassBudget& budget, const Pass& pass) {
  double spent = 0;
  size_t count = 0;
  while (count < budget.least || (spent < budget.ms && count < budget.most)) {
    if (!goes_on(budget)) break;
    spent += pass();
    ++count;
  }
  return count;
}

std::vector<double> TimedNetwork::plain_passes(const PassBudget& budget) {
  std::vector<double> samples;
  run_passes(budget, [&] {
    samples.push_back(pass().cpu_ms);
    return samples.back();
  });
  return samples;
}

PassTimes TimedNetwork::time(const PassBudget& budget) {
  SamplingOptions warm;
  warm.most_warm_ms = budget.ms;
  // Passes that take all the time that there is end it.
  warm_up([&] { return goes_on(budget) ? pass().cpu_ms : budget.ms; }, warm);
  PassBudget half = budget;
  half.ms /= 2;
  half.least = (budget.least + 1) / 2;
  half.most = (budget.most + 1) / 2;
  PassTimes times;
  std::vector<double> samples = plain_passes(half);
  if (is_ended_) return times;
  {
    Profiler profiler(*net_);
    pass();
    profiler.clear();
    times.count = run_passes(budget, [&] {
      const Times taken = pass();
      profiler.end_pass(taken);
      return taken.cpu_ms;
    });
    times.profile = without_watches(profiler.profile());
  }
  const std::vector<double> after = plain_passes(half);
  samples.insert(samples.end(), after.begin(), after.end());
  times.ms = median(std::move(samples));
  return times;
}

}  // namespace marlo::toolkit
