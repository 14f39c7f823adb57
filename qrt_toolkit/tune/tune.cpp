#include "qrt_toolkit/tune/tune.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

#include "qrt_core/runtime/engine/net.h"
#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_core/utility/application.h"
#include "qrt_toolkit/assign/apply.h"
#include "qrt_toolkit/assign/candidates.h"
#include "qrt_toolkit/assign/network.h"
#include "qrt_toolkit/assign/problem.h"
#include "qrt_toolkit/tune/budget.h"
#include "qrt_toolkit/tune/local_changes.h"
#include "qrt_toolkit/tune/measured_costs.h"
#include "qrt_toolkit/tune/summary.h"
#include "qrt_toolkit/tune/wisdom.h"

namespace marlo::toolkit {
namespace {

/// A configuration that may be chosen.
struct Contestant {
  std::string name;
  Assignment assignment;
  AssignedModel assigned;
};

/// The network's outputs for the numbers of trials, in their plain layouts.
Workshop::Numbers outputs_of(const runtime::QRTModel& model, const std::string& id,
                             const std::map<std::string, runtime::TensorShape>& inputs,
                             const runtime::KernelRegistry& kernels) {
  Workshop workshop(kernels);
  const std::shared_ptr<runtime::Context>& context = workshop.context();
  const auto& info = model.model_arr->infos.at(id);
  const auto net =
      runtime::CreateNet(info, model.config_arr->cfgs.at(id)->cpu_sse, kernels, context);
  std::unordered_map<unsigned int, std::shared_ptr<runtime::Tensor>> tensors;
  for (const auto& [layer, place] : net->input_map) {
    const runtime::TensorShape& shape = inputs.at(layer);
    const auto numbers = trial_numbers(*net, place, shape);
    tensors[place] = context->cpu->CreateTensor(shape, numbers.data());
  }
  std::vector<unsigned int> wanted;
  const auto& ids = info->squential_ids;
  for (const std::string& output : info->squential_output_ids) {
    wanted.push_back(
        static_cast<unsigned int>(std::find(ids.begin(), ids.end(), output) - ids.begin()));
  }
  auto results = net->Forward(tensors, wanted, context, nullptr, nullptr);
  Workshop::Numbers outputs;
  for (const unsigned int place : wanted) {
    for (const auto& tensor : results[place]) {
      const auto* data = static_cast<const float*>(tensor->handle.cpu);
      if (tensor->shape.data_type != runtime::DataType::FLOAT32) continue;
      outputs.emplace_back(data, data + runtime::ElementCount(tensor->shape));
    }
  }
  return outputs;
}

double largest_difference(const Workshop::Numbers& before, const Workshop::Numbers& after) {
  double largest = 0;
  for (size_t i = 0; i < before.size() && i < after.size(); ++i) {
    largest = std::max(largest, relative_difference(before[i], after[i]));
  }
  return largest;
}

/// The graph with converters that cost more, for networks where they do.
std::vector<ChoiceLayer> with_dear_converters(std::vector<ChoiceLayer> graph) {
  constexpr double kFactor = 2;
  for (ChoiceLayer& layer : graph) {
    for (auto& row : layer.conversions) {
      for (double& cost : row) cost *= kFactor;
    }
  }
  return graph;
}

/// All sizes of the inputs, the first one included.
std::vector<TuneSize> sizes_of(const TuneOptions& options) {
  std::vector<TuneSize> sizes{{options.assign.inputs, options.weight}};
  sizes.insert(sizes.end(), options.further.begin(), options.further.end());
  for (const TuneSize& size : sizes) {
    if (!(size.weight > 0) || !std::isfinite(size.weight)) {
      throw std::invalid_argument("the weight of a size has to be above 0");
    }
  }
  return sizes;
}

/// Milliseconds of a pass of several models.
struct PassTimes {
  std::vector<double> total;                  ///< by model: the weighted sum
  std::vector<std::vector<double>> per_size;  ///< by size, then by model
};

/// A run of tuning.
class Tuner {
 public:
  Tuner(const runtime::QRTModel& model, const runtime::KernelRegistry& kernels,
        const TuneOptions& options)
      : model_(model),
        kernels_(kernels),
        options_(options),
        sizes_(sizes_of(options)),
        id_(network_id(model, options.assign.network)),
        clock_(kernels),
        meter_(options.meter != nullptr ? *options.meter : clock_),
        wisdom_(options.wisdom, options.processor + ", " + library_name(kernels)),
        budget_(options.budget, [this] { return goes_on(); }) {
    progress_.of_layers = sizes_.size() * network_of(model, id_).squential_ids.size();
    for (const TuneSize& size : sizes_) tuned_.report.sizes.push_back({size});
  }

