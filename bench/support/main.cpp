#include <benchmark/benchmark.h>

#include <cstdio>
#include <string_view>
#include <vector>

#include "bench/support/median_reporter.h"
#include "bench/support/probe.h"

// Measures the machine, prints its limits, and runs the benchmarks that match, each several times
// and in shuffled order, so that a disturbance meets all of them. The report holds medians.

namespace {

bool is_given(const std::vector<char*>& arguments, std::string_view option) {
  for (const char* argument : arguments) {
    if (std::string_view(argument).starts_with(option)) return true;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  // What the caller gives stands later and wins.
  static char repetitions[] = "--benchmark_repetitions=7";
  static char shuffled[] = "--benchmark_enable_random_interleaving=true";
  static char duration[] = "--benchmark_min_time=0.1";
  std::vector<char*> arguments(argv, argv + argc);
  const bool only_listed = is_given(arguments, "--benchmark_list_tests");
  const bool other_format = is_given(arguments, "--benchmark_format");
  arguments.insert(arguments.begin() + 1, {repetitions, shuffled, duration});
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;

  if (!only_listed) {
    if (marlo::bench::pin_to_one_core() < 0) std::fputs("warning: not pinned to a core\n", stderr);
    marlo::bench::print_limits(marlo::bench::measure_limits());
  }
  marlo::bench::MedianReporter reporter;
  const bool own_report = !only_listed && !other_format;
  const size_t matching = benchmark::RunSpecifiedBenchmarks(own_report ? &reporter : nullptr);
  benchmark::Shutdown();
  return matching == 0 ? 1 : 0;
}
