#pragma once

#include "qrt_toolkit/graph/graph.h"

namespace marlo::toolkit {

/// The input of a Resize or Slice node that `tie_sizes` adds, beside those of the operator.
size_t tied_input(const Node& node);

/// The attributes that it adds: axes of the node's tensor, and for each the axis of the tied input whose
/// size it gets.
inline constexpr const char* kTiedAxes = "tied_axes";
inline constexpr const char* kTiedFrom = "tied_from";

/// Lets Resize nodes whose sizes are those of another tensor, and Slice nodes that end where another
/// tensor does, read this tensor as well: shape arithmetic folds away, and with it where the numbers came
/// from. What they compute stays the same.
///
/// @param graph with the ranks of its tensors known
void tie_sizes(Graph& graph);

}  // namespace marlo::toolkit
