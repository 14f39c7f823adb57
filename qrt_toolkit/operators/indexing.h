#pragma once

#include "qrt_toolkit/operators/operator.h"

namespace marlo::toolkit {

/// Slice: a range of some axes, forwards or backwards, with steps.
Results slice(const Node& node, const Operands& inputs);
void infer_slice(ShapeStep& step);

/// Pad: more of some axes, or less of them where a number is negative.
Results pad(const Node& node, const Operands& inputs);
void infer_pad(ShapeStep& step);

/// How long the parts of a Split node are. Throws NodeFault where they don't make the axis.
/// @param size of the axis
/// @param outputs the number of parts
/// @param asked the lengths that the node is given; empty for none
Numbers::Integers split_parts(const Node& node, int64_t size, size_t outputs,
                              const Numbers::Integers& asked);

/// A place along an axis, counted from its end where it is negative. Throws NodeFault for one that
/// the axis hasn't got.
int64_t index_from_front(int64_t index, int64_t size);

/// Throws NodeFault for places of shape `box` that GatherElements can't take from a tensor of
/// `shape` along an axis.
void check_gathered(const Extents& box, const Extents& shape, size_t axis);

/// Tuples of places, each of which names an element or a part of a tensor.
struct Tuples {
  int64_t batches = 1;   ///< leading axes that the tensor and the tuples share, made one
  int64_t in_batch = 0;  ///< tuples in each batch
  int64_t part = 1;      ///< elements that each names
  std::vector<int64_t> offsets;
};

/// The elements of a tensor of `shape` that tuples along the last axis of `indices` name.
/// @param batch_axes how many leading axes both have in common
Tuples tuples_of(const Extents& shape, const Numbers& indices, size_t batch_axes);

/// The elements of a tensor of `shape` at the places along an axis that `indices` name, one by one: of
/// GatherElements and ScatterElements.
std::vector<int64_t> elements_along(const Extents& shape, const Numbers& indices, size_t axis);

}  // namespace marlo::toolkit
