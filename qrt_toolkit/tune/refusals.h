#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "qrt_toolkit/assign/candidates.h"
#include "qrt_toolkit/assign/reference.h"
#include "qrt_toolkit/tune/layer_candidates.h"

// Why kernels can't run a layer, in words.

namespace marlo::toolkit {

/// A misfit as a person would say it: "input channels: needs a multiple of 8, has 3".
std::string reason_text(const runtime::Misfit& misfit);

/// Asks every registered kernel that takes layers of a kind why it can't take one. It belongs to one
/// thread.
class RefusalFinder {
 public:
  /// @param workshop outlives the finder
  RefusalFinder(Workshop& workshop, const CandidateRules& rules);

  /// The kernels that aren't possible, by name, but for those of layers of other kinds.
  /// @param possible the kernels that are
  std::vector<ExplainedRefusal> of(const ReferenceLayer& layer,
                                   const std::set<std::string>& possible);

 private:
  using Reasons = std::vector<std::string>;

  Reasons of_kernel(const std::string& name, const ReferenceLayer& layer);
  /// Empty where it takes them and computes what is described.
  Reasons of_inputs(runtime::IKernel& kernel, const runtime::IKernelFacts& facts,
                    const ReferenceLayer& layer);
  Reasons of_results(const std::string& name, const ReferenceLayer& layer);

  Workshop& workshop_;
  CandidateRules rules_;
  CandidateFinder any_results_;  // whatever they are
  std::vector<std::string> names_;
};

}  // namespace marlo::toolkit
