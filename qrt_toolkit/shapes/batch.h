#pragma once

#include <optional>
#include <vector>

#include "qrt_toolkit/operators/operator.h"

// Which axis of each value is the batch. Tensors of the runtime have none, so an import drops it.

namespace marlo::toolkit {

/// The batch axis of every value of `graph`, by number; nothing for values without one.
///
/// An axis is a batch where an operator says so (a convolution's first), and from there on through
/// every node that carries the axis along, forwards and backwards. A graph that asks for no batch
/// has none.
///
/// Throws UnsupportedError for inputs with a batch of another size than one.
std::vector<std::optional<size_t>> find_batch_axes(const Graph& graph,
                                                   const std::vector<Facts>& facts);

}  // namespace marlo::toolkit
