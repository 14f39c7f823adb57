#pragma once

#include <memory>
#include <string>

#include "qrt_core/qrt_core.h"

// Kernels of one kind don't all read a description alike, and some kinds have no kernel of their
// own.

namespace qrt_tool {

/// What a kernel must be given to compute a layer of the earlier generation: the layer's own
/// description, or a changed copy.
///
/// - A transposed convolution holds weights [out, in, y, x], and as paddings what is cut off the
///   full result; the portable kernel wants weights [in, out, y, x], and paddings of a convolution
///   over the spread input.
/// - A concatenation counts its axis with a batch; one kernel counts without.
/// - A batch normalisation becomes a convolution of 1x1 with one channel a group where the kernel
///   is one of convolutions: x * a + b with a = scale / sqrt(variance + eps) and
///   b = shift - mean * a, computed in double.
/// @throws ToolError (kModelError) for numbers that the changed description can't hold
std::shared_ptr<marlo::runtime::LayerInfo> fitted(
    const std::shared_ptr<marlo::runtime::LayerInfo>& info, const std::string& kernel);

}  // namespace qrt_tool
