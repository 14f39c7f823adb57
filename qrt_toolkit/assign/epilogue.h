#pragma once

#include <string_view>
#include <vector>

// The activations that kernels apply to their results, as functions of a number.

namespace marlo::toolkit {

/// The kernel of a layer without effect: of an activation whose function was applied before.
inline constexpr char kStraightThrough[] = "Straight_Through_Fallback_M1";

/// What an epilogue makes of a number, in double precision.
using EpilogueFunction = double (*)(double);

/// The function of an epilogue, "ReLU"; null for one that isn't known.
EpilogueFunction epilogue_function(std::string_view epilogue);

/// Numbers after an epilogue, rounded once. @param function none for null
std::vector<float> finished(std::vector<float> numbers, EpilogueFunction function);

}  // namespace marlo::toolkit
