#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace qrt_tool {

/// exp(v) / sum of exp, computed so that large values don't overflow. A value that is not a number
/// makes all results so.
std::vector<double> softmax(const std::vector<double>& values);

/// Indices of the `count` largest values, largest first, equal ones by index; values that are not
/// numbers come last.
std::vector<size_t> best_indices(const std::vector<double>& values, size_t count);

/// One label per line; blanks around it and a carriage return are dropped, as are empty lines at
/// the end.
/// @throws ToolError (kInputError) for text without a label
std::vector<std::string> parse_labels(const std::string& text);

/// A bar of `share` (0 to 1) of `width` characters, in eighths of a character where `utf8`.
std::string bar(double share, size_t width, bool utf8);

}  // namespace qrt_tool
