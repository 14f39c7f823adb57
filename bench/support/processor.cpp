#include "bench/support/processor.h"

#include <sched.h>
#include <time.h>

#include <fstream>

#include "qrt_core/runtime/engine/kernel_facts.h"
#include "tests/support/processor.h"

namespace marlo::bench {

using runtime::InstructionSet;

bool has_avx() { return test::processor_has(InstructionSet::avx); }

bool has_fma() { return test::processor_has(InstructionSet::fma); }

bool has_avx512() { return test::processor_has(InstructionSet::avx512); }

std::string processor_name() {
  std::ifstream lines("/proc/cpuinfo");
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("model name")) return line.substr(line.find(": ") + 2);
  }
  return "unknown processor";
}

bool can_run(std::string_view kernel) { return test::processor_has(runtime::needs_of(kernel)); }

Width width_of(std::string_view kernel) {
  return runtime::needs_of(kernel) == InstructionSet::baseline ? Width::sse : Width::avx;
}

int pin_to_one_core() {
  const int core = sched_getcpu();
  if (core < 0) return -1;
  cpu_set_t cores;
  CPU_ZERO(&cores);
  CPU_SET(static_cast<size_t>(core), &cores);
  return sched_setaffinity(0, sizeof cores, &cores) == 0 ? core : -1;
}

namespace {

double seconds_by(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

}  // namespace

double thread_seconds() { return seconds_by(CLOCK_THREAD_CPUTIME_ID); }

double wall_seconds() { return seconds_by(CLOCK_MONOTONIC); }

}  // namespace marlo::bench
