#include "tests/support/compare.h"

#include <cmath>
#include <sstream>
#include <string>

#include "tests/support/numbers.h"

namespace marlo::test {

using kernel::Epilogue;

namespace {

// "2 (bits 40000000)"
std::string with_bits(float number) {
  std::ostringstream text;
  text << number << " (bits " << std::hex << bits_of(number) << ")";
  return text.str();
}

// Compares element by element; `describe` adds to the message what was expected of the first one
// that is wrong.
template <typename Expected, typename Agrees, typename Describe>
testing::AssertionResult compare(const std::vector<float>& found,
                                 const std::vector<Expected>& expected, Agrees agrees,
                                 Describe describe) {
  if (found.size() != expected.size()) {
    return testing::AssertionFailure()
           << found.size() << " elements instead of " << expected.size();
  }
  size_t wrong = 0;
  size_t first = 0;
  for (size_t i = found.size(); i-- > 0;) {
    if (agrees(found[i], expected[i])) continue;
    ++wrong;
    first = i;
  }
  if (wrong == 0) return testing::AssertionSuccess();
  testing::AssertionResult failure = testing::AssertionFailure();
  failure << wrong << " of " << found.size() << " elements are wrong, the first at " << first
          << ": " << with_bits(found[first]) << " instead of ";
  describe(failure, expected[first]);
  return failure;
}

}  // namespace

testing::AssertionResult same_bits(const std::vector<float>& found,
                                   const std::vector<float>& expected) {
  return compare(
      found, expected, [](float a, float b) { return same_bits(a, b); },
      [](testing::AssertionResult& message, float number) { message << with_bits(number); });
}

testing::AssertionResult exactly(const std::vector<float>& found,
                                 const std::vector<Sum>& expected) {
  return compare(
      found, expected, [](float number, const Sum& sum) { return number == sum.value; },
      [](testing::AssertionResult& message, const Sum& sum) { message << sum.value; });
}

testing::AssertionResult within_bounds(const std::vector<float>& found,
                                       const std::vector<Sum>& expected, double scale) {
  return compare(
      found, expected,
      [scale](float number, const Sum& sum) {
        return std::abs(number - sum.value) <= scale * sum.bound();
      },
      [scale](testing::AssertionResult& message, const Sum& sum) {
        message << sum.value << " +- " << scale * sum.bound();
      });
}

testing::AssertionResult within_bounds_after(Epilogue epilogue, const std::vector<float>& found,
                                             const std::vector<Sum>& expected, double scale) {
  const auto bound = [&](const Sum& sum) {
    return epilogue_error(epilogue, sum.value, scale * sum.bound());
  };
  return compare(
      found, expected,
      [&](float number, const Sum& sum) {
        return std::abs(number - exact_epilogue(epilogue, sum.value)) <= bound(sum);
      },
      [&](testing::AssertionResult& message, const Sum& sum) {
        message << exact_epilogue(epilogue, sum.value) << " +- " << bound(sum);
      });
}

}  // namespace marlo::test
