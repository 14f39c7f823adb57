#pragma once

#include <span>

#include "qrt_toolkit/operators/operator.h"

// The parts that the table is made of: one function for each source file with rows.

namespace marlo::toolkit {

using OperatorGroup = std::span<const Operator> (*)();

std::span<const Operator> unary_operators();
std::span<const Operator> activation_operators();
std::span<const Operator> binary_operators();
std::span<const Operator> reduction_operators();
std::span<const Operator> softmax_operators();
std::span<const Operator> normalization_operators();
std::span<const Operator> matrix_operators();
std::span<const Operator> convolution_operators();
std::span<const Operator> pooling_operators();
std::span<const Operator> resampling_operators();
std::span<const Operator> shape_operators();
std::span<const Operator> movement_operators();
std::span<const Operator> indexing_operators();
std::span<const Operator> recurrent_operators();
std::span<const Operator> control_operators();
std::span<const Operator> einsum_operators();
std::span<const Operator> selection_operators();
std::span<const Operator> quantization_operators();

}  // namespace marlo::toolkit
