#pragma once

#include "qrt_toolkit/graph/graph.h"

// Rules that make a graph smaller and compute the same. Each is one function that applies wherever
// it can and says whether it changed anything.

namespace marlo::toolkit {

/// All rules, over and over, until none changes anything. Then nodes and values that nothing reads
/// are gone. Throws what shape inference throws.
void simplify(Graph& graph);

/// What is computed from constants and known shapes only becomes a constant.
bool fold_constants(Graph& graph);

/// If with a constant condition becomes the branch that it chooses.
bool take_branches(Graph& graph);

/// Nodes that hand their input on are left out: Identity, Dropout, Cast between floating-point
/// types, Reshape and Transpose that change nothing.
bool drop_identities(Graph& graph);

/// BatchNormalization behind a convolution or matrix product goes into its weights and bias.
bool fold_batch_normalizations(Graph& graph);

/// Nodes whose outputs nothing reads.
bool drop_unused(Graph& graph);

}  // namespace marlo::toolkit
