#pragma once

#include "qrt_toolkit/operators/operator.h"

namespace marlo::toolkit {

/// GridSample: a picture at the places that a grid names.
Results grid_sample(const Node& node, const Operands& inputs);
void infer_grid_sample(ShapeStep& step);

/// The element that a nearest Resize node takes at `place` of an axis of `out` elements, which come of
/// `in` by `scale`; it may lie beyond the ends, where the outermost element stands.
int64_t nearest_source(const Node& node, int64_t in, int64_t out, double scale, int64_t place);

}  // namespace marlo::toolkit
