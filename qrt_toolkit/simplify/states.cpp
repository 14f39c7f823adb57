#include "qrt_toolkit/simplify/states.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "qrt_toolkit/evaluate/evaluate.h"
#include "qrt_toolkit/shapes/infer.h"
#include "qrt_toolkit/simplify/simplify.h"

// States are followed by numbering them: every element of an input that may be one gets a number of
// its own, these are moved through the graph as far as it only moves them, a recurrent layer hands
// them on from its first state to its last, and an output that shows an input's numbers in their
// order is the same state one pass later. So it doesn't matter how a graph packs and cuts them.

namespace marlo::toolkit {
namespace {

bool is_recurrent(const Node& node) {
  return node.op == "LSTM" || node.op == "GRU" || node.op == "RNN";
}

bool only_moves(const Node& node) {
  static const std::set<std::string> names = {"Concat",  "Flatten",   "Gather",   "Identity",
                                              "Reshape", "Slice",     "Split",    "Squeeze",
                                              "Cast",    "Transpose", "Unsqueeze"};
  return names.count(node.op) != 0;
}

constexpr size_t kFirstState = 5;
constexpr size_t kFirstLast = 1;

/// Numbered elements, by value.
class Numbered {
 public:
  explicit Numbered(const Graph& graph) : graph_(graph) {
    const std::vector<Facts> facts = infer_facts(graph);
    double next = 1;
    for (const ValueId id : graph.inputs) {
      const Facts& fact = facts[static_cast<size_t>(id)];
      const auto sizes = fact.shape ? extents_of(*fact.shape) : std::nullopt;
      if (!sizes || count_of(*sizes).value_or(kMostFolded + 1) > kMostFolded) continue;
      if (!is_real(fact.type)) continue;
      Numbers numbers(ElementType::float64, *sizes);
      for (double& number : numbers.reals()) number = next++;
      numbers_.emplace(id, std::move(numbers));
    }
    for (const NodeId id : graph.order()) {
      const Node& node = graph.node(id);
      if (is_recurrent(node)) hand_on(node);
      if (only_moves(node)) move(node);
    }
  }

  const Numbers* find(ValueId id) const {
    const auto place = numbers_.find(id);
    return place == numbers_.end() ? nullptr : &place->second;
  }

 private:
  void hand_on(const Node& node) {
    for (size_t i = 0; i < 2; ++i) {
      if (!node.has_input(kFirstState + i) || !node.has_output(kFirstLast + i)) continue;
      const Numbers* state = find(node.inputs[kFirstState + i]);
      if (state != nullptr) numbers_.emplace(node.outputs[kFirstLast + i], Numbers(*state));
    }
  }

  void move(const Node& node) {
    std::vector<Numbers> constants;
    constants.reserve(node.inputs.size());
    std::vector<const Numbers*> inputs;
    bool any = false;
    for (const ValueId id : node.inputs) {
      inputs.push_back(nullptr);
      if (id == kAbsent) continue;
      if (const auto& constant = graph_.value(id).constant) {
        constants.push_back(constant->numbers());
        inputs.back() = &constants.back();
      } else if (const Numbers* numbers = find(id)) {
        // What says which elements are taken isn't moved itself.
        if (inputs.size() > 1 && node.op != "Concat") return;
        inputs.back() = numbers;
        any = true;
      } else {
        return;
      }
    }
    if (!any) return;
    Node plain = node;
    // Types don't matter here, and would round.
    if (plain.op == "Cast") plain.op = "Identity";
    const Results results = evaluate_node(plain, inputs);
    for (size_t i = 0; i < results.size() && i < node.outputs.size(); ++i) {
      if (node.outputs[i] != kAbsent) numbers_.emplace(node.outputs[i], results[i]);
    }
  }

  const Graph& graph_;
  std::map<ValueId, Numbers> numbers_;
};

/// The nodes whose first states are all elements of these inputs, counted by their numbers.
std::vector<NodeId> nodes_with(const Graph& graph, const Numbered& numbered,
                               const std::set<double>& kept) {
  std::vector<NodeId> nodes;
  for (const NodeId id : graph.order()) {
    const Node& node = graph.node(id);
    if (!is_recurrent(node) || !node.has_input(kFirstState)) continue;
    bool all = true;
    for (size_t i = kFirstState; i <= kFirstState + (node.op == "LSTM" ? 1 : 0); ++i) {
      const Numbers* state = node.has_input(i) ? numbered.find(node.inputs[i]) : nullptr;
      all = all && state != nullptr &&
            std::all_of(state->reals().begin(), state->reals().end(),
                        [&](double number) { return kept.count(number) != 0; });
    }
    if (all) nodes.push_back(id);
  }
  return nodes;
}

}  // namespace

std::vector<std::string> keep_states(Graph& graph, std::vector<std::string>& output_names) {
  std::vector<std::string> notes;
  const bool any = [&] {
    const auto order = graph.order();
    return std::any_of(order.begin(), order.end(),
                       [&](NodeId id) { return is_recurrent(graph.node(id)); });
  }();
  if (!any) return notes;
  const Numbered numbered(graph);
  std::set<double> kept;
  std::map<ValueId, size_t> output_of;
  for (const ValueId input : graph.inputs) {
    const Numbers* numbers = numbered.find(input);
    if (numbers == nullptr) continue;
    for (size_t i = 0; i < graph.outputs.size(); ++i) {
      const Numbers* last = numbered.find(graph.outputs[i]);
      // An input that is handed on as it is passes no layer.
      if (last == nullptr || graph.outputs[i] == input || last->reals() != numbers->reals())
        continue;
      output_of[input] = i;
      kept.insert(numbers->reals().begin(), numbers->reals().end());
      break;
    }
  }
  const std::vector<NodeId> nodes = nodes_with(graph, numbered, kept);
  if (nodes.empty()) return notes;
  for (const NodeId id : nodes) {
    graph.set_input(id, kFirstState, kAbsent);
    if (graph.node(id).has_input(kFirstState + 1)) graph.set_input(id, kFirstState + 1, kAbsent);
    graph.node(id).attributes["kept_state"] = int64_t{1};
  }
  std::set<size_t> gone;
  for (const auto& [input, output] : output_of) {
    gone.insert(output);
    notes.push_back("input \"" + graph.value(input).name + "\" and output \"" +
                    output_names[output] +
                    "\" are the state of recurrent layers, which keep it from pass to pass; "
                    "ResetState begins with zeros again");
  }
  for (auto place = gone.rbegin(); place != gone.rend(); ++place) {
    graph.outputs.erase(graph.outputs.begin() + static_cast<std::ptrdiff_t>(*place));
    output_names.erase(output_names.begin() + static_cast<std::ptrdiff_t>(*place));
  }
  drop_unused(graph);
  for (const auto& [input, output] : output_of) {
    if (!graph.is_unused(input)) continue;
    graph.inputs.erase(std::find(graph.inputs.begin(), graph.inputs.end(), input));
  }
  return notes;
}

}  // namespace marlo::toolkit
