#include "qrt_toolkit/tune/rivals.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <set>
#include <utility>

#include "qrt_core/runtime/tensor/shape_text.h"
#include "qrt_toolkit/assign/description.h"
#include "qrt_toolkit/assign/epilogue.h"
#include "qrt_toolkit/assign/kernel_set.h"
#include "qrt_toolkit/assign/network.h"
#include "qrt_toolkit/tune/budget.h"
#include "qrt_toolkit/tune/summary.h"

namespace marlo::toolkit {
namespace {

/// Which layer, by its description, and how a kernel would read it.
std::string place_text(const runtime::LayerInfo* info, const std::string& kernel,
                       const std::vector<runtime::TensorShape>& inputs,
                       const runtime::TensorShape& output) {
  return std::to_string(reinterpret_cast<uintptr_t>(info)) + '|' + kernel + '|' +
         runtime::ShapesText(inputs) + '|' + runtime::ShapeText(output);
}

/// What bringing a tensor from one form to another costs; infinity where it can't be done.
double conversion(const Problem& problem, size_t layer, const Form& from, const Form& to) {
  if (from == to) return 0;
  const std::vector<Form>& forms = problem.options[layer].forms;
  const size_t a = place_of(from, forms);
  const size_t b = place_of(to, forms);
  if (a == forms.size() || b == forms.size()) return std::numeric_limits<double>::infinity();
  return problem.graph[layer].conversions[a][b];
}

/// What passes between two layers: converters around a kernel are already behind it, but nothing
/// brings a tensor whose kernel applies an epilogue into another layout.
Form passed(const runtime::TensorShape& gives, const Form& chosen) {
  return chosen.epilogue.empty() ? Form{gives, ""} : chosen;
}

/// The converters that a candidate needs between what now stands around the layer.
double conversions_around(const Problem& problem, size_t v, const Candidate& candidate,
                          const Candidate& chosen) {
  const ReferenceLayer& layer = problem.layers[v];
  double ms = 0;
  for (size_t i = 0; i < layer.inputs.size() && i < candidate.inputs.size(); ++i) {
    const size_t source = layer.inputs[i];
    ms += conversion(problem, source, passed(problem.layers[source].gives, chosen.inputs[i]),
                     candidate.inputs[i]);
  }
  return ms + conversion(problem, v, candidate.output, passed(layer.gives, chosen.output));
}

/// The layer's own kernel in the forms that it has now. The optimiser may not have it to choose
/// from: a converter around it may need other instructions than are allowed.
Candidate chosen_kernel(const ReferenceLayer& layer) {
  Candidate chosen;
  chosen.kernel = layer.kernel;
  chosen.set = set_of_kernel(layer.kernel, runtime::needs_of(layer.kernel));
  const bool passes_on = layer.kernel == kStraightThrough;
  for (const runtime::TensorShape& shape : layer.reads) {
    chosen.inputs.push_back({shape, passes_on ? layer.may_be_applied : ""});
  }
  chosen.output = {layer.makes, layer.may_apply.empty() ? "" : layer.applies};
  return chosen;
}

bool is_same_kernel(const Candidate& a, const Candidate& b) {
  return a.kernel == b.kernel && a.inputs == b.inputs && a.output == b.output;
}

std::vector<ExplainedCandidate> candidates_of(const Problem& problem, size_t v,
                                              const RememberedCosts& costs) {
  const ReferenceLayer& layer = problem.layers[v];
  const Candidate chosen = chosen_kernel(layer);
  std::vector<Candidate> candidates{chosen};
  for (const Option& option : problem.options[v].options) {
    if (!is_same_kernel(option.candidate, chosen)) candidates.push_back(option.candidate);
  }
  std::vector<ExplainedCandidate> found;
  for (size_t c = 0; c < candidates.size(); ++c) {
    const Candidate& candidate = candidates[c];
    const double around = conversions_around(problem, v, candidate, chosen);
    if (c != 0 && !std::isfinite(around)) continue;
    ExplainedCandidate next;
    next.kernel = candidate.kernel;
    next.set = candidate.set;
    for (const Form& form : candidate.inputs) next.inputs.push_back(form.shape);
    next.output = candidate.output.shape;
    next.is_chosen = c == 0;
    next.difference = candidate.difference;
    const RememberedCosts::Told told = costs.of_candidate(layer, candidate);
    next.is_measured = told.is_measured;
    next.ms = told.ms;
    next.converters_ms = around;
    found.push_back(std::move(next));
  }
  return found;
}

class RivalFinder {
 public:
  RivalFinder(const runtime::QRTModel& model, const runtime::KernelRegistry& kernels,
              const RivalOptions& options)
      : options_(options),
        workshop_(kernels),
        finder_(workshop_, {options.assign.set, options.assign.tolerance,
                            [this] { return budget_.still_goes_on(); }}),
        teller_(workshop_, {options.assign.set, options.assign.tolerance, {}}),
        clock_(kernels, [this] { return budget_.still_goes_on(); }),
        wisdom_(options.wisdom, options.processor + ", " + library_name(kernels)),
        budget_(options.budget, options.go_on) {
    const std::string id = network_id(model, options.assign.network);
    layers_ = walk_reference(network_of(model, id), config_of(model, id), options.assign.inputs,
                             workshop_);
  }

