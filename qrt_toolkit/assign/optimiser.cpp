#include "qrt_toolkit/assign/optimiser.h"

#include <algorithm>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>

namespace marlo::toolkit {
namespace {

/// A set of forms, one bit each.
using FormSet = uint32_t;

constexpr double kImpossible = std::numeric_limits<double>::infinity();

FormSet only(FormIndex form) { return FormSet{1} << form; }

bool holds(FormSet set, FormIndex form) { return (set & only(form)) != 0; }

/// What it costs to have further forms of one tensor.
class Extensions {
 public:
  explicit Extensions(const ChoiceLayer& layer)
      : forms_(static_cast<FormIndex>(layer.conversions.size())),
        conversions_(layer.conversions),
        costs_(size_t{1} << (2 * forms_), -1) {}

  FormSet all() const { return (FormSet{1} << forms_) - 1; }

  /// From what is there to what is there and `wanted`, by converters from one to another of these.
  double cost(FormSet there, FormSet wanted) {
    const FormSet missing = wanted & ~there;
    if (missing == 0) return 0;
    double& known = costs_[(size_t{there} << forms_) | missing];
    if (known < 0) known = there == 0 ? kImpossible : next(there, missing).cost;
    return known;
  }

  /// The converters of `cost`, in order.
  std::vector<Conversion> converters(FormSet there, FormSet wanted) {
    std::vector<Conversion> converters;
    for (FormSet missing = wanted & ~there; missing != 0; missing = wanted & ~there) {
      converters.push_back(next(there, missing).conversion);
      there |= only(converters.back().to);
    }
    return converters;
  }

 private:
  struct Step {
    double cost = kImpossible;
    Conversion conversion;
  };

  Step next(FormSet there, FormSet missing) {
    Step best;
    for (FormIndex to = 0; to < forms_; ++to) {
      if (!holds(missing, to)) continue;
      for (FormIndex from = 0; from < forms_; ++from) {
        if (!holds(there, from)) continue;
        const double rest = cost(there | only(to), missing & ~only(to));
        const double whole = conversions_[from][to] + rest;
        if (whole < best.cost) best = {whole, {from, to}};
      }
    }
    return best;
  }

  FormIndex forms_;
  const std::vector<std::vector<double>>& conversions_;
  std::vector<double> costs_;
};

constexpr size_t kNone = static_cast<size_t>(-1);

/// One step of the walk: the choice for a layer, or further forms of what it makes.
struct Decision {
  size_t before = kNone;
  size_t layer = 0;
  size_t choice = kNone;
  FormSet forms = 0;  // of the layer's result from here on
};

/// A combination of forms of the tensors that are still to be read.
struct Combination {
  std::vector<FormSet> forms;  // in the order of the live layers
  double cost = 0;
  size_t decision = kNone;
};

bool goes_before(const Combination& a, const Combination& b) {
  return a.cost != b.cost ? a.cost < b.cost : a.forms < b.forms;
}

/// The walk through the layers.
class Search {
 public:
  Search(const std::vector<ChoiceLayer>& layers, size_t most)
      : layers_(layers), most_(std::max<size_t>(most, 1)), last_reader_(layers.size()) {
    for (size_t v = 0; v < layers.size(); ++v) check(v);
    for (size_t v = 0; v < layers.size(); ++v) {
      last_reader_[v] = std::max(last_reader_[v], v);
      for (const size_t input : layers[v].inputs) last_reader_[input] = v;
      extensions_.emplace_back(layers[v]);
    }
  }

  Assignment run() {
    combinations_.push_back({});
    for (size_t v = 0; v < layers_.size(); ++v) decide(v);
    return trace();
  }

