#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "qrt_toolkit/explain/explain.h"
#include "tools/qrt/json_text.h"

// How `qrt explain` shows a network.

namespace qrt_tool {

/// Tables: the layers, the sums by kind, and the machine.
std::string explain_text(const marlo::toolkit::Explanation& explanation, size_t width);

/// Tables of one layer: the kernels that could run it, and why others can't.
std::string layer_text(const marlo::toolkit::ExplainedLayer& layer,
                       const marlo::toolkit::Explanation& explanation, size_t width);

/// The members "candidates" and "refusals" of a layer's object.
void add_candidates(JsonText& json,
                    const std::vector<marlo::toolkit::ExplainedCandidate>& candidates,
                    const std::vector<marlo::toolkit::ExplainedRefusal>& refusals);

/// All of it.
std::string explain_json(const marlo::toolkit::Explanation& explanation);

}  // namespace qrt_tool
