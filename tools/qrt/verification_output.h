#pragma once

#include <cstddef>
#include <string>

#include "qrt_toolkit/verify_import.h"
#include "tools/qrt/json_text.h"

// How `qrt import --verify` shows what was compared.

namespace qrt_tool {

/// The table for people, layers and then the outputs of test data.
std::string verification_text(const marlo::toolkit::Verification& verification, size_t width);

/// The same as members of the open object.
void add_verification(JsonText& json, const marlo::toolkit::Verification& verification);

/// @throws ToolError (kRunError) that names the first layer beyond its bound
void require_agreement(const marlo::toolkit::Verification& verification);

}  // namespace qrt_tool
