#pragma once

#include <vector>

#include "qrt_core/runtime/model/model_info.h"
#include "qrt_toolkit/watch/recorder.h"

// How far a layer's numbers may be from the exact ones, by what its kernel promises.

namespace marlo::toolkit {

/// By how much each layer's kernel may be off for what it read in a pass: n eps S, n being the
/// number of terms in a sum, S the size of the sum or of the largest result, eps 2^-23.
/// @param records of that pass, one per layer
std::vector<double> agreements_of(const runtime::QRModelInfo& network,
                                  const runtime::QRModelCfg& config,
                                  const std::vector<LayerRecord>& records);

}  // namespace marlo::toolkit
