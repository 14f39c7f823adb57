#include "qrt_toolkit/tune/tune.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
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
#include "qrt_toolkit/assign/channels.h"
#include "qrt_toolkit/assign/network.h"
#include "qrt_toolkit/assign/problem.h"
#include "qrt_toolkit/tune/budget.h"
#include "qrt_toolkit/tune/local_changes.h"
#include "qrt_toolkit/tune/measured_costs.h"
#include "qrt_toolkit/tune/rivals.h"
#include "qrt_toolkit/tune/summary.h"
#include "qrt_toolkit/tune/wisdom.h"

namespace marlo::toolkit {
namespace {

/// A network with what each of its kernels costs: the given one, or the same with channels in whole blocks.
struct Plan {
  PaddedModel padded;  // without cuts where it is the given one
  Problem problem;
};

/// A configuration that may be chosen.
struct Contestant {
  std::string name;
  std::shared_ptr<const Plan> plan;
  Assignment assignment;
  AssignedModel assigned;
};

AssignedModel applied(const Plan& plan, const std::string& id, const Assignment& assignment) {
  AssignedModel assigned = apply_assignment(plan.padded.model, id, plan.problem, assignment);
  move_cuts(plan.padded, assigned.report);
  return assigned;
}

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

constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();

/// What a choice costs, with the given kernels.
double cost_of_given(const Problem& problem) {
  double cost = 0;
  for (const LayerOptions& layer : problem.options) cost += layer.options[0].cost;
  return cost;
}

/// Milliseconds of a pass of several models; not finite where none ran.
struct PassTimes {
  std::vector<double> total;                  ///< by model: the weighted sum
  std::vector<std::vector<double>> per_size;  ///< by size, then by model

  bool are_known() const {
    return std::all_of(total.begin(), total.end(), [](double ms) { return std::isfinite(ms); });
  }
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
        clock_(kernels, [this] { return budget_.still_goes_on(); }),
        meter_(options.meter != nullptr ? *options.meter : clock_),
        wisdom_(options.wisdom, options.processor + ", " + library_name(kernels)),
        budget_(options.budget, [this] { return goes_on(); }) {
    check_runnable(config_of(model, id_));
    is_given_allowed_ = kernels_beyond(config_of(model, id_), options.assign.set).empty();
    progress_.of_layers = sizes_.size() * network_of(model, id_).squential_ids.size();
    for (const TuneSize& size : sizes_) tuned_.report.sizes.push_back({size});
  }

  TunedModel run() {
    std::vector<Contestant> contestants = assignments();
    tuned_.model = model_;
    if (budget_.goes_on()) compare_passes(contestants);
    // It may have been ended meanwhile.
    if (tuned_.report.chosen.empty()) take_by_costs(std::move(contestants[0]));
    mark();
    TuneReport& report = tuned_.report;
    report.is_complete = !budget_.is_over();
    report.seconds = budget_.spent();
    for (const std::string& fault : {wisdom_.save(), wisdom_.fault()}) {
      if (!fault.empty()) report.notes.insert(report.notes.begin(), fault);
    }
    return std::move(tuned_);
  }

 private:
  bool goes_on() {
    progress_.seconds = budget_.spent();
    return !options_.go_on || options_.go_on(progress_);
  }

  /// Layers of the network in whole blocks are further ones, of which nobody was told.
  void count_layer() {
    if (progress_.layers < progress_.of_layers) ++progress_.layers;
  }

  /// Notes the time of a configuration that ran, among others, the first of which is the given one. Of one
  /// that ran before, this replaces what it took then: passes of different rounds can't be compared.
  void ran(const std::string& name, const PassTimes& times, size_t place) {
    std::vector<TunedConfiguration>& all = tuned_.report.ran;
    const auto is_same = [&](const TunedConfiguration& one) { return one.name == name; };
    auto known = std::find_if(all.begin(), all.end(), is_same);
    if (known == all.end()) known = all.insert(all.end(), {name, 0, 0});
    known->milliseconds = times.total[place];
    known->of_given = times.total[0] > 0 ? times.total[place] / times.total[0] : 0;
  }

  /// Whole passes choose.
  void compare_passes(std::vector<Contestant>& contestants) {
    TuneReport& report = tuned_.report;
    std::vector<const runtime::QRTModel*> models{&model_};
    for (const Contestant& contestant : contestants) models.push_back(&contestant.assigned.model);
    const PassTimes times = time_passes(models);
    if (!budget_.goes_on() && !times.are_known()) return;
    ran("given", times, 0);
    size_t best = is_given_allowed_ ? 0 : 1;
    for (size_t i = 0; i < contestants.size(); ++i) {
      ran(contestants[i].name, times, i + 1);
      if (times.total[i + 1] < times.total[best]) best = i + 1;
    }
    state(times, best, report.ran[best].name);
    // Where the given model is as fast as any, changes may still make another one faster.
    constexpr double kAlike = 1.03;
    const auto other = std::min_element(times.total.begin() + 1, times.total.end());
    if (!is_given_allowed_ || *other <= kAlike * times.total[0]) {
      take(std::move(contestants[static_cast<size_t>(other - times.total.begin()) - 1]));
    }
  }

