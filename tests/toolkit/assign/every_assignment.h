#pragma once

#include <vector>

#include "qrt_toolkit/assign/optimiser.h"

namespace marlo::toolkit::test {

/// What the cheapest way to run a graph costs, found by trying every way; infinity for none.
double by_trying_all(const std::vector<ChoiceLayer>& layers);

}  // namespace marlo::toolkit::test