  TunedModel run() {
    std::vector<Contestant> contestants = assignments();
    TuneReport& report = tuned_.report;
    std::vector<const runtime::QRTModel*> models{&model_};
    for (const Contestant& contestant : contestants) models.push_back(&contestant.assigned.model);
    const PassTimes times = time_passes(models);
    report.ran.push_back({"given", times.total[0]});
    size_t best = 0;
    for (size_t i = 0; i < contestants.size(); ++i) {
      report.ran.push_back({contestants[i].name, times.total[i + 1]});
      if (times.total[i + 1] < times.total[best]) best = i + 1;
    }
    state(times, best, report.ran[best].name);
    tuned_.model = model_;
    // Where the given model is as fast as any, changes may still make another one faster.
    constexpr double kAlike = 1.03;
    const auto other = std::min_element(times.total.begin() + 1, times.total.end());
    if (other != times.total.end() && *other <= kAlike * times.total[0]) {
      take(std::move(contestants[static_cast<size_t>(other - times.total.begin()) - 1]));
    }
    mark();
    report.is_complete = !budget_.is_over();
    report.seconds = budget_.spent();
    const std::string fault = wisdom_.save();
    if (!wisdom_.fault().empty()) report.notes.push_back(wisdom_.fault());
    if (!fault.empty()) report.notes.push_back(fault);
    return std::move(tuned_);
  }

 private:
  bool goes_on() {
    progress_.seconds = budget_.spent();
    return !options_.go_on || options_.go_on(progress_);
  }

  /// Tries changes of what was chosen, and takes whatever is the fastest in the end: the changed
  /// one, that before the changes, or the given one.
  void take(Contestant best) {
    TuneReport& report = tuned_.report;
    AssignedModel unchanged = best.assigned;
    change(best);
    if (report.changes_kept != 0 &&
        !keep_changes(best.name, unchanged.model, best.assigned.model)) {
      report.changes_kept = 0;
      best.assigned = std::move(unchanged);
    }
    if (report.chosen == report.ran[0].name) return;
    tuned_.model = std::move(best.assigned.model);
    report.assigned = std::move(best.assigned.report);
    compare_outputs();
  }

  /// Compares the given model with that before the changes and that behind them, in passes that take
  /// turns, and names the fastest. @return whether it is the changed one
  bool keep_changes(const std::string& name, const runtime::QRTModel& before,
                    const runtime::QRTModel& after) {
    TuneReport& report = tuned_.report;
    const PassTimes times = time_passes({&model_, &before, &after});
    report.ran.push_back({"exchanged", times.total[2]});
    const std::string names[] = {report.ran[0].name, name, report.ran.back().name};
    const auto fastest = std::min_element(times.total.rbegin(), times.total.rend());
    const auto place = static_cast<size_t>(times.total.rend() - fastest) - 1;
    state(times, place, names[place]);
    return place == 2;
  }

  /// Whole passes say what single layers can't: how kernels get on with what their neighbours leave in
  /// the caches. Kernels that are close are tried there, and kept where passes get faster.
  void change(Contestant& best) {
    constexpr double kClose = 1.08;
    constexpr double kFaster = 0.995;
    constexpr size_t kMostChanges = 8;
    for (const LocalChange& step : local_changes(problem_, best.assignment, kClose)) {
      if (tuned_.report.changes_tried == kMostChanges || !budget_.lasts()) return;
      ++tuned_.report.changes_tried;
      Assignment next = changed(problem_, best.assignment, step);
      AssignedModel assigned = apply_assignment(model_, id_, problem_, next);
      const auto times = time_passes({&best.assigned.model, &assigned.model}).total;
      if (!(times[1] < kFaster * times[0])) continue;
      ++tuned_.report.changes_kept;
      best.assignment = std::move(next);
      best.assigned = std::move(assigned);
    }
  }

