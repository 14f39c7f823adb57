#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_toolkit/assign/assign.h"
#include "qrt_toolkit/assign/candidates.h"
#include "qrt_toolkit/assign/problem.h"
#include "qrt_toolkit/tune/layer_candidates.h"
#include "qrt_toolkit/tune/measured_costs.h"
#include "qrt_toolkit/tune/meter.h"
#include "qrt_toolkit/tune/refusals.h"

// The kernels that could run a layer as well, and those that couldn't.

namespace marlo::toolkit {

/// Costs that keep what they have told.
class RememberedCosts final : public Costs {
 public:
  /// What a kernel takes on a layer.
  struct Told {
    double ms = 0;             ///< milliseconds
    bool is_measured = false;  ///< else estimated
  };

  /// @param costs outlives the object
  explicit RememberedCosts(MeasuredCosts& costs) : costs_(costs) {}

  void compare(const std::vector<Work>& rivals) override { costs_.compare(rivals); }
  double of(const Work& work) override;

  /// What was told of a candidate; nothing where it wasn't asked for.
  Told of_candidate(const ReferenceLayer& layer, const Candidate& candidate) const;

 private:
  MeasuredCosts& costs_;
  std::map<std::string, Told> told_;
};

/// Tells what is known of the kernels of a problem's layers. It belongs to one thread.
class RivalTeller {
 public:
  /// @param workshop outlives the object
  RivalTeller(Workshop& workshop, const CandidateRules& rules) : refusals_(workshop, rules) {}

  /// Of one layer; nothing of those that stay as they are.
  /// @param costs that the problem was made with
  /// @param with_refusals whether the others are asked why they can't run it
  LayerRivals of(const Problem& problem, size_t layer, const RememberedCosts& costs,
                 bool with_refusals);

 private:
  std::vector<ExplainedRefusal> refusals_of(const ReferenceLayer& layer,
                                            const std::vector<ExplainedCandidate>& candidates);

  RefusalFinder refusals_;
  std::map<std::string, std::vector<ExplainedRefusal>> known_refusals_;
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
