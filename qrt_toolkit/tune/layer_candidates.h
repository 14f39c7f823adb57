#pragma once

#include <string>
#include <vector>

#include "qrt_core/runtime/tensor/tensor_shape.h"
#include "qrt_core/utility/export.h"
#include "qrt_toolkit/assign/kernel_set.h"

// What is known of the kernels that could run a layer, and of those that couldn't.

namespace marlo::toolkit {

/// A kernel that can run a layer. Plain data.
struct ExplainedCandidate {
  std::string kernel;                        ///< its name
  KernelSet set = KernelSet::portable;       ///< what it needs
  std::vector<runtime::TensorShape> inputs;  ///< as it reads them
  runtime::TensorShape output;               ///< as it makes it
  bool is_chosen = false;                    ///< it is the one that the given model names
  bool is_measured = false;                  ///< else its times are estimated
  double ms = 0;                             ///< of the kernel alone
  double converters_ms = 0;                  ///< of converters that it needs where it would stand
  double difference = 0;  ///< of its results from the layer's, over the largest; 0 for the same

  /// Of both together.
  QRT_API double whole_ms() const;
};

/// A kernel that can't run a layer. Plain data.
struct ExplainedRefusal {
  std::string kernel;                   ///< its name
  KernelSet set = KernelSet::portable;  ///< what it needs
  std::vector<std::string> reasons;     ///< why not, in words; never empty
};

/// What is known of a layer's kernels. Plain data.
struct LayerRivals {
  /// The given model's is the first. Its converters have an infinite time where one of them may not
  /// be measured, as it needs more than the kernels that are allowed.
  std::vector<ExplainedCandidate> candidates;
  std::vector<ExplainedRefusal> refusals;  ///< by name
};

}  // namespace marlo::toolkit
