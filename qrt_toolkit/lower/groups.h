#pragma once

#include <span>

#include "qrt_toolkit/lower/lowering.h"

// The parts that the table of lowerings is made of: one function for each source file with rows.

namespace marlo::toolkit {

std::span<const LoweringRow> window_lowerings();
std::span<const LoweringRow> function_lowerings();
std::span<const LoweringRow> product_lowerings();
std::span<const LoweringRow> recurrent_lowerings();
std::span<const LoweringRow> reduction_lowerings();
std::span<const LoweringRow> resampling_lowerings();
std::span<const LoweringRow> softmax_lowerings();
std::span<const LoweringRow> arithmetic_lowerings();
std::span<const LoweringRow> movement_lowerings();
std::span<const LoweringRow> scatter_lowerings();

}  // namespace marlo::toolkit