  PassTimes time_passes(const std::vector<const runtime::QRTModel*>& models) {
    PassTimes times;
    times.total.resize(models.size());
    for (const TuneSize& size : sizes_) {
      times.per_size.push_back(meter_.time_passes(models, id_, size.inputs));
      for (size_t i = 0; i < models.size(); ++i) {
        times.total[i] += size.weight * times.per_size.back()[i];
      }
    }
    return times;
  }

  /// Says which of several models is chosen. The given one is the first.
  void state(const PassTimes& times, size_t chosen, const std::string& name) {
    TuneReport& report = tuned_.report;
    report.before = times.total[0];
    report.after = times.total[chosen];
    report.chosen = name;
    for (size_t s = 0; s < sizes_.size(); ++s) {
      report.sizes[s].before = times.per_size[s][0];
      report.sizes[s].after = times.per_size[s][chosen];
    }
  }

  std::vector<SizedNetwork> references(Workshop& workshop) const {
    std::vector<SizedNetwork> sized;
    for (const TuneSize& size : sizes_) {
      sized.push_back(
          {walk_reference(network_of(model_, id_), config_of(model_, id_), size.inputs, workshop),
           size.weight});
    }
    return sized;
  }

  std::vector<Contestant> assignments() {
    Workshop workshop(kernels_);
    CandidateFinder finder(workshop, {options_.assign.set, options_.assign.tolerance});
    tuned_.report.excluded = finder.excluded();
    const std::vector<SizedNetwork> networks = references(workshop);
    MeasuredCosts measured(meter_, wisdom_,
                           {[this] { return budget_.lasts(); }, [this] { ++progress_.layers; }});
    problem_ = make_problem(networks, finder, measured);
    tuned_.report.measured = measured.measured();
    tuned_.report.remembered = measured.remembered();
    EstimatedCosts estimated;
    const Problem guess = make_problem(networks, finder, estimated);
    std::vector<Contestant> contestants;
    std::set<std::vector<size_t>> seen;
    const auto add = [&](const std::string& name, const std::vector<ChoiceLayer>& graph) {
      Assignment assignment = cheapest_assignment(graph);
      if (!seen.insert(assignment.choices).second) return;
      AssignedModel assigned = apply_assignment(model_, id_, problem_, assignment);
      contestants.push_back({name, std::move(assignment), std::move(assigned)});
    };
    add("measured", problem_.graph);
    add("fewer converters", with_dear_converters(problem_.graph));
    add("estimated", guess.graph);
    return contestants;
  }

  void compare_outputs() {
    for (TunedSize& size : tuned_.report.sizes) {
      size.difference =
          largest_difference(outputs_of(model_, id_, size.size.inputs, kernels_),
                             outputs_of(tuned_.model, id_, size.size.inputs, kernels_));
      tuned_.report.difference = std::max(tuned_.report.difference, size.difference);
    }
  }

  /// Says in the configuration what it was made for. The given model's own stays as it is.
  void mark() {
    auto& configs = tuned_.model.config_arr;
    configs = std::make_shared<runtime::QRModelMultiBackendCfgsArr>(*configs);
    auto& network = configs->cfgs.at(id_);
    network = std::make_shared<runtime::QRModelMultiBackendCfgs>(*network);
    network->cpu_sse = std::make_shared<runtime::QRModelCfg>(*network->cpu_sse);
    network->cpu_sse->summary = with_mark(network->cpu_sse->summary, options_);
  }

  const runtime::QRTModel& model_;
  const runtime::KernelRegistry& kernels_;
  const TuneOptions& options_;
  const std::vector<TuneSize> sizes_;
  const std::string id_;
  ClockMeter clock_;
  Meter& meter_;
  Wisdom wisdom_;
  TuneProgress progress_;
  Budget budget_;
  Problem problem_;  // with measured costs
  TunedModel tuned_;
};

}  // namespace

TunedModel tune_model(const runtime::QRTModel& model, const runtime::KernelRegistry& kernels,
                      const TuneOptions& options) {
  return Tuner(model, kernels, options).run();
}

}  // namespace marlo::toolkit
