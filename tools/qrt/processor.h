#pragma once

#include <string>

namespace qrt_tool {

/// What this processor lacks for a kernel, "AVX" or "FMA" say; empty if it can run it. The library
/// itself never asks: a kernel that the processor can't run ends the program.
std::string missing_instructions(const std::string& kernel);

}  // namespace qrt_tool
