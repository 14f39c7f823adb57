#pragma once

#include <string>
#include <vector>

#include "qrt_toolkit/graph/node.h"

namespace marlo::toolkit {

/// The letters of an Einsum, one for each axis; those of an ellipsis are digits, the last axis's
/// being '0'.
struct EinsumLabels {
  std::vector<std::string> inputs;
  std::string output;
};

/// Reads the equation of a node. Throws NodeFault where it doesn't fit the ranks of the inputs.
EinsumLabels einsum_labels(const Node& node, const std::vector<size_t>& ranks);

}  // namespace marlo::toolkit
