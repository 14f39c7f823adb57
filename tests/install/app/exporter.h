#pragma once

#include <string>

/// Writes a model of one rectifier, in the form that the suffix of `path` says.
/// @return whether every description and parameter was what it was made as, and the file is written
bool export_rectifier(const std::string& path);
