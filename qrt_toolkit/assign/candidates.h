#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "qrt_toolkit/assign/costs.h"
#include "qrt_toolkit/assign/form.h"
#include "qrt_toolkit/assign/kernel_set.h"
#include "qrt_toolkit/assign/reference.h"
#include "qrt_toolkit/assign/restate.h"
#include "qrt_toolkit/assign/trial.h"

// Which kernels compute what a layer's reference kernel computes, and in which forms.

namespace marlo::toolkit {

/// One kernel that can run a layer.
struct Candidate {
  std::string kernel;
  KernelSet set = KernelSet::portable;
  runtime::InputUse use = runtime::InputUse::reads;
  std::vector<Form> inputs;
  Form output;
  /// Makes the description that it reads as the reference kernel reads its own; null for the same.
  Restatement restate = nullptr;
  double difference = 0;  ///< from the reference in the trial, relative; 0 for the same bits
};

/// Which kernels are trusted.
struct CandidateRules {
  KernelSet set = KernelSet::sse;  ///< what they may need
  double tolerance = 1e-4;         ///< how far they may be from the reference
  std::function<bool()> go_on{};   ///< asked between trials; false ends them for good. May be empty
};

/// Finds candidates. Every registered kernel is asked whether it takes the layer, in every layout
/// that its inputs can have, and must then agree with the reference kernel on a small picture with
/// the layer's own weights. Layers that differ in ids and in the numbers of their weights only are
/// tried once. It belongs to one thread.
class CandidateFinder {
 public:
  /// @param workshop outlives the finder
  CandidateFinder(Workshop& workshop, const CandidateRules& rules);

  /// The reference as the first, whatever it needs, then the others by name. Kernels that apply what a layer may apply
  /// make the form with that epilogue, and the layer behind passes on what it reads in this form.
  const std::vector<Candidate>& of(const ReferenceLayer& layer);

  /// The epilogue whose function a layer's reference kernel computes of its only input, and of which
  /// there are kernels; empty for none.
  std::string epilogue_of(const ReferenceLayer& layer);

  /// Whether a kernel needs no more than the rules allow. References may need more.
  bool allows(const Candidate& candidate) const { return candidate.set <= rules_.set; }

  /// Kernels that move a tensor from one form to another; empty where there are none.
  const std::vector<Candidate>& converters(const Form& from, const Form& to);

  /// The kernels that only the rules' set of instructions keeps out, by name.
  const std::vector<std::string>& excluded() const { return excluded_; }

 private:
  struct Trial;

  bool goes_on() const { return !rules_.go_on || rules_.go_on(); }
  std::vector<Candidate> find(const ReferenceLayer& layer);
  void try_kernel(const std::string& name, const Trial& trial, std::vector<Candidate>& found);
  bool try_kernel(const std::string& name, const Trial& trial, Restatement restate,
                  const std::shared_ptr<runtime::LayerInfo>& info, std::vector<Candidate>& found);
  void add_passing_on(const ReferenceLayer& layer, std::vector<Candidate>& found);
  std::string tried_epilogue(const ReferenceLayer& layer);
  Candidate candidate(const std::string& name, const runtime::IKernel& kernel) const;

  Workshop& workshop_;
  CandidateRules rules_;
  std::map<std::string, std::string> names_;  // of the kernels that may be used, with epilogues
  std::set<std::string> epilogues_;           // that these have
  std::vector<std::string> excluded_;
  std::map<std::string, std::vector<Candidate>> known_;
  std::map<std::string, std::string> known_epilogues_;
};

}  // namespace marlo::toolkit