 private:
  void check(size_t v) const {
    const ChoiceLayer& layer = layers_[v];
    const auto fail = [&](const std::string& why) {
      throw std::invalid_argument("layer " + std::to_string(v) + " " + why);
    };
    if (layer.choices.empty()) fail("can't run in any way");
    const size_t forms = layer.conversions.size();
    if (forms == 0 || forms > kMostForms) fail("has " + std::to_string(forms) + " forms");
    for (const auto& row : layer.conversions) {
      if (row.size() != forms) fail("has conversions that make no square");
    }
    for (const size_t input : layer.inputs) {
      if (input >= v) fail("reads layer " + std::to_string(input));
    }
    for (const Choice& choice : layer.choices) {
      if (choice.output >= forms || choice.inputs.size() != layer.inputs.size()) {
        fail("has a choice that doesn't fit it");
      }
      for (size_t i = 0; i < layer.inputs.size(); ++i) {
        if (choice.inputs[i] >= layers_[layer.inputs[i]].conversions.size()) {
          fail("has a choice that reads an unknown form");
        }
      }
    }
  }

  /// Of choices that read and make the same, the cheapest.
  std::vector<size_t> worthwhile(const ChoiceLayer& layer) const {
    std::map<std::pair<std::vector<FormIndex>, FormIndex>, size_t> best;
    for (size_t c = 0; c < layer.choices.size(); ++c) {
      const Choice& choice = layer.choices[c];
      const auto [found, is_new] = best.try_emplace({choice.inputs, choice.output}, c);
      if (!is_new && choice.cost < layer.choices[found->second].cost) found->second = c;
    }
    std::vector<size_t> choices;
    choices.reserve(best.size());
    for (const auto& [forms, choice] : best) choices.push_back(choice);
    std::sort(choices.begin(), choices.end());
    return choices;
  }

  void decide(size_t v) {
    const ChoiceLayer& layer = layers_[v];
    std::vector<size_t> places;  // of the inputs among the live layers
    for (const size_t input : layer.inputs) {
      const auto found = std::find(live_.begin(), live_.end(), input);
      places.push_back(static_cast<size_t>(found - live_.begin()));
    }
    std::vector<size_t> kept;  // places of those that are read later; the new layer is the last
    std::vector<size_t> still_live;
    for (size_t i = 0; i <= live_.size(); ++i) {
      const size_t candidate = i < live_.size() ? live_[i] : v;
      if (last_reader_[candidate] <= v) continue;
      kept.push_back(i);
      still_live.push_back(candidate);
    }
    std::vector<Combination> reached;
    for (const size_t c : worthwhile(layer)) {
      for (const Combination& before : combinations_) {
        for (const Combination& ready : with_inputs(before, places, layer.choices[c])) {
          reached.push_back(after(v, ready, c, kept));
        }
      }
    }
    live_ = std::move(still_live);
    combinations_ = best_of(std::move(reached));
    if (combinations_.empty()) {
      throw std::invalid_argument("layer " + std::to_string(v) +
                                  " can't be given what it reads by any converter");
    }
  }

  /// The combinations that one becomes by converters, so that a choice finds its inputs. A form
  /// that the choice doesn't read may be made on the way, where that is cheaper.
  std::vector<Combination> with_inputs(const Combination& before, const std::vector<size_t>& places,
                                       const Choice& choice) {
    std::map<size_t, FormSet> wanted;
    for (size_t i = 0; i < places.size(); ++i) wanted[places[i]] |= only(choice.inputs[i]);
    std::vector<Combination> ready{before};
    for (const auto& [place, forms] : wanted) {
      const FormSet there = before.forms[place];
      const FormSet missing = forms & ~there;
      if (missing == 0) continue;
      Extensions& extensions = extensions_[live_[place]];
      const FormSet others = extensions.all() & ~there & ~missing;
      std::vector<Combination> longer;
      for (FormSet more = others;; more = (more - 1) & others) {
        const double cost = extensions.cost(there, missing | more);
        for (size_t i = 0; cost < kImpossible && i < ready.size(); ++i) {
          Combination next = ready[i];
          next.forms[place] = there | missing | more;
          next.cost += cost;
          decisions_.push_back({next.decision, live_[place], kNone, next.forms[place]});
          next.decision = decisions_.size() - 1;
          longer.push_back(std::move(next));
        }
        if (more == 0) break;
      }
      ready = best_of(std::move(longer));
    }
    return ready;
  }

