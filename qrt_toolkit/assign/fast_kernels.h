#pragma once

#include <memory>

#include "qrt_toolkit/assign/kernel_set.h"
#include "qrt_toolkit/assign/trial.h"

namespace marlo::toolkit {

/// Whether a kernel that isn't portable takes a layer with one input, in any layout, and says of no
/// part of its description that it computes something else.
/// @param set what it may need
/// @param planes the input as CHW
bool has_fast_kernel(Workshop& workshop, KernelSet set,
                     const std::shared_ptr<runtime::LayerInfo>& layer,
                     const runtime::TensorShape& planes);

}  // namespace marlo::toolkit
