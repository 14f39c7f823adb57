#pragma once

#include <vector>

#include "qrt_toolkit/graph/graph.h"
#include "qrt_toolkit/operators/operator.h"

// Types and shapes of every value of a graph, as far as they follow from those of its inputs.

namespace marlo::toolkit {

/// What is known of every value of `graph`, by number. Shape arithmetic is evaluated: where all
/// that a node reads is known, so are its outputs' numbers (up to `kMostFolded` elements).
///
/// Throws UnsupportedError with every node whose operator isn't in the table, or whose inputs don't
/// fit; what such nodes make is taken as unknown, so that one fault isn't reported twice.
std::vector<Facts> infer_facts(const Graph& graph);

/// The same for a nested graph, whose captures are known as given, one per `graph.captures`.
std::vector<Facts> infer_facts(const Graph& graph, const std::vector<Facts>& captured);

/// Enters types and shapes that are known into the values of the graph.
void infer_shapes(Graph& graph);

/// Tensors of more elements are no shape arithmetic, and aren't computed on the way.
inline constexpr int64_t kMostFolded = 65536;

}  // namespace marlo::toolkit
