#pragma once

#include <string>
#include <vector>

namespace marlo::utility {

/// The name that a misspelt word most likely stands for, upper and lower case aside; empty if none
/// is near.
std::string nearest_name(const std::string& word, const std::vector<std::string>& names);

/// `did you mean "name"?`, or `otherwise` if no name is near.
std::string nearest_advice(const std::string& word, const std::vector<std::string>& names,
                           const std::string& otherwise);

}  // namespace marlo::utility
