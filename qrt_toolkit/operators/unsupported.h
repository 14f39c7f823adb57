#pragma once

#include "qrt_toolkit/graph/node.h"

namespace marlo::toolkit {

/// Why layers can't compute a node whose operator isn't in a table, and what helps.
NodeFault unsupported(const Node& node);

}  // namespace marlo::toolkit
