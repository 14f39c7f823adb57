#include "qrt_toolkit/tune/local_changes.h"

#include <algorithm>
#include <map>
#include <string>

#include "qrt_core/runtime/tensor/shape_text.h"

namespace marlo::toolkit {
namespace {

/// The cheapest other choice in the same forms; the present one where there is none.
size_t rival_of(const ChoiceLayer& layer, size_t present) {
  const Choice& now = layer.choices[present];
  size_t best = present;
  for (size_t c = 0; c < layer.choices.size(); ++c) {
    const Choice& other = layer.choices[c];
    if (c == present || other.inputs != now.inputs || other.output != now.output) continue;
    if (best == present || other.cost < layer.choices[best].cost) best = c;
  }
  return best;
}

/// A text that is equal for layers in which a change does the same.
std::string text_of(const Option& before, const Option& after) {
  std::string text = before.candidate.kernel + '>' + after.candidate.kernel;
  for (const Form& form : before.candidate.inputs) text += '|' + runtime::ShapeText(form.shape);
  return text + '|' + runtime::ShapeText(before.candidate.output.shape);
}

}  // namespace

std::vector<LocalChange> local_changes(const Problem& problem, const Assignment& assignment,
                                       double close) {
  std::map<std::string, LocalChange> groups;
  for (size_t v = 0; v < problem.graph.size(); ++v) {
    const ChoiceLayer& layer = problem.graph[v];
    const size_t present = assignment.choices[v];
    const size_t rival = rival_of(layer, present);
    const double cost = layer.choices[present].cost;
    if (rival == present || layer.choices[rival].cost > close * cost) continue;
    const auto& options = problem.options[v].options;
    LocalChange& group = groups[text_of(options[present], options[rival])];
    group.choices.emplace_back(v, rival);
    group.cost += cost;
  }
  std::vector<LocalChange> changes;
  changes.reserve(groups.size());
  for (auto& [text, group] : groups) changes.push_back(std::move(group));
  std::stable_sort(changes.begin(), changes.end(),
                   [](const LocalChange& a, const LocalChange& b) { return a.cost > b.cost; });
  return changes;
}

Assignment changed(const Problem& problem, Assignment assignment, const LocalChange& change) {
  for (const auto& [v, choice] : change.choices) {
    const auto& choices = problem.graph[v].choices;
    assignment.cost += choices[choice].cost - choices[assignment.choices[v]].cost;
    assignment.choices[v] = choice;
  }
  assignment.is_exact = false;
  return assignment;
}

}  // namespace marlo::toolkit
