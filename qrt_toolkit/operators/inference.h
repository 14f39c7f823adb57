#pragma once

#include "qrt_toolkit/operators/operator.h"

// Rules of shape inference that many operators share.

namespace marlo::toolkit {

/// Every output has the type and shape of the first input.
void infer_same(ShapeStep& step);

/// The first output is all inputs, broadcast against each other, of the first input's type.
void infer_broadcast(ShapeStep& step);

/// The same with booleans.
void infer_comparison(ShapeStep& step);

/// All dimensions unknown.
Shape unknown_shape(size_t rank);

}  // namespace marlo::toolkit
