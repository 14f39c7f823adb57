#pragma once

#include "qrt_toolkit/operators/operator.h"

namespace marlo::toolkit {

/// GridSample: a picture at the places that a grid names.
Results grid_sample(const Node& node, const Operands& inputs);
void infer_grid_sample(ShapeStep& step);

/// One axis of a Resize node: its sizes, and from where in the input each output is taken.
struct ResampledAxis {
  int64_t in;
  int64_t out;
  double scale;
  double roi_start = 0;
  double roi_end = 1;
  bool changes = true;  ///< whether anything is done to it
};

/// What a Resize node does to each axis of a tensor. Throws NodeFault for inputs that don't fit.
/// @param roi,scales,sizes its other inputs; null where they aren't given
std::vector<ResampledAxis> resampled_axes(const Node& node, const Extents& shape,
                                          const Numbers* roi, const Numbers* scales,
                                          const Numbers* sizes);

/// The element that a nearest Resize node takes at `place` of an axis; negative where the
/// extrapolation value stands.
int64_t nearest_source(const Node& node, const ResampledAxis& axis, int64_t place);

/// A resampled axis as a product: `matrix` [out, in] times the axis, and `shift` [out] added.
struct Resampling {
  Numbers matrix;
  Numbers shift;
};
Resampling resampling_of(const Node& node, const ResampledAxis& axis);

}  // namespace marlo::toolkit
