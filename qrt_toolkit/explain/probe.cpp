#include "qrt_toolkit/explain/probe.h"

#include <algorithm>
#include <ctime>
#include <new>
#include <vector>

#include "qrt_toolkit/bench/statistics.h"
#include "qrt_toolkit/bench/stopwatch.h"

namespace marlo::toolkit {
namespace {

constexpr size_t kPage = 4096;

template <typename Call>
double milliseconds_of(const Call& call, size_t calls) {
  const Stopwatch watch;
  for (size_t i = 0; i < calls; ++i) call();
  return watch.times().cpu_ms;
}

/// What is so long that the steps in which the thread's clock goes don't matter.
double shortest_run_ms() {
  constexpr double kSteps = 20;
  timespec step{};
  if (clock_getres(CLOCK_THREAD_CPUTIME_ID, &step) != 0) return 0;
  return kSteps *
         (1e3 * static_cast<double>(step.tv_sec) + 1e-6 * static_cast<double>(step.tv_nsec));
}

/// Seconds of one call, as the median of several runs of many calls.
template <typename Call>
double seconds_per_call(const Call& call, const ProbeEffort& effort) {
  call();
  size_t calls = 1;
  const double least = std::max(effort.run_ms, shortest_run_ms());
  while (milliseconds_of(call, calls) <= least) calls *= 2;
  std::vector<double> runs;
  for (size_t i = 0; i < effort.runs; ++i) runs.push_back(milliseconds_of(call, calls));
  return 1e-3 * median(std::move(runs)) / static_cast<double>(calls);
}

size_t in_whole_steps(size_t count) { return count - count % kCopyStep; }

/// The widest loops of a set, and their lanes.
struct Cores {
  PeakCore peak;
  size_t lanes;
  CopyCore copy;
  ReadCore read;
};

Cores cores_of(KernelSet set) {
  switch (set) {
    case KernelSet::portable:
    case KernelSet::sse:
      return {peak_sse, 4, copy_sse, read_sse};
    case KernelSet::avx:
      return {peak_avx, 8, copy_avx, read_avx};
    case KernelSet::avx512:
      return {peak_avx512, 16, copy_avx512, read_avx512};
    default:
      return {peak_fma, 8, copy_avx, read_avx};
  }
}

}  // namespace

double giga_per_second(PeakCore core, double operations_per_round, const ProbeEffort& effort) {
  constexpr size_t kRounds = 10000;
  volatile float one = 1.0f;
  volatile float zero = 0.0f;
  const double seconds = seconds_per_call([&] { core(kRounds, one, zero); }, effort);
  return 1e-9 * operations_per_round * static_cast<double>(kRounds) / seconds;
}

double peak_gigaflops(KernelSet set, const ProbeEffort& effort) {
  const Cores cores = cores_of(set);
  return giga_per_second(cores.peak, static_cast<double>(2 * kChains * cores.lanes), effort);
}

double copy_gigabytes(KernelSet set, const float* from, float* to, size_t count,
                      const ProbeEffort& effort) {
  count = in_whole_steps(count);
  const CopyCore copy = cores_of(set).copy;
  const double seconds = seconds_per_call([&] { copy(from, to, count); }, effort);
  return 1e-9 * static_cast<double>(2 * count * sizeof(float)) / seconds;
}

double read_gigabytes(KernelSet set, const float* from, size_t count, const ProbeEffort& effort) {
  count = in_whole_steps(count);
  const ReadCore read = cores_of(set).read;
  const double seconds = seconds_per_call([&] { read(from, count); }, effort);
  return 1e-9 * static_cast<double>(count * sizeof(float)) / seconds;
}

double clock_gigahertz(const ProbeEffort& effort) {
  constexpr uint64_t kCycles = 1 << 16;
  const double seconds = seconds_per_call([] { count_cycles(kCycles); }, effort);
  return 1e-9 * static_cast<double>(kCycles) / seconds;
}

ProbeMemory::ProbeMemory(size_t bytes)
    : memory_(static_cast<float*>(::operator new(bytes, std::align_val_t(kPage)))) {
  std::fill_n(memory_, bytes / sizeof(float), 1.0f);
}

ProbeMemory::~ProbeMemory() { ::operator delete(memory_, std::align_val_t(kPage)); }

}  // namespace marlo::toolkit
