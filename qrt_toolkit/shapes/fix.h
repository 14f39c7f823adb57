#pragma once

#include <map>
#include <string>

#include "qrt_toolkit/graph/graph.h"

// What a caller says of a graph's inputs.

namespace marlo::toolkit {

/// Gives inputs their shapes, by name. A size that the graph states must be the same. Where the graph
/// has one symbol for sizes of several inputs, they all get the number that one of them is given.
/// Throws UnsupportedError with every name that is no input, and every shape that doesn't fit.
void fix_shapes(Graph& graph, const std::map<std::string, Shape>& shapes);

/// Makes inputs constants, by name; integers and reals become what the graph asks for.
/// Throws UnsupportedError with every name that is no input, and every tensor that doesn't fit.
void fix_values(Graph& graph, const std::map<std::string, Numbers>& values);

/// An input whose first size is free, of two axes or more, is taken for a batch of one, and so are
/// the sizes with its symbol in other inputs.
/// @return the names of these inputs
std::vector<std::string> assume_batch_of_one(Graph& graph);

}  // namespace marlo::toolkit
