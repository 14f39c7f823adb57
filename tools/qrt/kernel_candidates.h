#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qrt_core/qrt_core.h"
#include "tools/qrt/kernel_rules.h"

namespace qrt_tool {

/// Kernels over planes that may run a layer, the fastest first.
struct Candidates {
  std::vector<std::string> kernels;
  std::string why_none;  ///< why there are none, and what to do about it
};

/// The candidates of a set for a layer of the earlier generation.
///
/// SSE kernels are among them where their results agree with those of the portable ones whatever
/// the tensors' sizes, which are not known yet.
Candidates candidates_for(const marlo::runtime::LayerInfo& info, OldKernelSet set);

/// Groups of a convolution; 1 for other layers.
uint32_t groups_of(const marlo::runtime::LayerInfo& info);

}  // namespace qrt_tool
