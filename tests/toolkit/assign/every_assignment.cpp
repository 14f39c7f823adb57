#include "tests/toolkit/assign/every_assignment.h"

#include <algorithm>
#include <functional>
#include <limits>

namespace marlo::toolkit::test {
namespace {

constexpr double kImpossible = std::numeric_limits<double>::infinity();

/// The cheapest converters that make all `wanted` forms, by trying every order of making any forms.
double cheapest_conversions(const std::vector<std::vector<double>>& conversions, unsigned there,
                            unsigned wanted) {
  if ((wanted & ~there) == 0) return 0;
  double best = kImpossible;
  for (size_t to = 0; to < conversions.size(); ++to) {
    if ((there >> to & 1) != 0) continue;
    for (size_t from = 0; from < conversions.size(); ++from) {
      if ((there >> from & 1) == 0 || conversions[from][to] == kImpossible) continue;
      best = std::min(best, conversions[from][to] +
                                cheapest_conversions(conversions, there | 1u << to, wanted));
    }
  }
  return best;
}

/// What these choices cost with the converters that they need.
double cost_of(const std::vector<ChoiceLayer>& layers, const std::vector<size_t>& choices) {
  std::vector<unsigned> read(layers.size());
  double cost = 0;
  for (size_t v = 0; v < layers.size(); ++v) {
    const Choice& choice = layers[v].choices[choices[v]];
    cost += choice.cost;
    for (size_t i = 0; i < choice.inputs.size(); ++i) {
      read[layers[v].inputs[i]] |= 1u << choice.inputs[i];
    }
  }
  for (size_t v = 0; v < layers.size(); ++v) {
    const unsigned made = 1u << layers[v].choices[choices[v]].output;
    cost += cheapest_conversions(layers[v].conversions, made, read[v]);
  }
  return cost;
}

}  // namespace

double by_trying_all(const std::vector<ChoiceLayer>& layers) {
  double best = kImpossible;
  std::vector<size_t> choices(layers.size());
  const std::function<void(size_t)> go = [&](size_t v) {
    if (v == layers.size()) {
      best = std::min(best, cost_of(layers, choices));
      return;
    }
    for (choices[v] = 0; choices[v] < layers[v].choices.size(); ++choices[v]) go(v + 1);
  };
  go(0);
  return best;
}

}  // namespace marlo::toolkit::test
