#pragma once

#include "qrt_toolkit/operators/operator.h"

namespace marlo::toolkit {

/// Slice: a range of some axes, forwards or backwards, with steps.
Results slice(const Node& node, const Operands& inputs);
void infer_slice(ShapeStep& step);

/// Pad: more of some axes, or less of them where a number is negative.
Results pad(const Node& node, const Operands& inputs);
void infer_pad(ShapeStep& step);

[[noreturn]] void throw_index(int64_t index, int64_t size);

}  // namespace marlo::toolkit
