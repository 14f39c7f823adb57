#include "qrt_toolkit/assign/problem.h"

#include <algorithm>
#include <limits>
#include <map>
#include <stdexcept>
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

/// One tensor, or one kernel's reading of it, on each of the sizes.
using Forms = std::vector<Form>;

/// Whether forms are the same but for the numbers of rows, columns or whatever else the sizes change.
bool is_alike(const Form& a, const Form& b) {
  return a.shape.layout == b.shape.layout && a.epilogue == b.epilogue;
}

/// The place of a form like this one. @return forms.size() where there is none
size_t place_of_alike(const Form& form, const Forms& forms) {
  const auto found = std::find_if(forms.begin(), forms.end(),
                                  [&](const Form& other) { return is_alike(form, other); });
  return static_cast<size_t>(found - forms.begin());
}

/// Whether a kernel does on one size what another does on another.
bool is_alike(const Candidate& a, const Candidate& b) {
  return a.kernel == b.kernel && is_alike(a.output, b.output) &&
         std::equal(a.inputs.begin(), a.inputs.end(), b.inputs.begin(), b.inputs.end(),
                    [](const Form& x, const Form& y) { return is_alike(x, y); });
}

/// One way to run a layer, or to convert a tensor, on each of the sizes.
using Everywhere = std::vector<const Candidate*>;

/// The candidates of the first size that all others have as well.
std::vector<Everywhere> common(const std::vector<const std::vector<Candidate>*>& of_sizes) {
  std::vector<Everywhere> all;
  for (const Candidate& candidate : *of_sizes[0]) {
    Everywhere everywhere{&candidate};
    for (size_t s = 1; s < of_sizes.size(); ++s) {
      const auto& others = *of_sizes[s];
      const auto found = std::find_if(others.begin(), others.end(), [&](const Candidate& other) {
        return is_alike(candidate, other);
      });
      if (found != others.end()) everywhere.push_back(&*found);
    }
    if (everywhere.size() == of_sizes.size()) all.push_back(std::move(everywhere));
  }
  return all;
}

/// Collects the options of one layer after another.
class Builder {
 public:
  Builder(std::vector<SizedNetwork> sizes, CandidateFinder& finder, Costs& costs)
      : finder_(finder), costs_(costs), sizes_(std::move(sizes)) {}

  Problem run() {
    for (SizedNetwork& size : sizes_) {
      for (ReferenceLayer& layer : size.layers) pair(layer, size.layers);
    }
    for (size_t v = 0; v < sizes_[0].layers.size(); ++v) add(v);
    problem_.layers = std::move(sizes_[0].layers);
    return std::move(problem_);
  }

