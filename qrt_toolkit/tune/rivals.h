#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_toolkit/assign/assign.h"
#include "qrt_toolkit/explain/explain.h"
#include "qrt_toolkit/tune/meter.h"

// The kernels that could run a layer as well, and those that couldn't.

namespace marlo::toolkit {

/// What is known of a layer's kernels. Plain data.
struct LayerRivals {
  /// The chosen one is the first. Its converters have an infinite time where one of them may not be
  /// measured, as it needs more than the kernels that are allowed.
  std::vector<ExplainedCandidate> candidates;
  std::vector<ExplainedRefusal> refusals;  ///< by name
};

/// How candidates are looked for. Plain data.
struct RivalOptions {
  AssignOptions assign;                    ///< kernels, tolerance, input shapes and the network
  double budget = 60;                      ///< seconds, after which nothing more is measured
  std::string wisdom;                      ///< file of earlier measurements; empty for none
  std::string processor;                   ///< what the measurements are for; see `processor_name`
  Meter* meter = nullptr;                  ///< takes the times; null for the clock. Not owned
  std::function<bool()> go_on{};           ///< asked between measurements; may be empty
  std::function<void(size_t)> progress{};  ///< told how many layers are done; may be empty
};

/// The candidates of all layers.
struct Rivals {
  std::map<std::string, LayerRivals> layers;  ///< by layer id
  std::vector<std::string> notes;             ///< what went wrong without stopping it, in words
  bool is_complete = true;                    ///< whether nothing was left out for want of time
};

/// Finds and measures them.
/// @throws std::invalid_argument as `assign_kernels`
Rivals find_rivals(const runtime::QRTModel& model, const runtime::KernelRegistry& kernels,
                   const RivalOptions& options);

}  // namespace marlo::toolkit