  /// What single layers cost chooses, as there is no time for passes.
  void take_by_costs(Contestant best) {
    constexpr double kShort = 100;  // milliseconds
    TuneReport& report = tuned_.report;
    const double given = cost_of_given(given_->problem);
    report.ran = {{"given", kUnknown, 0}, {best.name, kUnknown, 0}};
    report.before = report.after = report.difference = kUnknown;
    for (TunedSize& size : report.sizes) size.before = size.after = size.difference = kUnknown;
    const bool is_other = !is_given_allowed_ || best.assigned.report.cost < given;
    report.chosen = report.ran[is_other ? 1 : 0].name;
    if (!is_other) return;
    const bool is_quick = given + best.assigned.report.cost < kShort;
    take_model(std::move(best));
    if (is_quick) compare_outputs();
  }

  /// Tries changes of what was chosen, and takes whatever is the fastest in the end: the changed
  /// one, that before the changes, or the given one.
  void take(Contestant best) {
    TuneReport& report = tuned_.report;
    AssignedModel unchanged = best.assigned;
    const PassTimes changes = change(best);
    if (report.changes_kept != 0 &&
        !keep_changes(best.name, unchanged.model, best.assigned.model, changes)) {
      report.changes_kept = 0;
      best.assigned = std::move(unchanged);
    }
    if (report.chosen == report.ran[0].name) return;
    take_model(std::move(best));
    if (budget_.goes_on()) return compare_outputs();
    report.difference = kUnknown;
    for (TunedSize& size : report.sizes) size.difference = kUnknown;
  }

  void take_model(Contestant best) {
    tuned_.model = std::move(best.assigned.model);
    tuned_.report.assigned = std::move(best.assigned.report);
    tuned_.report.padded = best.plan->padded.grown;
    for (const std::string& id : tuned_.report.assigned.beyond) {
      const auto& cfgs = config_of(tuned_.model, id_).layer_cfgs;
      tuned_.report.notes.push_back("layer \"" + id + "\" keeps " +
                                    cfgs.at(id)->kernel->kernel_type + ": no kernel up to " +
                                    word_of(options_.assign.set) + " computes the same");
    }
  }

  /// Compares the given model with that before the changes and that behind them, in passes that take
  /// turns, and names the fastest. @return whether it is the changed one
  bool keep_changes(const std::string& name, const runtime::QRTModel& before,
                    const runtime::QRTModel& after, const PassTimes& changes) {
    TuneReport& report = tuned_.report;
    const PassTimes times = time_passes({&model_, &before, &after});
    if (!budget_.goes_on() && !times.are_known()) {
      // Each change made passes faster, which is what is known.
      report.ran.push_back({"exchanged", changes.total[1], 0});
      const bool is_faster = !is_given_allowed_ || changes.total[1] < report.before;
      if (is_faster) state_after(changes, 1, "exchanged");
      return is_faster;
    }
    const std::string names[] = {report.ran[0].name, name, "exchanged"};
    for (size_t i = 0; i < std::size(names); ++i) ran(names[i], times, i);
    const auto fastest =
        std::min_element(times.total.rbegin(), times.total.rend() - (is_given_allowed_ ? 0 : 1));
    const auto place = static_cast<size_t>(times.total.rend() - fastest) - 1;
    state(times, place, names[place]);
    return place == 2;
  }

  /// Whole passes say what single layers can't: how kernels get on with what their neighbours leave in
  /// the caches. Kernels that are close are tried there, and kept where passes get faster.
  /// @return times before and behind the last change that was kept
  PassTimes change(Contestant& best) {
    constexpr double kClose = 1.08;
    constexpr double kFaster = 0.995;
    constexpr size_t kMostChanges = 8;
    constexpr size_t kMostInVain = 3;
    constexpr double kWorthwhile = 0.03;  // of the whole; less can't be seen in passes
    PassTimes kept;
    size_t in_vain = 0;
    for (const LocalChange& step : local_changes(best.plan->problem, best.assignment, kClose)) {
      const bool is_enough = tuned_.report.changes_tried == kMostChanges || in_vain == kMostInVain;
      if (is_enough || !budget_.lasts()) break;
      if (step.cost < kWorthwhile * best.assignment.cost) break;  // the dearest are first
      ++tuned_.report.changes_tried;
      Assignment next = changed(best.plan->problem, best.assignment, step);
      AssignedModel assigned = applied(*best.plan, id_, next);
      PassTimes times = time_passes({&best.assigned.model, &assigned.model});
      if (!budget_.goes_on()) break;
      if (!(times.total[1] < kFaster * times.total[0])) {
        ++in_vain;
        continue;
      }
      in_vain = 0;
      ++tuned_.report.changes_kept;
      best.assignment = std::move(next);
      best.assigned = std::move(assigned);
      kept = std::move(times);
    }
    return kept;
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
    tuned_.report.before = times.total[0];
    for (size_t s = 0; s < sizes_.size(); ++s) {
      tuned_.report.sizes[s].before = times.per_size[s][0];
    }
    state_after(times, chosen, name);
  }

