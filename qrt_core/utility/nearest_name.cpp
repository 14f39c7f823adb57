#include <algorithm>
#include <cctype>
#include <numeric>

#include "qrt_core/utility/nearest_name_internal.h"

namespace marlo::utility {
namespace {

// Names longer than this are no slips of the pen, and would take long to compare.
constexpr size_t kLongest = 128;
// Nor is a list of more names than a person would go through.
constexpr size_t kMostNames = 1000;

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// Letters to insert, leave out or replace.
size_t distance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); ++i) {
    size_t diagonal = row[0]++;
    for (size_t j = 0; j < b.size(); ++j) {
      const size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
    }
  }
  return row[b.size()];
}

}  // namespace

std::string nearest_name(const std::string& word, const std::vector<std::string>& names) {
  if (word.empty() || word.size() > kLongest || names.size() > kMostNames) return "";
  const std::string wanted = lower(word);
  std::string best;
  size_t least = 1 + word.size() / 2;
  for (const std::string& name : names) {
    if (name.size() > kLongest) continue;
    const size_t far = distance(wanted, lower(name));
    if (far < least) {
      least = far;
      best = name;
    }
  }
  return best;
}

std::string nearest_advice(const std::string& word, const std::vector<std::string>& names,
                           const std::string& otherwise) {
  const std::string nearest = nearest_name(word, names);
  return nearest.empty() ? otherwise : "did you mean \"" + nearest + "\"?";
}

}  // namespace marlo::utility
