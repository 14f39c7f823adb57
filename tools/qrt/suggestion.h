#pragma once

#include <string>
#include <vector>

namespace qrt_tool {

/// The one of `words` that `word` was probably meant to be: few letters are wrong, or it is a part
/// of only one of them. Case doesn't matter. Empty where none is near.
std::string nearest_word(const std::string& word, const std::vector<std::string>& words);

/// `; did you mean "run"?`, or nothing where no word is near.
std::string did_you_mean(const std::string& word, const std::vector<std::string>& words);

}  // namespace qrt_tool