  Rivals run() {
    MeasuredCosts measured(options_.meter != nullptr ? *options_.meter : clock_, wisdom_,
                           {[this] { return budget_.lasts(); }, [this] { count_layer(); },
                            [this] { return budget_.goes_on(); }});
    RememberedCosts costs(measured);
    const Problem problem = make_problem(std::move(layers_), finder_, costs);
    for (size_t v = 0; v < problem.layers.size(); ++v) {
      found_.layers[problem.layers[v].id] = teller_.of(problem, v, costs, budget_.still_goes_on());
    }
    found_.is_complete = !budget_.is_over();
    for (const std::string& fault : {wisdom_.fault(), wisdom_.save()}) {
      if (!fault.empty()) found_.notes.push_back(fault);
    }
    return std::move(found_);
  }

 private:
  void count_layer() {
    if (options_.progress) options_.progress(++layers_done_);
  }

  const RivalOptions& options_;
  Workshop workshop_;
  CandidateFinder finder_;
  RivalTeller teller_;
  ClockMeter clock_;
  Wisdom wisdom_;
  Budget budget_;
  std::vector<ReferenceLayer> layers_;
  Rivals found_;
  size_t layers_done_ = 0;
};

}  // namespace

double ExplainedCandidate::whole_ms() const { return ms + converters_ms; }

double RememberedCosts::of(const Work& work) {
  const Told told{costs_.of(work), costs_.is_measured(work)};
  told_[place_text(work.info.get(), work.kernel, work.inputs, work.output)] = told;
  return told.ms;
}

RememberedCosts::Told RememberedCosts::of_candidate(const ReferenceLayer& layer,
                                                    const Candidate& candidate) const {
  const auto restated = candidate.restate != nullptr ? candidate.restate(*layer.info) : layer.info;
  const auto* info = restated.get();
  std::vector<runtime::TensorShape> inputs;
  inputs.reserve(candidate.inputs.size());
  for (const Form& form : candidate.inputs) inputs.push_back(form.shape);
  const auto found = told_.find(place_text(info, candidate.kernel, inputs, candidate.output.shape));
  return found != told_.end() ? found->second : Told{};
}

LayerRivals RivalTeller::of(const Problem& problem, size_t layer, const RememberedCosts& costs,
                            bool with_refusals) {
  LayerRivals rivals;
  const ReferenceLayer& reference = problem.layers[layer];
  if (reference.is_fixed) return rivals;
  rivals.candidates = candidates_of(problem, layer, costs);
  if (with_refusals) rivals.refusals = refusals_of(reference, rivals.candidates);
  return rivals;
}

std::vector<ExplainedRefusal> RivalTeller::refusals_of(
    const ReferenceLayer& layer, const std::vector<ExplainedCandidate>& candidates) {
  std::string key = layer.kernel + '|' + key_of(*layer.info) + '|' +
                    (layer.reads_rectified ? "r" : "") + '|' + layer.may_apply + '|' +
                    layer.may_be_applied + '|' + layer.applies + '|' +
                    runtime::ShapesText(layer.reads);
  std::set<std::string> possible;
  for (const ExplainedCandidate& candidate : candidates) {
    if (possible.insert(candidate.kernel).second) key += '|' + candidate.kernel;
  }
  const auto [known, is_new] = known_refusals_.try_emplace(std::move(key));
  if (is_new) known->second = refusals_.of(layer, possible);
  return known->second;
}

Rivals find_rivals(const runtime::QRTModel& model, const runtime::KernelRegistry& kernels,
                   const RivalOptions& options) {
  return RivalFinder(model, kernels, options).run();
}

}  // namespace marlo::toolkit
