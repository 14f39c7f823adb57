#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "qrt_toolkit/assign/optimiser.h"
#include "qrt_toolkit/assign/problem.h"

// Assignments next to one: other kernels in the same forms, which cost nearly as little.

namespace marlo::toolkit {

/// One kernel in place of another, in all layers that do the same.
struct LocalChange {
  std::vector<std::pair<size_t, size_t>> choices;  ///< layers with their new choices
  double cost = 0;                                 ///< of these layers before the change
};

/// The changes that may make a pass faster although no layer alone is: each to the cheapest other
/// kernel that reads and makes the same forms. Those of the dearest layers are first.
/// @param close so many times the cost of the present kernel may the other one take
std::vector<LocalChange> local_changes(const Problem& problem, const Assignment& assignment,
                                       double close);

/// The assignment after a change.
Assignment changed(const Problem& problem, Assignment assignment, const LocalChange& change);

}  // namespace marlo::toolkit
