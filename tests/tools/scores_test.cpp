#include "tools/qrt/scores.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "tools/qrt/errors.h"
#include "tools/qrt/profile.h"
#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

using ::testing::ElementsAre;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(Softmax, SharesAreExponentialsOverTheirSum) {
  const auto shares = softmax({0.0, std::log(3.0)});
  EXPECT_NEAR(shares[0], 0.25, 1e-15);
  EXPECT_NEAR(shares[1], 0.75, 1e-15);
}

TEST(Softmax, LargeValuesDoNotOverflow) {
  const auto shares = softmax({1e300, 1e300, -1e300, -kInfinity});
  EXPECT_THAT(shares, ElementsAre(0.5, 0.5, 0.0, 0.0));
}

TEST(Softmax, UndefinedStaysUndefined) {
  for (const double share : softmax({1.0, kNan})) EXPECT_TRUE(std::isnan(share));
  for (const double share : softmax({1.0, kInfinity})) EXPECT_TRUE(std::isnan(share));
  EXPECT_TRUE(softmax({}).empty());
}

TEST(BestIndices, LargestFirstAndEqualOnesInOrder) {
  EXPECT_THAT(best_indices({1, 5, 3, 5, -2}, 3), ElementsAre(1, 3, 2));
  EXPECT_THAT(best_indices({1, 2}, 10), ElementsAre(1, 0));
  EXPECT_THAT(best_indices({kNan, 1, kNan, 2}, 4), ElementsAre(3, 1, 0, 2));
}

TEST(Labels, OneALineWithoutBlanksAround) {
  EXPECT_THAT(parse_labels("cat\r\n  big dog \n\n\n"), ElementsAre("cat", "big dog"));
  EXPECT_THAT(parse_labels("a\n\nb"), ElementsAre("a", "", "b"));
  EXPECT_THROW(parse_labels(" \n\n"), ToolError);
}

TEST(Bar, FillsByShare) {
  EXPECT_EQ(bar(0.5, 8, false), "####");
  EXPECT_EQ(bar(0.0, 8, false), "");
  EXPECT_EQ(bar(2.0, 3, false), "###");
  EXPECT_EQ(bar(kNan, 8, true), "");
  EXPECT_EQ(bar(1.0, 3, true), "\u2588\u2588\u2588");
  EXPECT_EQ(bar(0.5, 1, true), "\u258C");
}

TEST(Median, MiddleOrMeanOfTheMiddle) {
  EXPECT_EQ(median(std::vector<double>{}), 0.0);
  EXPECT_EQ(median(std::vector<double>{3, 1, 2}), 2.0);
  EXPECT_EQ(median(std::vector<double>{4, 1, 2, 3}), 2.5);
}

}  // namespace
}  // namespace qrt_tool
