#pragma once

#include <cstddef>
#include <string>

#include "qrt_toolkit/explain/explain.h"

// How `qrt explain` shows a network.

namespace qrt_tool {

/// Tables: the layers, the sums by kind, and the machine.
std::string explain_text(const marlo::toolkit::Explanation& explanation, size_t width);

/// Tables of one layer: the kernels that could run it, and why others can't.
std::string layer_text(const marlo::toolkit::ExplainedLayer& layer,
                       const marlo::toolkit::Explanation& explanation, size_t width);

/// All of it.
std::string explain_json(const marlo::toolkit::Explanation& explanation);

}  // namespace qrt_tool
