#pragma once

#include <string>
#include <vector>

#include "qrt_core/runtime/tensor/tensor_shape.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

/// Name of a layout for messages, "CHW"; for a code without one "layout 99".
QRT_API std::string LayoutText(LayoutType layout);

/// A shape for messages, "FLOAT32 CHW [1, 28, 28]"; a location other than main memory is named too.
QRT_API std::string ShapeText(const TensorShape& shape);

/// Several shapes, joined by "and"; "nothing" for none.
QRT_API std::string ShapesText(const std::vector<TensorShape>& shapes);

}  // namespace marlo::runtime
