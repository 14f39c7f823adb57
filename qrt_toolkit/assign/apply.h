#pragma once

#include <string>

#include "qrt_core/runtime/model/model_info.h"
#include "qrt_toolkit/assign/assign.h"
#include "qrt_toolkit/assign/optimiser.h"
#include "qrt_toolkit/assign/problem.h"

// From an assignment to the tree of a model.

namespace marlo::toolkit {

/// The model with another configuration of one network, and the converters that this needs as
/// layers.
AssignedModel apply_assignment(const runtime::QRTModel& model, const std::string& network,
                               const Problem& problem, const Assignment& assignment);

}  // namespace marlo::toolkit
