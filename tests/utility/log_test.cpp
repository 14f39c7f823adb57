#include "qrt_core/utility/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "tests/support/log_capture.h"

namespace marlo::test {

using namespace utility;

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::ExitedWithCode;
using ::testing::IsEmpty;

constexpr size_t kLongestMessage = 2047;

std::string assertion_text(const char* format, const std::string& argument) {
  try {
    Assert(false, format, argument.c_str());
  } catch (const std::runtime_error& failure) {
    return failure.what();
  }
  return "no exception";
}

// Runs `statement` in a fresh process, where nothing has touched the logger yet, with standard
// output where the test sees it. The process ends without a flush: the sink must do that itself.
#define EXPECT_PRINTS(statement, text)                            \
  do {                                                            \
    GTEST_FLAG_SET(death_test_style, "threadsafe");               \
    EXPECT_EXIT(                                                  \
        {                                                         \
          std::fflush(stdout);                                    \
          dup2(STDERR_FILENO, STDOUT_FILENO);                     \
          statement;                                              \
          std::_Exit(0);                                          \
        },                                                        \
        ExitedWithCode(0), EndsWith(std::string("\n") + (text))); \
  } while (false)

#define EXPECT_PRINTS_NOTHING(statement) \
  EXPECT_PRINTS(std::fputs("\nend\n", stderr); statement, "end\n")

TEST(ResultCodes, AreTheNumbersOfTheInterface) {
  EXPECT_EQ(QR_STATUS_OK, 0);
  EXPECT_EQ(QR_STATUS_REFUSED, -1);
  EXPECT_EQ(QRT_RESULT_OK, 0);
  EXPECT_EQ(QRT_RESULT_FAILED, -2);
}

TEST(DefaultSink, EndsAnInformationWithOneNewlineAndTheTagIsQRT) {
  EXPECT_PRINTS(std::fputs("\n", stderr); Log(4, "ready %d", 7), "[QRT] (Info): ready 7\n");
}

TEST(DefaultSink, EndsAnErrorWithTwoNewlines) {
  EXPECT_PRINTS(std::fputs("\n", stderr); Log(16, "broken"), "[QRT]: broken\n\n");
}

TEST(DefaultSink, PrintsAFailedAssertion) {
  EXPECT_PRINTS(std::fputs("\n", stderr);
                EXPECT_THROW(Assert(false, "no %s", "way"), std::runtime_error),
                "[QRT]: no way\n\n");
}

TEST(DefaultSink, PrintsNoVerboseLineAtFirst) { EXPECT_PRINTS_NOTHING(Log(1, "chatter")); }

// Made before anything logs, and thus gone after what the first line makes.
struct LastWord {
  ~LastWord() {
    if (!speaks) return;
    Log(4, "bye");
    try {
      Assert(false, "no %s", "way");
    } catch (const std::runtime_error& failure) {
      std::fputs(failure.what(), stderr);
    }
  }
  bool speaks = false;
} last_word;

int print_to_stderr(const char* line) {
  std::fprintf(stderr, "%s\n", line);
  return 0;
}

TEST(LogTag, IsThereUntilTheProcessEnds) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        last_word.speaks = true;
        SetLogCallback(print_to_stderr);
        SetLogTag("a tag that is longer than what a string holds in itself");
        Log(4, "hi");
        std::exit(0);
      },
      ExitedWithCode(0),
      "a tag that is longer than what a string holds in itself\\] \\(Info\\): bye\n"
      ".a tag that is longer than what a string holds in itself\\]: no way\n\n"
      ".a tag that is longer than what a string holds in itself\\]: no way\n$");
}

TEST(LogMask, Is30AtTheStart) {
  unsigned int mask = 0;
  EXPECT_PRINTS(GetLogLevel(&mask); std::fprintf(stderr, "\nmask %u\n", mask), "mask 30\n");
}

TEST(LogPrefix, FollowsTheLevel) {
  LogCapture capture;
  SetLogLevel(31);
  Log(1, "v%d", 1);
  Log(4, "i%d", 2);
  Log(8, "w%d", 3);
  Log(16, "e%d", 4);
  EXPECT_THAT(capture.lines(), ElementsAre("[QRT] (Verbose): v1", "[QRT] (Info): i2",
                                           "[QRT] (Warnning): w3", "[QRT]: e4\n"));
}

