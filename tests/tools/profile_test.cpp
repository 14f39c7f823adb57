#include "tools/qrt/profile.h"

#include <gmock/gmock.h>

#include <chrono>

#include "tools/qrt/errors.h"
#include "tools/qrt/profile_output.h"

namespace qrt_tool {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

NetworkReport two_layers() {
  NetworkReport report;
  report.layers.resize(2);
  report.layers[0].id = "first";
  report.layers[0].kind = "Conv2d";
  report.layers[1].index = 1;
  report.layers[1].id = "second";
  report.layers[1].kind = "Activation";
  return report;
}

Profile profile_of(double others_ms) {
  Profile profile;
  profile.rows = {{0, "", "A", {1.0, 1.0}, 4000000, 8000000},
                  {0, "output 0", "B", {0.5, 0.5}, 1000000, std::nullopt},
                  {1, "", "C", {2.0, 2.0}, 2000000, std::nullopt}};
  profile.pass = {4.0 + others_ms, 4.0};
  profile.between_ms = 0.5;
  profile.others_ms = others_ms;
  return profile;
}

TEST(Profile, StandsInTheOrderOfTheLayersWithRates) {
  const std::string text = profile_text(two_layers(), profile_of(0), {}, 1000);
  // 8 million multiply-adds in a millisecond are 16 GFLOP/s, 4 MB are 4 GB/s.
  EXPECT_THAT(text,
              HasSubstr("0  first                A               1.0000   25.0 %        8.000  "
                        "   16.0   4.0\n"));
  EXPECT_THAT(text, AllOf(HasSubstr("first output 0"), HasSubstr("between the kernels"),
                          HasSubstr("12.5 %"), HasSubstr("100.0 %"),
                          Not(HasSubstr("other programs")), Not(HasSubstr("wall"))));
  EXPECT_LT(text.find("first "), text.find("second "));
}

TEST(Profile, TimeOfOtherProgramsIsNoShareOfThePass) {
  const std::string text = profile_text(two_layers(), profile_of(12), {}, 1000);
  EXPECT_THAT(text, AllOf(HasSubstr("wall ms"), HasSubstr("other programs"), HasSubstr("12.0000"),
                          HasSubstr("16.0000"), HasSubstr("12.5 %"), HasSubstr("100.0 %")));
}

TEST(Profile, IsSummedByKindAndSortedByTime) {
  const std::string text =
      profile_text(two_layers(), profile_of(0), parse_profile_view("kind", ""), 1000);
  EXPECT_LT(text.find("Activation"), text.find("Conv2d"));
  EXPECT_LT(text.find("Conv2d"), text.find("converter"));
  const std::string layers =
      profile_text(two_layers(), profile_of(0), parse_profile_view("", "time"), 1000);
  EXPECT_LT(layers.find("second "), layers.find("first "));
  EXPECT_THAT(
      profile_text(two_layers(), profile_of(0), parse_profile_view("kernel", "order"), 1000),
      HasSubstr("C "));
}

TEST(Profile, UnknownViewsAreRefusedWithTheNearestWord) {
  try {
    parse_profile_view("kidn", "");
    ADD_FAILURE();
  } catch (const ToolError& error) {
    EXPECT_THAT(error.what(), HasSubstr("--by kidn: expected layer or kind or kernel; did you mean "
                                        "\"kind\"?"));
  }
  EXPECT_THROW(parse_profile_view("", "size"), ToolError);
}

TEST(Stopwatch, CountsTheProcessorsTimeWithinThatOnTheWall) {
  const Stopwatch watch;
  const auto start = std::chrono::steady_clock::now();
  volatile double sum = 0;
  while (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(5)) sum = sum + 1;
  const Times times = watch.times();
  EXPECT_GE(times.wall_ms, 5.0);
  EXPECT_GT(times.cpu_ms, 0.0);
  EXPECT_LE(times.cpu_ms, times.wall_ms);
}

TEST(Median, OfBothTimesIsTakenForEachAlone) {
  const Times middle = median(std::vector<Times>{{1, 9}, {2, 1}, {3, 5}});
  EXPECT_EQ(middle.wall_ms, 2);
  EXPECT_EQ(middle.cpu_ms, 5);
}

}  // namespace
}  // namespace qrt_tool
