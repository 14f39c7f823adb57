#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/model_info.h"
#include "qrt_toolkit/assign/assign.h"
#include "qrt_toolkit/assign/reference.h"

// Channels in whole blocks: the fastest kernels work on eight at once, and on none where some are left.

namespace marlo::toolkit {

/// A model with more channels inside.
struct PaddedModel {
  runtime::QRTModel model;
  /// Layers that cut the new channels off again, by id, and whose result each cuts.
  std::map<std::string, std::string> cuts;
  /// Layers whose results have more channels now, by id, and how many.
  std::map<std::string, uint32_t> grown;
};

/// Tells layers that cut channels off among the converters, and not as layers of the given network.
void move_cuts(const PaddedModel& padded, AssignReport& report);

/// The same network with filters of zeros, so that tensors between convolutions have channels in
/// multiples of 8. What it takes and returns stays as it is, and so do ids; where another layer than a
/// convolution needs the channels as they were, a layer cuts the new ones off. Whether that is faster
/// isn't asked.
/// @param layers of the network as its configuration runs it; those alone change that portable kernels
///   run on planes
/// @param may_cut whether there is the kernel that cuts
/// @return nothing where no tensor can have more channels
std::optional<PaddedModel> with_whole_blocks(const runtime::QRTModel& model,
                                             const std::string& network,
                                             const std::vector<ReferenceLayer>& layers,
                                             bool may_cut);

/// The kernel that cuts channels off.
inline constexpr const char* kChannelCut = "StridedSlice_Fallback_Float_M1";

}  // namespace marlo::toolkit
