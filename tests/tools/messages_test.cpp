#include "tools/qrt/messages.h"

#include <gtest/gtest.h>

#include <limits>

namespace qrt_tool_test {
namespace {

constexpr double kForever = std::numeric_limits<double>::infinity();

TEST(TimeLeft, IsThatOfFurtherStepsLikeThoseBefore) {
  EXPECT_EQ(qrt_tool::time_left(4, 2, 8, kForever), "12 s left");
  EXPECT_EQ(qrt_tool::time_left(2, 4, 5, kForever), "1 s left");
  EXPECT_EQ(qrt_tool::time_left(60, 1, 6, kForever), "5 min left");
}

TEST(TimeLeft, IsntMoreThanThereIs) {
  EXPECT_EQ(qrt_tool::time_left(4, 1, 100, 10), "6 s left");
  EXPECT_EQ(qrt_tool::time_left(14, 1, 100, 10), "0 s left");
}

TEST(TimeLeft, IsntToldBeforeItIsKnown) {
  EXPECT_EQ(qrt_tool::time_left(0.5, 2, 8, kForever), "");
  EXPECT_EQ(qrt_tool::time_left(5, 0, 8, kForever), "");
  EXPECT_EQ(qrt_tool::time_left(5, 8, 8, kForever), "");
}

}  // namespace
}  // namespace qrt_tool_test
