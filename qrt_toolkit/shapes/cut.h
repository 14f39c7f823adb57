#pragma once

#include <string>
#include <vector>

#include "qrt_toolkit/graph/graph.h"

// A part of a graph in place of the whole.

namespace marlo::toolkit {

/// Makes tensors the outputs, and takes away what only the former outputs needed, inputs among it.
/// @param names of tensors, or of nodes for their first outputs
/// @param notes receives a line for every input that is gone
/// Throws UnsupportedError with every name that the graph doesn't have.
void cut_graph(Graph& graph, const std::vector<std::string>& names,
               std::vector<std::string>& notes);

}  // namespace marlo::toolkit
