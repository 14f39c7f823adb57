#pragma once

#include <functional>

#include "qrt_toolkit/import_stages.h"
#include "qrt_toolkit/onnx/read.h"

// Models for inputs whose sizes stay free.

namespace marlo::toolkit {

/// What a first size is that both the options and the file leave open, of inputs of several axes.
enum class FirstSize {
  batch,  ///< of one, as nearly always
  free,   ///< one like the others: the steps of a sequence, the rows of a matrix
};

/// Whether the options leave a size free that the file leaves open, too; not the first of several.
bool has_free_sizes(const Graph& graph, const ImportOptions& options);

/// The same for the first of several sizes.
bool has_free_first_size(const Graph& graph, const ImportOptions& options);

/// Imports a network that has free sizes: with several sizes in their place, so that what follows
/// from a size is seen. Layers that are the same for all of them are those of the model; where a
/// reshape says one size that follows from the others, it is left to be computed.
/// @param first where it is free, an import that fails for two sizes has failed
/// @param import imports with all sizes known
/// Throws UnsupportedError with every layer that depends on a free size.
ImportStages import_with_free_sizes(
    const Graph& graph, const ImportOptions& options, FirstSize first,
    const std::function<ImportStages(const ImportOptions&)>& import);

}  // namespace marlo::toolkit
