#pragma once

#include <optional>
#include <string>
#include <vector>

#include "qrt_toolkit/graph/graph.h"
#include "qrt_toolkit/shapes/infer.h"

// What the rules ask of a graph, and do to it.

namespace marlo::toolkit {

/// A constant input; null for another, or none.
const Constant* constant_input(const Graph& graph, const Node& node, size_t place);

/// The number of an input that is a constant of one element.
std::optional<double> number_input(const Graph& graph, const Node& node, size_t place);

/// The node that makes an input, whoever else reads it; `kAbsent` where none does.
NodeId source_of(const Graph& graph, const Node& node, size_t place);

/// The node that makes an input, if nothing else sees what it makes.
NodeId only_source(const Graph& graph, const Node& node, size_t place);

/// Of a node with two inputs, the place of the one that is no constant, if the other is.
std::optional<size_t> tensor_beside_constant(const Graph& graph, const Node& node);

/// Whether each number of the output is a function of the one in its place.
bool works_on_single_numbers(const Node& node);

/// Whether an operator works on operands that are broadcast from the last axis on, or joins them.
bool combines(const Node& node);

/// Tries a rule at every node that is still there. @return whether it changed anything
template <bool (*rule)(Graph&, NodeId)>
bool everywhere(Graph& graph) {
  bool changed = false;
  for (const NodeId id : graph.order()) {
    changed = (graph.has_node(id) && rule(graph, id)) || changed;
  }
  return changed;
}

/// Whether a node's values are those that were there when `facts` were found.
bool is_known_to(const std::vector<Facts>& facts, const Node& node);

/// The same for a rule that asks what is known of the values before any node changes. Nodes that
/// read what the rule has made meanwhile wait for the next time.
template <bool (*rule)(Graph&, NodeId, const std::vector<Facts>&)>
bool everywhere(Graph& graph) {
  bool changed = false;
  const std::vector<Facts> facts = infer_facts(graph);
  for (const NodeId id : graph.order()) {
    const bool is_there = graph.has_node(id) && is_known_to(facts, graph.node(id));
    changed = (is_there && rule(graph, id, facts)) || changed;
  }
  return changed;
}

/// A node to stand in the place of `like`, whose name and origin it keeps.
Node node_like(const Node& like, const char* op, std::vector<ValueId> inputs);

/// A constant list.
ValueId add_integers(Graph& graph, std::vector<int64_t> numbers);

/// Adds a node of one output, which nothing reads yet. @return the output
ValueId add_node(Graph& graph, Node node, ElementType type);

/// Puts a node in the place of an old one, whose output's name it keeps.
void put(Graph& graph, NodeId old, Node node);

/// Puts a node of one input and output in the place of what makes `out`, which keeps its name.
/// What made it stays, unread by anything that read `out`.
NodeId replace_output(Graph& graph, ValueId out, Node node);

/// Takes a node away whose first output is to be `in`, and gives `in` the output's name where `in`
/// is no input of the graph.
void merge_into_source(Graph& graph, NodeId node, ValueId in);

}  // namespace marlo::toolkit