  /// The combination after a layer has run.
  Combination after(size_t v, const Combination& before, size_t c,
                    const std::vector<size_t>& kept) {
    const FormSet made = only(layers_[v].choices[c].output);
    Combination next;
    for (const size_t place : kept) {
      next.forms.push_back(place < before.forms.size() ? before.forms[place] : made);
    }
    next.cost = before.cost + layers_[v].choices[c].cost;
    decisions_.push_back({before.decision, v, c, made});
    next.decision = decisions_.size() - 1;
    return next;
  }

  /// Whether one can go on wherever the other can, at no higher cost.
  bool is_as_good(const Combination& one, const Combination& other) {
    double cost = one.cost;
    for (size_t i = 0; i < live_.size() && cost <= other.cost; ++i) {
      cost += extensions_[live_[i]].cost(one.forms[i], other.forms[i]);
    }
    return cost <= other.cost;
  }

  /// Those that can be part of the cheapest assignment.
  std::vector<Combination> best_of(std::vector<Combination> reached) {
    std::stable_sort(reached.begin(), reached.end(), goes_before);
    std::vector<Combination> best;
    for (Combination& next : reached) {
      const bool is_worse = std::any_of(best.begin(), best.end(),
                                        [&](const auto& kept) { return is_as_good(kept, next); });
      if (is_worse) continue;
      if (best.size() == most_) {
        is_exact_ = false;
        break;
      }
      best.push_back(std::move(next));
    }
    return best;
  }

  Assignment trace() {
    Assignment result;
    result.is_exact = is_exact_;
    result.cost = combinations_[0].cost;
    result.choices.resize(layers_.size());
    result.converters.resize(layers_.size());
    std::vector<FormSet> forms(layers_.size());
    for (size_t d = combinations_[0].decision; d != kNone; d = decisions_[d].before) {
      const Decision& decision = decisions_[d];
      forms[decision.layer] |= decision.forms;
      if (decision.choice != kNone) result.choices[decision.layer] = decision.choice;
    }
    std::vector<FormSet> read(layers_.size());
    for (size_t v = 0; v < layers_.size(); ++v) {
      const Choice& choice = layers_[v].choices[result.choices[v]];
      for (size_t i = 0; i < choice.inputs.size(); ++i) {
        read[layers_[v].inputs[i]] |= only(choice.inputs[i]);
      }
    }
    for (size_t v = 0; v < layers_.size(); ++v) {
      const FormSet made = only(layers_[v].choices[result.choices[v]].output);
      result.converters[v] = without_unread(extensions_[v].converters(made, forms[v]), read[v]);
    }
    return result;
  }

  /// Leaves out converters that cost nothing and serve nobody.
  static std::vector<Conversion> without_unread(std::vector<Conversion> converters, FormSet read) {
    std::vector<Conversion> kept;
    for (; !converters.empty(); converters.pop_back()) {
      const Conversion& last = converters.back();
      if (!holds(read, last.to)) continue;
      read |= only(last.from);
      kept.insert(kept.begin(), last);
    }
    return kept;
  }

  const std::vector<ChoiceLayer>& layers_;
  const size_t most_;
  std::vector<size_t> last_reader_;
  std::vector<Extensions> extensions_;
  std::vector<size_t> live_;
  std::vector<Combination> combinations_;
  std::vector<Decision> decisions_;
  bool is_exact_ = true;
};

}  // namespace

Assignment cheapest_assignment(const std::vector<ChoiceLayer>& layers, size_t most_combinations) {
  return Search(layers, most_combinations).run();
}

}  // namespace marlo::toolkit
