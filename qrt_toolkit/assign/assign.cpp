#include "qrt_toolkit/assign/assign.h"

#include <stdexcept>

#include "qrt_toolkit/assign/apply.h"
#include "qrt_toolkit/assign/candidates.h"
#include "qrt_toolkit/assign/network.h"
#include "qrt_toolkit/assign/problem.h"

namespace marlo::toolkit {

AssignedModel assign_kernels(const runtime::QRTModel& model, const runtime::KernelRegistry& kernels,
                             Costs& costs, const AssignOptions& options) {
  const std::string id = network_id(model, options.network);
  Workshop workshop(kernels);
  CandidateFinder finder(workshop, {options.set, options.tolerance});
  const Problem problem = make_problem(
      walk_reference(network_of(model, id), config_of(model, id), options.inputs, workshop), finder,
      costs);
  return apply_assignment(model, id, problem, cheapest_assignment(problem.graph));
}

}  // namespace marlo::toolkit
