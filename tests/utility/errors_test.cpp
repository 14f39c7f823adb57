#include "qrt_core/utility/errors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <type_traits>

#include "qrt_core/utility/log.h"
#include "tests/support/log_capture.h"

namespace marlo::test {

using namespace utility;

namespace {

using ::testing::IsEmpty;
using ::testing::SizeIs;

LayerFault refused_convolution() {
  LayerFault fault;
  fault.layer = 4;
  fault.id = "block0";
  fault.kind = "Conv2d";
  fault.kernel = "Conv2d_X";
  fault.misfits = {{"stride_x, stride_y", "2 x 2", "1 x 1"}, {"in_channels", "8, 16, ...", "3"}};
  return fault;
}

Error caught(const char* format) {
  try {
    Assert(false, format, "y");
  } catch (const Error& failure) {
    return failure;
  }
  return Error("nothing was thrown");
}

TEST(Errors, AssertThrowsARuntimeErrorOfOursWithTheReportedText) {
  test::LogCapture log;
  static_assert(std::is_base_of_v<std::runtime_error, Error>);
  const Error failure = caught("x: %s");
  EXPECT_STREQ(failure.what(), "[QRT]: x: y\n");
  EXPECT_EQ(failure.message(), "x: y");
  EXPECT_EQ(failure.story(), "x: y");
  EXPECT_EQ(failure.layer(), nullptr);
  EXPECT_THAT(log.lines(), SizeIs(1));
}

TEST(Errors, AnEmptyTextStaysSilentAndIsExplainedBesideIt) {
  test::LogCapture log;
  Error failure = caught(nullptr);
  EXPECT_STREQ(failure.what(), "[QRT]: ");
  EXPECT_EQ(failure.message(), "");
  EXPECT_EQ(failure.story(), "failed without a message");
  failure.explain("refuses the layer");
  failure.in_layer(refused_convolution());
  failure.in_network("resnet");
  EXPECT_STREQ(failure.what(), "[QRT]: ");
  EXPECT_EQ(failure.story(),
            "network \"resnet\", layer 4 \"block0\" (Conv2d), kernel Conv2d_X: refuses the layer\n"
            "  stride_x, stride_y: expected 2 x 2, found 1 x 1\n"
            "  in_channels: expected 8, 16, ..., found 3");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Errors, TagsOfAnyLengthAreNoPartOfTheMessage) {
  test::LogCapture log;
  SetLogTag("a longer tag: of mine]");
  const Error failure = caught("x: %s");
  SetLogTag("QRT");
  EXPECT_EQ(failure.message(), "x: y");
}

TEST(Errors, TheInnermostPlaceStays) {
  Error failure("text");
  failure.in_layer(refused_convolution());
  LayerFault outer;
  outer.layer = 9;
  failure.in_layer(outer);
  failure.in_network("inner");
  failure.in_network("outer");
  ASSERT_NE(failure.layer(), nullptr);
  EXPECT_EQ(failure.layer()->layer, 4u);
  EXPECT_EQ(failure.network(), "inner");
}

TEST(Errors, CopiesShareWhatIsKnown) {
  Error failure("text");
  failure.in_layer(refused_convolution());
  const Error copy = failure;
  EXPECT_EQ(copy.layer(), failure.layer());
  EXPECT_EQ(copy.story(), failure.story());
  static_assert(std::is_nothrow_copy_constructible_v<Error>);
}

TEST(Errors, AMessageThatBeginsWithItsKernelDoesNotNameItTwice) {
  Error failure("[QRT]: Conv2d_X: there is no input\n", 7);
  failure.in_layer(refused_convolution());
  EXPECT_THAT(failure.story(),
              ::testing::StartsWith("layer 4 \"block0\" (Conv2d), kernel Conv2d_X: there is no "));
}

TEST(Errors, AMisfitMayLackAnyOfItsParts) {
  EXPECT_EQ(misfit_text({"a", "b", "c"}), "a: expected b, found c");
  EXPECT_EQ(misfit_text({"a", "", "c"}), "a: found c");
  EXPECT_EQ(misfit_text({"a", "b", ""}), "a: expected b");
  EXPECT_EQ(misfit_text({"", "b", "c"}), "expected b, found c");
  EXPECT_EQ(misfit_text({"", "", "c"}), "found c");
}

TEST(Errors, ThePlaceSaysOnlyWhatIsKnown) {
  LayerFault fault;
  fault.layer = 7;
  EXPECT_EQ(place_text(fault), "layer 7");
  fault.id = "x";
  fault.role = "input converter 1";
  fault.kernel = "K";
  EXPECT_EQ(place_text(fault), "layer 7 \"x\", input converter 1, kernel K");
}

TEST(Errors, TheStoryOfAnotherExceptionIsItsText) {
  EXPECT_EQ(story(std::out_of_range("far")), "far");
  EXPECT_EQ(story(std::bad_alloc()), std::bad_alloc().what());
  EXPECT_EQ(story(Error("[T]: text\n", 5)), "text");
}

}  // namespace
}  // namespace marlo::test