 private:
  /// Finds out whether what a layer computes may be applied by the layer that it reads.
  void pair(ReferenceLayer& layer, std::vector<ReferenceLayer>& layers) {
    if (layer.inputs.size() != 1 || layer.is_fixed) return;
    ReferenceLayer& source = layers[layer.inputs[0]];
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

  const ReferenceLayer& layer(size_t v, size_t size = 0) const { return sizes_[size].layers[v]; }

  void add(size_t v) {
    LayerOptions options;
    ChoiceLayer choices;
    choices.inputs = layer(v).inputs;
    std::vector<Forms> forms = forms_of_layer(v);  // by form, then by size
    std::vector<const std::vector<Candidate>*> found;
    found.reserve(sizes_.size());
    for (size_t s = 0; s < sizes_.size(); ++s) found.push_back(&finder_.of(layer(v, s)));
    const std::vector<Everywhere> everywhere = common(found);
    if (everywhere.empty() || everywhere[0][0] != &found[0]->front()) {
      throw std::invalid_argument("layer \"" + layer(v).id +
                                  "\": its kernel makes other layouts on other sizes");
    }
    bool passes_on = false;
    std::vector<Everywhere> candidates;
    for (const Everywhere& candidate : everywhere) {
      add_form(candidate, forms);
      passes_on = passes_on || candidate[0]->use == InputUse::passes_on;
      const bool overwrites = candidate[0]->use == InputUse::overwrites;
      if (!candidates.empty() && overwrites && !may_overwrite(layer(v))) continue;
      candidates.push_back(candidate);
    }
    options.forms.reserve(forms.size());
    for (const Forms& form : forms) options.forms.push_back(form[0]);
    const std::vector<double> prices = prices_of(v, candidates);
    for (size_t c = 0; c < candidates.size(); ++c) {
      add_option(v, *candidates[c][0], prices[c], forms, options, choices);
    }
    own_.push_back(!layer(v).is_input && layer(v).readers == 1 && !layer(v).is_output &&
                   (!passes_on || may_overwrite(layer(v))));
    price_conversions(forms, options, choices);
    problem_.options.push_back(std::move(options));
    problem_.graph.push_back(std::move(choices));
  }

  /// The forms that a layer's result may stand in on all sizes.
  std::vector<Forms> forms_of_layer(size_t v) const {
    std::vector<Forms> forms;
    for (const Form& form : forms_of(layer(v).gives)) {
      Forms everywhere{form};
      for (size_t s = 1; s < sizes_.size(); ++s) {
        const Forms others = forms_of(layer(v, s).gives);
        const size_t place = place_of_alike(form, others);
        if (place < others.size()) everywhere.push_back(others[place]);
      }
      if (everywhere.size() == sizes_.size()) forms.push_back(std::move(everywhere));
    }
    return forms;
  }

  /// What each candidate costs, on all sizes together.
  std::vector<double> prices_of(size_t v, const std::vector<Everywhere>& candidates) {
    std::vector<double> prices(candidates.size());
    for (size_t s = 0; s < sizes_.size(); ++s) {
      const uint64_t weights = weight_count(*layer(v, s).info);
      std::vector<Work> works;
      std::vector<Work> rivals;
      for (const Everywhere& candidate : candidates) {
        works.push_back(
            work_of(layer(v, s), *candidate[s], read_by(*candidate[s], layer(v, s)), weights));
        if (!has_been_applied(*candidate[s])) rivals.push_back(works.back());
      }
      if (rivals.size() > 1) costs_.compare(rivals);
      for (size_t c = 0; c < works.size(); ++c) {
        const bool is_free = layer(v).is_input || has_been_applied(*candidates[c][s]);
        if (!is_free) prices[c] += sizes_[s].weight * costs_.of(works[c]);
      }
    }
    return prices;
  }

  /// A form that a kernel makes by applying an epilogue is there besides those of all tensors.
  static void add_form(const Everywhere& candidate, std::vector<Forms>& forms) {
    const Form& first = candidate[0]->output;
    const bool is_known = std::any_of(forms.begin(), forms.end(),
                                      [&](const Forms& known) { return known[0] == first; });
    if (first.epilogue.empty() || is_known) return;
    Forms made;
    made.reserve(candidate.size());
    for (const Candidate* on_size : candidate) made.push_back(on_size->output);
    forms.push_back(std::move(made));
  }

  /// Whether nothing is left to do for a kernel: it hands a tensor on.
  static bool has_been_applied(const Candidate& candidate) {
    return !candidate.inputs.empty() && !candidate.inputs[0].epilogue.empty();
  }

  /// Whether the numbers of a layer's first input are its alone.
  bool may_overwrite(const ReferenceLayer& layer) const {
    return !layer.inputs.empty() && own_[layer.inputs[0]];
  }

  void add_option(size_t v, const Candidate& candidate, double cost,
                  const std::vector<Forms>& forms, LayerOptions& options, ChoiceLayer& choices) {
    Choice choice;
    if (!layer(v).is_input) {
      for (size_t i = 0; i < layer(v).inputs.size(); ++i) {
        const Forms& read = problem_.options[layer(v).inputs[i]].forms;
        const size_t place = place_of(candidate.inputs[i], read);
        if (place == read.size()) return;
        choice.inputs.push_back(static_cast<FormIndex>(place));
      }
    }
    Option option{candidate, read_by(candidate, layer(v)), "", cost};
    size_t output = place_of(candidate.output, options.forms);
    if (layer(v).is_output && output != 0) {
      // A kernel that makes a form which isn't listed has no converter either.
      if (output == options.forms.size()) return;
      Priced converter = cheapest(forms[output], forms[0]);
      if (converter.cost == kImpossible) return;
      option.output_converter = std::move(converter.kernel);
      option.cost += converter.cost;
      output = 0;
    }
    if (output == options.forms.size()) return;
    choice.output = static_cast<FormIndex>(output);
    choice.cost = option.cost + (finder_.allows(candidate) ? 0 : kBeyondSet);
    options.options.push_back(std::move(option));
    choices.choices.push_back(std::move(choice));
  }

  /// The layer's description as a candidate reads it; each way to state it is made once.
  std::shared_ptr<runtime::LayerInfo> read_by(const Candidate& candidate,
                                              const ReferenceLayer& layer) {
    if (candidate.restate == nullptr) return layer.info;
    auto& made = restated_[{layer.info.get(), candidate.restate}];
    if (made == nullptr) made = candidate.restate(*layer.info);
    return made;
  }

  static Work work_of(const ReferenceLayer& layer, const Candidate& candidate,
                      std::shared_ptr<runtime::LayerInfo> info, uint64_t weights) {
    Work work = work_of(candidate);
    work.info = std::move(info);
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

  Priced cheapest(const Forms& from, const Forms& to) {
    std::vector<const std::vector<Candidate>*> found;
    found.reserve(sizes_.size());
    for (size_t s = 0; s < sizes_.size(); ++s) found.push_back(&finder_.converters(from[s], to[s]));
    const std::vector<Everywhere> candidates = common(found);
    std::vector<double> prices(candidates.size());
    for (size_t s = 0; s < sizes_.size(); ++s) {
      std::vector<Work> works;
      works.reserve(candidates.size());
      for (const Everywhere& candidate : candidates) works.push_back(work_of(*candidate[s]));
      if (!works.empty()) costs_.compare(works);
      for (size_t c = 0; c < works.size(); ++c) prices[c] += sizes_[s].weight * costs_.of(works[c]);
    }
    Priced best;
    for (size_t c = 0; c < candidates.size(); ++c) {
      if (prices[c] < best.cost) best = {candidates[c][0]->kernel, prices[c]};
    }
    return best;
  }

  void price_conversions(const std::vector<Forms>& forms, LayerOptions& options,
                         ChoiceLayer& choices) {
    const size_t count = forms.size();
    options.converters.assign(count, std::vector<std::string>(count));
    choices.conversions.assign(count, std::vector<double>(count, kImpossible));
    for (size_t from = 0; from < count; ++from) {
      for (size_t to = 0; to < count; ++to) {
        if (from == to) continue;
        Priced best = cheapest(forms[from], forms[to]);
        choices.conversions[from][to] = best.cost;
        options.converters[from][to] = std::move(best.kernel);
      }
    }
  }

  CandidateFinder& finder_;
  Costs& costs_;
  std::vector<SizedNetwork> sizes_;
  Problem problem_;
  std::vector<bool> own_;  // per layer: nobody but one reader needs its result
  std::map<std::pair<const runtime::LayerInfo*, Restatement>, std::shared_ptr<runtime::LayerInfo>>
      restated_;
};

}  // namespace

Problem make_problem(std::vector<ReferenceLayer> layers, CandidateFinder& finder, Costs& costs) {
  std::vector<SizedNetwork> sizes(1);
  sizes[0].layers = std::move(layers);
  return make_problem(std::move(sizes), finder, costs);
}

Problem make_problem(std::vector<SizedNetwork> sizes, CandidateFinder& finder, Costs& costs) {
  return Builder(std::move(sizes), finder, costs).run();
}

}  // namespace marlo::toolkit
