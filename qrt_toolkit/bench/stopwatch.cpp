#include "qrt_toolkit/bench/stopwatch.h"

#include <ctime>

namespace marlo::toolkit {
namespace {

double milliseconds(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

}  // namespace

Stopwatch::Stopwatch()
    : start_{milliseconds(CLOCK_MONOTONIC), milliseconds(CLOCK_THREAD_CPUTIME_ID)} {}

Times Stopwatch::times() const {
  // The processor's time is taken inside of the other, so that it is never the longer one.
  const double cpu = milliseconds(CLOCK_THREAD_CPUTIME_ID);
  return {milliseconds(CLOCK_MONOTONIC) - start_.wall_ms, cpu - start_.cpu_ms};
}

}  // namespace marlo::toolkit
