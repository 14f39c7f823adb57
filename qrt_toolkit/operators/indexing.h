#pragma once

#include "qrt_toolkit/operators/operator.h"

namespace marlo::toolkit {

/// Slice: a range of some axes, forwards or backwards, with steps.
Results slice(const Node& node, const Operands& inputs);
void infer_slice(ShapeStep& step);

/// Pad: more of some axes, or less of them where a number is negative.
Results pad(const Node& node, const Operands& inputs);
void infer_pad(ShapeStep& step);

/// A place along an axis, counted from its end where it is negative. Throws NodeFault for one that
/// the axis hasn't got.
int64_t index_from_front(int64_t index, int64_t size);

/// Throws NodeFault for places of shape `box` that GatherElements can't take from a tensor of
/// `shape` along an axis.
void check_gathered(const Extents& box, const Extents& shape, size_t axis);

}  // namespace marlo::toolkit
