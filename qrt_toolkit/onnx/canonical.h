#pragma once

#include "qrt_toolkit/graph/graph.h"
#include "qrt_toolkit/operators/operator.h"

// One form for every operator, whatever operator set the file was written for: evaluation,
// inference and lowering know only this one. It is the newest form that is read, with these
// differences:
//
//   Resize        also stands for Upsample
//   Softmax, LogSoftmax, Hardmax
//                 have `to_end` = 1 where all axes from `axis` on are one (before opset 13)
//   PRelu         has `channel_slope` = 1 where slopes with one axis are one per channel (before 7)
//   GroupNormalization
//                 has `per_group` = 1 where scale and shift are one per group (before 21)
//   Cast          `to` is an ElementType
//   Constant      is no node, but a value with its numbers

namespace marlo::toolkit {

/// Gives a node, whose inputs are known, the one form. New constants are added to `graph`. Throws
/// NodeFault for what has no such form.
void make_canonical(Node& node, Graph& graph);

/// The tensor that a Constant node's one attribute stands for.
Constant constant_of_attribute(const std::pair<const std::string, Attribute>& attribute);

}  // namespace marlo::toolkit
