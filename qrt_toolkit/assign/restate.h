#pragma once

#include <memory>
#include <span>

#include "qrt_core/runtime/model/conv_info.h"

// Kernels of one kind that read a description in two ways: the same layer is stated differently for
// each.

namespace marlo::toolkit {

/// Another description of a layer, with the same ids; null for a layer that has no other, or whose
/// numbers the other can't hold.
using Restatement = std::shared_ptr<runtime::LayerInfo> (*)(const runtime::LayerInfo&);

/// A transposed convolution as the portable kernel reads it, weights [in, out, y, x] and paddings
/// around the spread input, as the fast ones do: [out, in, y, x] and what is cut off the result.
std::shared_ptr<runtime::LayerInfo> with_cut_paddings(const runtime::LayerInfo& layer);

/// The other way round.
std::shared_ptr<runtime::LayerInfo> with_inner_paddings(const runtime::LayerInfo& layer);

/// The ways to state a layer otherwise; which kernel reads which of them, a trial shows.
std::span<const Restatement> restatements_of(const runtime::LayerInfo& layer);

}  // namespace marlo::toolkit
