#pragma once

#include <string_view>

#include "qrt_core/utility/export.h"

// Activations that the kernel of the layer before applies; see `IKernelFacts::epilogue`.

namespace marlo::runtime {

class LayerInfo;

/// Whether a layer may be the activation of an epilogue, "ReLU", by what its description says of its
/// function and parameters. Descriptions of activations tell the rectifier, the leaky one and tanh by a
/// code, and the others by the kernel alone: for these it is true.
QRT_API bool may_be_epilogue(const LayerInfo& layer, std::string_view epilogue);

}  // namespace marlo::runtime
