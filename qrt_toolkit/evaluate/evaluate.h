#pragma once

#include <functional>
#include <vector>

#include "qrt_toolkit/graph/graph.h"
#include "qrt_toolkit/operators/operator.h"

// Runs nodes and graphs by the plain definitions of the table of operators.

namespace marlo::toolkit {

/// The outputs of one node. Throws UnsupportedError for an operator that isn't in the table, and
/// for inputs or attributes that it can't compute.
/// @param inputs one per input of the node; null where an optional one isn't given
Results evaluate_node(const Node& node, const std::vector<const Numbers*>& inputs);

/// Told of each value as soon as it is computed, and of the graph's inputs.
using Watch = std::function<void(ValueId, const SharedNumbers&)>;

/// The outputs of a graph, one per `graph.outputs`.
/// @param inputs one per `graph.inputs`
/// @param captured one per `graph.captures`; empty for a graph that isn't nested
/// @param watch may be empty
/// A value is released as soon as its last reader has run.
std::vector<SharedNumbers> evaluate_graph(const Graph& graph,
                                          const std::vector<SharedNumbers>& inputs,
                                          const std::vector<SharedNumbers>& captured = {},
                                          const Watch& watch = nullptr);

/// What an operator's fault says about the node: the refusal, alone in its error.
template <class Work>
auto with_node(const Node& node, Work&& work) {
  try {
    return work();
  } catch (const NodeFault& fault) {
    throw UnsupportedError({refusal_of(node, fault)});
  }
}

/// The row of a node's operator; throws NodeFault for one that isn't in the table, or is read in an
/// older meaning than the table has.
const Operator& row_of(const Node& node);

}  // namespace marlo::toolkit
