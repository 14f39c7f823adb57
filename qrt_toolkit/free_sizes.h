#pragma once

#include <functional>

#include "qrt_toolkit/import_stages.h"
#include "qrt_toolkit/onnx/read.h"

// Models for inputs whose sizes stay free.

namespace marlo::toolkit {

/// Whether the options leave a size free that the file leaves open, too.
bool has_free_sizes(const Graph& graph, const ImportOptions& options);

/// Imports a network that has free sizes: with several sizes in their place, so that what follows
/// from a size is seen. Layers that are the same for all of them are those of the model; where a
/// reshape says one size that follows from the others, it is left to be computed.
/// @param import imports with all sizes known
/// Throws UnsupportedError with every layer that depends on a free size.
ImportStages import_with_free_sizes(
    const Graph& graph, const ImportOptions& options,
    const std::function<ImportStages(const ImportOptions&)>& import);

}  // namespace marlo::toolkit
