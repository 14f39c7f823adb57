#include "qrt_toolkit/operators/groups.h"

// Operators that hold graphs. What they mean is how a graph is evaluated, so the functions stand
// there, and their rows are empty.

namespace marlo::toolkit {

std::span<const Operator> control_operators() {
  static constexpr Operator kRows[] = {
      {"If", 1, nullptr, nullptr, "results that are tensors"},
  };
  return kRows;
}

}  // namespace marlo::toolkit
