// Threads that log, or fail, at one time keep their own texts.

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "qrt_core/utility/log.h"

namespace marlo::test {

using namespace utility;

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 2000;

std::atomic<int> lines_seen = 0;

int count_line(const char*) {
  ++lines_seen;
  return 0;
}

class LogThreadTest : public ::testing::Test {
 protected:
  LogThreadTest() { SetLogCallback(count_line); }
};

// Texts of every length, so that parts of one would show in another.
std::string text_of(int thread, int round) {
  return std::string(static_cast<size_t>(1 + (thread * 37 + round) % 500),
                     static_cast<char>('a' + thread));
}

template <typename Work>
void run_threads(Work work) {
  std::atomic<int> ready = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      ++ready;
      while (ready.load() < kThreads) std::this_thread::yield();
      for (int round = 0; round < kRounds; ++round) work(i, round);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(LogThreadTest, FailuresThrowTheirOwnTexts) {
  lines_seen = 0;
  std::atomic<int> wrong = 0;
  run_threads([&](int thread, int round) {
    const std::string text = text_of(thread, round);
    try {
      Assert(false, "%s %d", text.c_str(), round);
      ++wrong;
    } catch (const std::runtime_error& failure) {
      const std::string expected = "[QRT]: " + text + " " + std::to_string(round) + "\n";
      if (failure.what() != expected) ++wrong;
    }
  });
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(lines_seen, kThreads * kRounds);
}

TEST_F(LogThreadTest, ALineReturnsItsMessageAndAFilteredOneTheThreadsLast) {
  std::atomic<int> wrong = 0;
  run_threads([&](int thread, int round) {
    const std::string text = text_of(thread, round);
    if (Log(LOG_INFO, "%s", text.c_str()) != text) ++wrong;
    if (Log(LOG_VERBOSE, "%s", "filtered") != text) ++wrong;
  });
  EXPECT_EQ(wrong, 0);
}

TEST_F(LogThreadTest, AThreadBeginsWithoutAMessage) {
  Log(LOG_INFO, "of this thread");
  std::string first = "not asked";
  std::thread([&] { first = Log(LOG_TRACE, "traced"); }).join();
  EXPECT_EQ(first, "");
}

}  // namespace
}  // namespace marlo::test
