#pragma once

#include <string>
#include <vector>

#include "qrt_toolkit/graph/graph.h"

namespace marlo::toolkit {

/// Initial states of recurrent layers that are inputs of the graph, and come out of it again as
/// outputs, are left to the kernels, which keep their state: both ends go, however the graph packs
/// several layers' states into one tensor.
/// @param output_names one per output of the graph; those that go are taken away
/// @return what was done, in words
std::vector<std::string> keep_states(Graph& graph, std::vector<std::string>& output_names);

}  // namespace marlo::toolkit
