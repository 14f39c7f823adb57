#include <map>
#include <utility>

#include "qrt_toolkit/simplify/simplify.h"

namespace marlo::toolkit {
namespace {

/// The branch that a constant condition chooses; null where it isn't constant.
std::shared_ptr<Graph> chosen_branch(const Graph& graph, const Node& node) {
  if (node.op != "If" || !node.has_input(0)) return nullptr;
  const auto& condition = graph.value(node.inputs[0]).constant;
  if (!condition) return nullptr;
  const Numbers numbers = condition->numbers();
  if (numbers.count() != 1) return nullptr;
  const auto place = node.attributes.find(numbers.integer(0) != 0 ? "then_branch" : "else_branch");
  if (place == node.attributes.end()) return nullptr;
  const auto* branch = std::get_if<std::shared_ptr<Graph>>(&place->second);
  return branch == nullptr ? nullptr : *branch;
}

/// Puts the nodes and values of `branch` into `graph`. @return what its values are there
std::map<ValueId, ValueId> copy_into(Graph& graph, const Graph& branch) {
  std::map<ValueId, ValueId> place_of;
  for (const Capture& capture : branch.captures) place_of[capture.inner] = capture.outer;
  const auto moved = [&](ValueId id) {
    if (id == kAbsent) return kAbsent;
    const auto [place, is_new] = place_of.try_emplace(id, kAbsent);
    if (is_new) {
      const Value& value = branch.value(id);
      place->second = graph.add_value(value.name, value.type, value.shape);
      graph.value(place->second).constant = value.constant;
    }
    return place->second;
  };
  for (const NodeId id : branch.order()) {
    Node node = branch.node(id);
    for (ValueId& input : node.inputs) input = moved(input);
    for (ValueId& output : node.outputs) output = moved(output);
    for (auto& [name, attribute] : node.attributes) {
      auto* nested = std::get_if<std::shared_ptr<Graph>>(&attribute);
      if (nested == nullptr) continue;
      auto copy = std::make_shared<Graph>(**nested);
      for (Capture& capture : copy->captures) capture.outer = moved(capture.outer);
      *nested = std::move(copy);
    }
    graph.add_node(std::move(node));
  }
  for (const ValueId output : branch.outputs) moved(output);
  return place_of;
}

}  // namespace

bool take_branches(Graph& graph) {
  bool changed = false;
  for (const NodeId id : graph.order()) {
    const std::shared_ptr<Graph> branch = chosen_branch(graph, graph.node(id));
    if (branch == nullptr) continue;
    const std::vector<ValueId> outputs = graph.node(id).outputs;
    if (outputs.size() != branch->outputs.size()) {
      throw UnsupportedError(
          {refusal_of(graph.node(id), {"outputs", "a branch has another number of results"})});
    }
    graph.remove_node(id);
    const auto place_of = copy_into(graph, *branch);
    for (size_t i = 0; i < outputs.size(); ++i) {
      if (outputs[i] != kAbsent) graph.replace(outputs[i], place_of.at(branch->outputs[i]));
    }
    changed = true;
  }
  return changed;
}

}  // namespace marlo::toolkit
