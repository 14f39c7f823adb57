#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qrt_core/qrt_core.h"
#include "tests/support/log_capture.h"

namespace marlo::test {

using namespace utility;

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kOtherCore[] =
    "[QRT]: qrt_core version required by model is larger than actually used!\n";

_QRTModelVerInfo model(const char* type, uint16_t core_major, uint16_t core_minor,
                       uint16_t sdk_major, uint16_t sdk_minor) {
  _QRTModelVerInfo info;
  info.sdk_type = type;
  info.core_major = core_major;
  info.core_minor = core_minor;
  info.sdk_major = sdk_major;
  info.sdk_minor = sdk_minor;
  return info;
}

TEST(CoreVersion, Is1And0) {
  unsigned int major = 99;
  unsigned int minor = 99;
  EXPECT_EQ(QRT_Get_Core_Version(major, minor), 0);
  EXPECT_EQ(major, 1u);
  EXPECT_EQ(minor, 0u);
}

TEST(CheckVersion, AcceptsTheSameSdkOnCore10And00) {
  LogCapture capture;
  EXPECT_EQ(check_version("app", 2, 3, model("app", 1, 0, 2, 3)), 0);
  EXPECT_EQ(check_version("app", 2, 3, model("app", 0, 0, 2, 3)), 0);
  EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST(CheckVersion, OtherSdkNamesTheModelsType) {
  LogCapture capture;
  EXPECT_EQ(check_version("app", 2, 3, model("toy", 1, 0, 2, 3)), -2);
  EXPECT_THAT(capture.lines(), ElementsAre("[QRT]: Model type is toy, can not match sdk type\n"));
}

TEST(CheckVersion, SdkTypeComparesInFullAndByCase) {
  LogCapture capture;
  for (const char* type : {"App", "ap", "apps", "", " app"}) {
    EXPECT_EQ(check_version("app", 2, 3, model(type, 1, 0, 2, 3)), -2) << type;
  }
  EXPECT_EQ(check_version("", 2, 3, model("", 1, 0, 2, 3)), 0);
}

TEST(CheckVersion, TypeIsTestedBeforeTheCore) {
  LogCapture capture;
  EXPECT_EQ(check_version("app", 2, 3, model("toy", 9, 9, 8, 8)), -2);
  EXPECT_EQ(capture.lines().size(), 1u);
}

TEST(CheckVersion, RefusesACoreOf2OrMore) {
  for (const uint16_t major : {uint16_t{2}, uint16_t{3}, uint16_t{65535}}) {
    LogCapture capture;
    EXPECT_EQ(check_version("app", 2, 3, model("app", major, 0, 2, 3)), -2);
    EXPECT_THAT(capture.lines(), ElementsAre(kOtherCore));
  }
}

TEST(CheckVersion, RefusesACoreMinorOf1EvenAtMajor0) {
  for (const uint16_t major : {uint16_t{0}, uint16_t{1}}) {
    LogCapture capture;
    EXPECT_EQ(check_version("app", 2, 3, model("app", major, 1, 2, 3)), -2);
    EXPECT_THAT(capture.lines(), ElementsAre(kOtherCore));
  }
}

TEST(CheckVersion, CoreIsTestedBeforeTheSdkVersion) {
  LogCapture capture;
  EXPECT_EQ(check_version("app", 2, 3, model("app", 2, 0, 9, 9)), -2);
  EXPECT_THAT(capture.lines(), ElementsAre(kOtherCore));
}

TEST(CheckVersion, SdkVersion23Against24GivesTwoLogLines) {
  LogCapture capture;
  EXPECT_EQ(check_version("app", 2, 4, model("app", 1, 0, 2, 3)), -2);
  EXPECT_THAT(capture.lines(), ElementsAre("[QRT]: sdk version required by model: 2.3\n",
                                           "[QRT]: sdk version used now: 2.4\n"));
}

TEST(CheckVersion, SdkVersionMatchesExactlyOnBothNumbers) {
  LogCapture capture;
  EXPECT_EQ(check_version("app", 2, 3, model("app", 1, 0, 1, 3)), -2);
  EXPECT_EQ(check_version("app", 2, 3, model("app", 1, 0, 3, 3)), -2);
  EXPECT_EQ(check_version("app", 2, 3, model("app", 1, 0, 2, 2)), -2);
  EXPECT_EQ(check_version("app", 65535, 65535, model("app", 1, 0, 65535, 65535)), 0);
  EXPECT_EQ(capture.lines().size(), 6u);
}

}  // namespace
}  // namespace marlo::test
