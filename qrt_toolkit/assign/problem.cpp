#include "qrt_toolkit/assign/problem.h"

#include <limits>
#include <string_view>
#include <utility>

#include "qrt_core/runtime/engine/epilogues.h"
#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_toolkit/assign/description.h"
#include "qrt_toolkit/assign/epilogue.h"

namespace marlo::toolkit {
namespace {

using runtime::InputUse;

constexpr double kImpossible = std::numeric_limits<double>::infinity();

/// A kernel and what it costs.
struct Priced {
  std::string kernel;
  double cost = kImpossible;
};

/// Collects the options of one layer after another.
class Builder {
 public:
  Builder(std::vector<ReferenceLayer> layers, CandidateFinder& finder, Costs& costs)
      : finder_(finder), costs_(costs) {
    problem_.layers = std::move(layers);
  }

  Problem run() {
    for (ReferenceLayer& layer : problem_.layers) pair(layer);
    for (size_t v = 0; v < problem_.layers.size(); ++v) add(v);
    return std::move(problem_);
  }

 private:
  /// Finds out whether what a layer computes may be applied by the layer that it reads.
  void pair(ReferenceLayer& layer) {
    if (layer.inputs.size() != 1 || layer.is_fixed) return;
    ReferenceLayer& source = problem_.layers[layer.inputs[0]];
    if (source.is_input || source.is_output || source.is_fixed || source.readers != 1) return;
    std::string epilogue = source.applies;
    if (epilogue.empty()) {
      epilogue = finder_.epilogue_of(layer);
    } else if (layer.kernel != kStraightThrough || epilogue_function(epilogue) == nullptr ||
               !runtime::may_be_epilogue(*layer.info, epilogue)) {
      return;
    }
    layer.may_be_applied = source.may_apply = std::move(epilogue);
  }

  void add(size_t v) {
    const ReferenceLayer& layer = problem_.layers[v];
    LayerOptions options;
    options.forms = forms_of(layer.gives);
    ChoiceLayer choices;
    choices.inputs = layer.inputs;
    const uint64_t weights = weight_count(*layer.info);
    bool passes_on = false;
    std::vector<const Candidate*> candidates;
    std::vector<Work> works;
    std::vector<Work> rivals;
    for (const Candidate& candidate : finder_.of(layer)) {
      add_form(candidate.output, options.forms);
      passes_on = passes_on || candidate.use == InputUse::passes_on;
      const bool overwrites = candidate.use == InputUse::overwrites;
      if (!candidates.empty() && overwrites && !may_overwrite(layer)) continue;
      candidates.push_back(&candidate);
      works.push_back(work_of(layer, candidate, weights));
      if (!has_been_applied(candidate)) rivals.push_back(works.back());
    }
    if (rivals.size() > 1) costs_.compare(rivals);
    for (size_t c = 0; c < works.size(); ++c) {
      const bool is_free = layer.is_input || has_been_applied(*candidates[c]);
      const double cost = is_free ? 0 : costs_.of(works[c]);
      add_option(layer, *candidates[c], cost, options, choices);
    }
    own_.push_back(!layer.is_input && layer.readers == 1 && !layer.is_output &&
                   (!passes_on || may_overwrite(layer)));
    price_conversions(options, choices);
    problem_.options.push_back(std::move(options));
    problem_.graph.push_back(std::move(choices));
  }

  /// A form that a kernel makes by applying an epilogue is there besides those of all tensors.
  static void add_form(const Form& form, std::vector<Form>& forms) {
    if (!form.epilogue.empty() && place_of(form, forms) == forms.size()) forms.push_back(form);
  }

  /// Whether nothing is left to do for a kernel: it hands a tensor on.
  static bool has_been_applied(const Candidate& candidate) {
    return !candidate.inputs.empty() && !candidate.inputs[0].epilogue.empty();
  }

  /// Whether the numbers of a layer's first input are its alone.
  bool may_overwrite(const ReferenceLayer& layer) const {
    return !layer.inputs.empty() && own_[layer.inputs[0]];
  }

  void add_option(const ReferenceLayer& layer, const Candidate& candidate, double cost,
                  LayerOptions& options, ChoiceLayer& choices) {
    Choice choice;
    if (!layer.is_input) {
      for (size_t i = 0; i < layer.inputs.size(); ++i) {
        const std::vector<Form>& forms = problem_.options[layer.inputs[i]].forms;
        const size_t place = place_of(candidate.inputs[i], forms);
        if (place == forms.size()) return;
        choice.inputs.push_back(static_cast<FormIndex>(place));
      }
    }
    Option option{candidate, "", cost};
    const Form plain{layer.gives, ""};
    size_t output = place_of(candidate.output, options.forms);
    if (layer.is_output && candidate.output != plain) {
      const Priced converter = cheapest(candidate.output, plain);
      if (converter.cost == kImpossible) return;
      option.output_converter = converter.kernel;
      option.cost += converter.cost;
      output = 0;
    }
    if (output == options.forms.size()) return;
    choice.output = static_cast<FormIndex>(output);
    choice.cost = option.cost;
    options.options.push_back(std::move(option));
    choices.choices.push_back(std::move(choice));
  }

  static Work work_of(const ReferenceLayer& layer, const Candidate& candidate, uint64_t weights) {
    Work work = work_of(candidate);
    work.info = candidate.info != nullptr ? candidate.info : layer.info;
    work.weights = weights;
    work.multiply_adds = multiply_adds_of(
        *layer.info, weights, work.inputs.empty() ? work.output : work.inputs[0], work.output);
    return work;
  }

  static Work work_of(const Candidate& candidate) {
    Work work;
    work.kernel = candidate.kernel;
    work.set = candidate.set;
    work.use = candidate.use;
    for (const Form& form : candidate.inputs) work.inputs.push_back(form.shape);
    work.output = candidate.output.shape;
    work.epilogue = candidate.output.epilogue;
    return work;
  }

  Priced cheapest(const Form& from, const Form& to) {
    std::vector<Work> works;
    for (const Candidate& candidate : finder_.converters(from, to)) {
      works.push_back(work_of(candidate));
    }
    if (!works.empty()) costs_.compare(works);
    Priced best;
    for (const Work& work : works) {
      const double cost = costs_.of(work);
      if (cost < best.cost) best = {work.kernel, cost};
    }
    return best;
  }

  void price_conversions(LayerOptions& options, ChoiceLayer& choices) {
    const size_t count = options.forms.size();
    options.converters.assign(count, std::vector<std::string>(count));
    choices.conversions.assign(count, std::vector<double>(count, kImpossible));
    for (size_t from = 0; from < count; ++from) {
      for (size_t to = 0; to < count; ++to) {
        if (from == to) continue;
        Priced best = cheapest(options.forms[from], options.forms[to]);
        choices.conversions[from][to] = best.cost;
        options.converters[from][to] = std::move(best.kernel);
      }
    }
  }

  CandidateFinder& finder_;
  Costs& costs_;
  Problem problem_;
  std::vector<bool> own_;  // per layer: nobody but one reader needs its result
};

}  // namespace

Problem make_problem(std::vector<ReferenceLayer> layers, CandidateFinder& finder, Costs& costs) {
  return Builder(std::move(layers), finder, costs).run();
}

}  // namespace marlo::toolkit