  void state_after(const PassTimes& times, size_t chosen, const std::string& name) {
    TuneReport& report = tuned_.report;
    report.after = times.total[chosen];
    report.chosen = name;
    for (size_t s = 0; s < sizes_.size(); ++s) {
      report.sizes[s].after = times.per_size[s][chosen];
    }
  }

  std::vector<SizedNetwork> references(const runtime::QRTModel& model, Workshop& workshop) const {
    std::vector<SizedNetwork> sized;
    for (const TuneSize& size : sizes_) {
      sized.push_back(
          {walk_reference(network_of(model, id_), config_of(model, id_), size.inputs, workshop),
           size.weight});
    }
    return sized;
  }

  /// The network with channels in whole blocks, if it has others; its kernels are measured as well.
  std::shared_ptr<const Plan> plan_of_whole_blocks(const std::vector<ReferenceLayer>& layers,
                                                   Workshop& workshop, CandidateFinder& finder,
                                                   Costs& costs) {
    const bool may_cut = kernels_.Create(kChannelCut) != nullptr;
    auto padded = with_whole_blocks(model_, id_, layers, may_cut);
    if (!padded) return nullptr;
    auto plan = std::make_shared<Plan>();
    plan->problem = make_problem(references(padded->model, workshop), finder, costs);
    plan->padded = *std::move(padded);
    return plan;
  }

  std::vector<Contestant> assignments() {
    Workshop workshop(kernels_);
    const CandidateRules rules{options_.assign.set, options_.assign.tolerance,
                               [this] { return budget_.still_goes_on(); }};
    CandidateFinder finder(workshop, rules);
    tuned_.report.excluded = finder.excluded();
    const std::vector<SizedNetwork> networks = references(model_, workshop);
    MeasuredCosts measured(meter_, wisdom_,
                           {[this] { return budget_.lasts(); }, [this] { count_layer(); },
                            [this] { return budget_.goes_on(); }});
    RememberedCosts remembered(measured);
    auto plan = std::make_shared<Plan>();
    plan->padded.model = model_;
    plan->problem = make_problem(networks, finder, remembered);
    given_ = std::move(plan);
    if (options_.with_candidates) tell_candidates(workshop, rules, remembered);
    std::shared_ptr<const Plan> blocks;
    if (budget_.lasts()) {
      blocks = plan_of_whole_blocks(networks[0].layers, workshop, finder, remembered);
    }
    tuned_.report.measured = measured.measured();
    tuned_.report.remembered = measured.remembered();
    std::vector<Contestant> contestants;
    std::set<std::pair<const Plan*, std::vector<size_t>>> seen;
    const auto add = [&](const std::string& name, const std::shared_ptr<const Plan>& of,
                         const std::vector<ChoiceLayer>& graph) {
      Assignment assignment = cheapest_assignment(graph);
      if (!seen.insert({of.get(), assignment.choices}).second) return;
      AssignedModel assigned = applied(*of, id_, assignment);
      contestants.push_back({name, of, std::move(assignment), std::move(assigned)});
    };
    const std::vector<ChoiceLayer>& graph = given_->problem.graph;
    add("measured", given_, graph);
    if (!budget_.goes_on()) return contestants;
    add("fewer converters", given_, with_dear_converters(graph));
    if (blocks != nullptr) add("whole blocks", blocks, blocks->problem.graph);
    EstimatedCosts estimated;
    add("estimated", given_, make_problem(networks, finder, estimated).graph);
    return contestants;
  }

  void tell_candidates(Workshop& workshop, const CandidateRules& rules,
                       const RememberedCosts& costs) {
    RivalTeller teller(workshop, rules);
    const Problem& problem = given_->problem;
    for (size_t v = 0; v < problem.layers.size(); ++v) {
      tuned_.report.candidates[problem.layers[v].id] =
          teller.of(problem, v, costs, budget_.still_goes_on());
    }
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
  bool is_given_allowed_ = true;       // it names no kernel that needs more than the set
  std::shared_ptr<const Plan> given_;  // with measured costs
  TunedModel tuned_;
};

}  // namespace

TunedModel tune_model(const runtime::QRTModel& model, const runtime::KernelRegistry& kernels,
                      const TuneOptions& options) {
  return Tuner(model, kernels, options).run();
}

}  // namespace marlo::toolkit
