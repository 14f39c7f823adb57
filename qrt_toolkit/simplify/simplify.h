#pragma once

#include "qrt_toolkit/graph/graph.h"

// Rules that make a graph smaller and compute the same. Each is one function that applies wherever
// it can and says whether it changed anything.

namespace marlo::toolkit {

/// All rules, over and over, until none changes anything. Then nodes and values that nothing reads
/// are gone. Throws what shape inference throws.
void simplify(Graph& graph);

/// What is computed from constants and known shapes only becomes a constant.
/// @param most a result of more numbers than this, and than its inputs together, stays uncomputed
bool fold_constants(Graph& graph, int64_t most = Numbers::kMostElements);

/// If with a constant condition becomes the branch that it chooses.
bool take_branches(Graph& graph);

/// Nodes that hand their input on are left out: Identity, Dropout, Cast between floating-point
/// types, Reshape and Transpose that change nothing, reshapes back to what was reshaped.
bool drop_identities(Graph& graph);

/// BatchNormalization, and a constant that is added to, subtracted from, multiplied with or divides
/// each channel behind a convolution, transposed convolution or matrix product goes into its weights.
bool fold_scales_behind(Graph& graph);

/// The same in front of one; a shift only where no padding stands beside it.
bool fold_scales_in_front(Graph& graph);

/// MatMul with a constant matrix and an addition of a row become Gemm, or where it has more axes one
/// MatMul with a third input, which the operator table takes for a bias.
bool make_gemms(Graph& graph);

/// A product with a constant matrix whose columns Slice or Split take apart, at once or behind a
/// Reshape and a Transpose, becomes products with parts of the matrix.
bool cut_products(Graph& graph);

/// Pad with zeros goes into the convolution behind it, or the average that counts it.
bool fold_paddings(Graph& graph);

/// Clip, Relu, and Max and Min with a number, one behind the other, become one.
bool join_clips(Graph& graph);

/// Max(x, a x) becomes LeakyRelu.
bool find_leaky_rectifiers(Graph& graph);

/// x HardSigmoid(x) and x Clip(x + 3, 0, 6) / 6, however written, become HardSwish.
bool find_hard_swishes(Graph& graph);

/// x Sigmoid(x) becomes Swish.
bool find_swishes(Graph& graph);

/// Clip(x + 3, 0, 6) / 6 becomes HardSigmoid.
bool find_hard_sigmoids(Graph& graph);

/// x (1 + erf(x / sqrt 2)) / 2, however written, becomes Gelu, and so does its approximation by
/// x (1 + tanh(sqrt(2 / pi) (x + 0.044715 x^3))) / 2.
bool find_gelus(Graph& graph);

/// (x - mean) / sqrt(variance + epsilon) over one axis, and a scale and a shift behind it, become
/// LayerNormalization, between transpositions where it isn't the last axis.
bool find_layer_normalizations(Graph& graph);

/// Einsum without diagonals becomes products of matrices, sums and movements.
bool expand_einsums(Graph& graph);

/// Trilu and OneHot become Where; the largest or smallest numbers of TopK become reductions, and Gather
/// by numbers that aren't known a product with zeros and ones.
bool choose_by_conditions(Graph& graph);

/// Poolings over three axes of which they walk two or one lose those that they don't walk.
bool join_idle_window_axes(Graph& graph);

/// A GRU whose reset stands in front of the product, which no kernel computes, becomes its steps.
bool unroll_recurrences(Graph& graph);

/// Two transpositions, one behind the other, become one.
bool join_transposes(Graph& graph);

/// Transpositions go behind functions of single numbers, and behind sums and products of tensors
/// that are transposed alike, until they meet others.
bool push_transposes_down(Graph& graph);

/// Convolutions and poolings over lines become those over planes one row high, between nodes that
/// give the row and take it away.
bool raise_lines(Graph& graph);

/// Nodes that take a row away go behind what can do with it, until they meet others that give one.
bool move_rows_down(Graph& graph);

/// Nodes whose outputs nothing reads.
bool drop_unused(Graph& graph);

}  // namespace marlo::toolkit
