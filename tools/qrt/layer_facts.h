#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "qrt_core/qrt_core.h"
#include "qrt_toolkit/explain/layer_work.h"

// What follows from a layer's description alone.

namespace qrt_tool {

using marlo::toolkit::kind_of;
using marlo::toolkit::multiply_adds;

/// Trained numbers that the description carries.
uint64_t weight_count(const marlo::runtime::LayerInfo& info);

/// What a kernel for such a layer demands of its description, and what that holds, for a message
/// about a refused layer.
std::string description_fault(const marlo::runtime::LayerInfo& info);

/// What such a layer reads: channels and dimensions of its input. Nothing for layers that take any.
struct ExpectedInput {
  size_t dims;        ///< 3 for planes, 2 for lines
  uint32_t channels;  ///< the first size
};
std::optional<ExpectedInput> expected_input(const marlo::runtime::LayerInfo& info);

/// Whether such a layer gives as many planes as it reads.
bool keeps_channels(const marlo::runtime::LayerInfo& info);

/// Why the layer's window doesn't fit into an input of these sizes; empty if it does.
std::string window_fault(const marlo::runtime::LayerInfo& info, const std::vector<uint32_t>& input);

}  // namespace qrt_tool
