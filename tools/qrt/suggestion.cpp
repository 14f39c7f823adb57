#include "tools/qrt/suggestion.h"

#include <algorithm>
#include <numeric>

#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

// Names that are longer are no slips of the finger, and the distance is quadratic.
constexpr size_t kMostLetters = 200;

// Letters to insert, drop, replace, or exchange with their neighbour.
size_t distance(const std::string& a, const std::string& b) {
  std::vector<size_t> before_last;
  std::vector<size_t> last(b.size() + 1);
  std::iota(last.begin(), last.end(), size_t{0});
  for (size_t i = 1; i <= a.size(); ++i) {
    std::vector<size_t> row(b.size() + 1, i);
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t replaced = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      row[j] = std::min({replaced, last[j] + 1, row[j - 1] + 1});
      const bool is_exchange = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (is_exchange) row[j] = std::min(row[j], before_last[j - 2] + 1);
    }
    before_last = std::move(last);
    last = std::move(row);
  }
  return last.back();
}

// The only word that begins with `word`, or else the only one that holds it.
std::string only_holder(const std::string& word, const std::vector<std::string>& words) {
  if (word.size() < 2) return "";
  for (const bool at_start : {true, false}) {
    std::vector<std::string> holders;
    for (const std::string& candidate : words) {
      const size_t at = lower_case(candidate).find(word);
      if (at != std::string::npos && (at == 0 || !at_start)) holders.push_back(candidate);
    }
    if (holders.size() == 1) return holders[0];
  }
  return "";
}

}  // namespace

std::string nearest_word(const std::string& word, const std::vector<std::string>& words) {
  // One letter is near to every other.
  if (word.size() < 2 || word.size() > kMostLetters) return "";
  const std::string wanted = lower_case(word);
  std::string nearest;
  size_t least = std::max<size_t>(1, wanted.size() / 3) + 1;
  for (const std::string& candidate : words) {
    if (candidate.size() > kMostLetters) continue;
    const size_t letters = distance(wanted, lower_case(candidate));
    if (letters >= least) continue;
    least = letters;
    nearest = candidate;
  }
  return nearest.empty() ? only_holder(wanted, words) : nearest;
}

std::string did_you_mean(const std::string& word, const std::vector<std::string>& words) {
  const std::string nearest = nearest_word(word, words);
  return nearest.empty() ? "" : "; did you mean " + in_quotes(nearest) + "?";
}

}  // namespace qrt_tool
