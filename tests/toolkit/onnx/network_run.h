#pragma once

#include <string>
#include <vector>

#include "qrt_toolkit/graph/numbers.h"
#include "qrt_toolkit/import_onnx.h"

// Imported networks, run on numbers.

namespace marlo::toolkit::test {

/// A tensor and the name of the input that it is for.
struct NamedInput {
  std::string name;
  Numbers numbers;
};

/// Runs an imported network with its own kernels, once for each list of inputs, in turn: what its
/// layers keep, they keep. Inputs that it doesn't have are left out.
/// @return its outputs for each list, in order
std::vector<std::vector<Numbers>> run_network(const ImportedModel& imported,
                                              const std::vector<std::vector<NamedInput>>& passes);

}  // namespace marlo::toolkit::test