TEST(LogLevel, VerboseIsSilentAtTheDefaultMaskAndPrintedAfterSetLogLevel31) {
  LogCapture capture;
  Log(1, "before");
  EXPECT_THAT(capture.lines(), IsEmpty());
  EXPECT_EQ(SetLogLevel(31), 0);
  Log(1, "after");
  EXPECT_THAT(capture.lines(), ElementsAre("[QRT] (Verbose): after"));
}

TEST(LogLevel, TracePrintsNothingWithAnyMask) {
  LogCapture capture;
  for (const unsigned int mask : {0u, 2u, 30u, 31u, 0xFFFFFFFFu}) {
    SetLogLevel(mask);
    Log(2, "trace");
  }
  EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST(LogLevel, OnlySingleBitsOfTheTableHaveALine) {
  LogCapture capture;
  SetLogLevel(0xFFFFFFFF);
  for (const int level : {0, 3, 5, 12, 20, 24, 31, 32, 64, -1, -16, 1 << 30}) Log(level, "x");
  EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST(LogLevel, EachBitOfTheMaskEnablesItsLevelAlone) {
  for (const int enabled : {1, 4, 8, 16}) {
    LogCapture capture;
    SetLogLevel(static_cast<unsigned int>(enabled));
    for (const int level : {1, 2, 4, 8, 16}) Log(level, "%d", level);
    ASSERT_EQ(capture.lines().size(), 1u);
    EXPECT_THAT(capture.lines()[0], ::testing::HasSubstr(": " + std::to_string(enabled)));
  }
}

TEST(LogMask, IsStoredAsItIs) {
  LogCapture capture;
  for (const unsigned int mask : {0u, 31u, 0xFFFFFFFFu, 0x80000000u}) {
    unsigned int stored = mask + 1;
    EXPECT_EQ(SetLogLevel(mask), 0);
    EXPECT_EQ(GetLogLevel(&stored), 0);
    EXPECT_EQ(stored, mask);
  }
}

TEST(Log, ReturnsItsMessageWithoutTagAndPrefix) {
  LogCapture capture;
  EXPECT_EQ(Log(8, "%s %d%%", "at", 50), "at 50%");
}

TEST(Log, FilteredByTheMaskReturnsThePreviousMessage) {
  LogCapture capture;
  Log(4, "kept");
  SetLogLevel(16);
  EXPECT_EQ(Log(4, "own"), "kept");
  EXPECT_THAT(capture.lines(), ElementsAre("[QRT] (Info): kept"));
}

TEST(Log, AtTraceOrAnUnknownLevelReturnsThePreviousMessage) {
  LogCapture capture;
  Log(16, "kept");
  EXPECT_EQ(Log(2, "own"), "kept");
  EXPECT_EQ(Log(7, "own"), "kept");
}

TEST(Log, AfterAFailedAssertReturnsTheTextOfTheAssertion) {
  LogCapture capture;
  assertion_text("shared %s", "buffer");
  EXPECT_EQ(Log(2, "own"), "shared buffer");
}

TEST(Log, CutsAMessageAt2047Characters) {
  LogCapture capture;
  const std::string longest(kLongestMessage, 'a');
  EXPECT_EQ(Log(4, "%s", longest.c_str()), longest);
  EXPECT_EQ(Log(4, "%s", (longest + "b").c_str()), longest);
  EXPECT_EQ(Log(4, "%s", std::string(100000, 'a').c_str()), longest);
  EXPECT_THAT(capture.lines(), ::testing::Each("[QRT] (Info): " + longest));
}

TEST(Log, CutErrorStillEndsWithItsNewline) {
  LogCapture capture;
  Log(16, "%s", std::string(5000, 'e').c_str());
  EXPECT_THAT(capture.lines(), ElementsAre("[QRT]: " + std::string(kLongestMessage, 'e') + "\n"));
}

TEST(Log, TakesAnEmptyMessage) {
  LogCapture capture;
  EXPECT_EQ(Log(4, "%s", ""), "");
  EXPECT_THAT(capture.lines(), ElementsAre("[QRT] (Info): "));
}

TEST(LogTag, StandsBetweenTheBrackets) {
  LogCapture capture;
  EXPECT_EQ(SetLogTag("my app"), 0);
  Log(4, "hello");
  EXPECT_EQ(assertion_text("%s", "bye"), "[my app]: bye\n");
  EXPECT_THAT(capture.lines(), ElementsAre("[my app] (Info): hello", "[my app]: bye\n"));
}

TEST(LogTag, IsCopied) {
  LogCapture capture;
  char tag[] = "abc";
  SetLogTag(tag);
  tag[0] = 'x';
  Log(4, "hello");
  EXPECT_THAT(capture.lines(), ElementsAre("[abc] (Info): hello"));
}

TEST(LogTag, EmptyIsRefusedAndChangesNothing) {
  LogCapture capture;
  EXPECT_EQ(SetLogTag(""), -1);
  Log(4, "hello");
  EXPECT_THAT(capture.lines(), ElementsAre("[QRT] (Info): hello"));
}

TEST(LogTag, NullIsRefusedAndChangesNothing) {
  LogCapture capture;
  EXPECT_EQ(SetLogTag(nullptr), -1);
  Log(4, "hello");
  EXPECT_THAT(capture.lines(), ElementsAre("[QRT] (Info): hello"));
}

TEST(LogMask, IsNotWrittenThroughANullPointer) { EXPECT_EQ(GetLogLevel(nullptr), 0); }

TEST(LogCallback, NullIsRefusedAndChangesNothing) {
  LogCapture capture;
  EXPECT_EQ(SetLogCallback(nullptr), -1);
  Log(4, "hello");
  EXPECT_THAT(capture.lines(), ElementsAre("[QRT] (Info): hello"));
}

int calls_of_other_sink = 0;
int other_sink(const char*) {
  ++calls_of_other_sink;
  return -77;  // ignored
}

TEST(LogCallback, ReplacesTheSinkOfLogAndAssertAndItsResultIsIgnored) {
  LogCapture capture;
  EXPECT_EQ(SetLogCallback(other_sink), 0);
  EXPECT_EQ(Log(4, "one"), "one");
  EXPECT_EQ(assertion_text("%s", "two"), "[QRT]: two\n");
  EXPECT_EQ(calls_of_other_sink, 2);
  EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST(Assert, TrueReturns0AndTouchesNothing) {
  LogCapture capture;
  Log(4, "kept");
  EXPECT_EQ(Assert(true, "not %s", "formatted"), 0);
  EXPECT_EQ(Assert(true, nullptr), 0);
  EXPECT_EQ(Log(2, "own"), "kept");
  EXPECT_EQ(capture.lines().size(), 1u);
}

TEST(Assert, FalseReportsAndThrowsTheSameText) {
  LogCapture capture;
  EXPECT_EQ(assertion_text("pointer %s", "lost"), "[QRT]: pointer lost\n");
  EXPECT_THAT(capture.lines(), ElementsAre("[QRT]: pointer lost\n"));
}

TEST(Assert, AfterSetLogLevel0ErrorsAreSilentYetAFailedAssertIsReportedAndThrown) {
  LogCapture capture;
  SetLogLevel(0);
  Log(16, "silent");
  EXPECT_THAT(capture.lines(), IsEmpty());
  EXPECT_EQ(assertion_text("%s", "loud"), "[QRT]: loud\n");
  EXPECT_THAT(capture.lines(), ElementsAre("[QRT]: loud\n"));
}

TEST(Assert, WithNullFormatThrowsTheTagWithoutCallingTheCallback) {
  LogCapture capture;
  SetLogTag("T");
  try {
    Assert(false, nullptr);
    FAIL() << "no exception";
  } catch (const std::runtime_error& failure) {
    EXPECT_STREQ(failure.what(), "[T]: ");
  }
  EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST(Assert, CutsAMessageAt2047CharactersAndStillThrows) {
  LogCapture capture;
  const std::string expected = "[QRT]: " + std::string(kLongestMessage, 'x') + "\n";
  EXPECT_EQ(assertion_text("%s", std::string(9999, 'x')), expected);
  EXPECT_THAT(capture.lines(), ElementsAre(expected));
}

}  // namespace
}  // namespace marlo::test
