#pragma once

#include "qrt_toolkit/operators/operator.h"

namespace marlo::toolkit {

/// GridSample: a picture at the places that a grid names.
Results grid_sample(const Node& node, const Operands& inputs);
void infer_grid_sample(ShapeStep& step);

}  // namespace marlo::toolkit
