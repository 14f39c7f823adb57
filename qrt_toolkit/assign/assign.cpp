#include "qrt_toolkit/assign/assign.h"

#include <stdexcept>
#include <vector>

#include "qrt_toolkit/assign/apply.h"
#include "qrt_toolkit/assign/candidates.h"
#include "qrt_toolkit/assign/channels.h"
#include "qrt_toolkit/assign/network.h"
#include "qrt_toolkit/assign/problem.h"

namespace marlo::toolkit {

namespace {

/// The cheapest kernels for the layers of a network.
struct Choices {
  Problem problem;
  Assignment assignment;
};

Choices cheapest(const std::vector<ReferenceLayer>& layers, CandidateFinder& finder, Costs& costs) {
  Choices choices{make_problem(layers, finder, costs), {}};
  choices.assignment = cheapest_assignment(choices.problem.graph);
  return choices;
}

}  // namespace

AssignedModel assign_kernels(const runtime::QRTModel& model, const runtime::KernelRegistry& kernels,
                             Costs& costs, const AssignOptions& options) {
  const std::string id = network_id(model, options.network);
  check_runnable(config_of(model, id));
  Workshop workshop(kernels);
  CandidateFinder finder(workshop, {options.set, options.tolerance, {}});
  const auto layers =
      walk_reference(network_of(model, id), config_of(model, id), options.inputs, workshop);
  const Choices choices = cheapest(layers, finder, costs);
  const bool may_cut = kernels.Create(kChannelCut) != nullptr;
  if (const auto padded = with_whole_blocks(model, id, layers, may_cut)) {
    const Choices others =
        cheapest(walk_reference(network_of(padded->model, id), config_of(padded->model, id),
                                options.inputs, workshop),
                 finder, costs);
    if (others.assignment.cost < choices.assignment.cost) {
      AssignedModel assigned =
          apply_assignment(padded->model, id, others.problem, others.assignment);
      move_cuts(*padded, assigned.report);
      return assigned;
    }
  }
  return apply_assignment(model, id, choices.problem, choices.assignment);
}

}  // namespace marlo::toolkit
