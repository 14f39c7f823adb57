#include "bench/support/median_reporter.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>

namespace marlo::bench {
namespace {

using Run = benchmark::BenchmarkReporter::Run;

void print(const Run& run, int name_width) {
  std::printf("%-*s", name_width, run.run_name.str().c_str());
  if (run.error_occurred) {
    std::printf("  failed: %s\n", run.error_message.c_str());
    return;
  }
  const bool real = run.run_name.time_type == "real_time";
  std::printf(" %9.4g %s", real ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime(),
              benchmark::GetTimeUnitString(run.time_unit));
  for (const auto& [name, counter] : run.counters) {
    if (name == "share") {
      std::printf("  %5.1f %% of the limit", 100 * counter.value);
    } else {
      std::printf("  %8.4g %s", counter.value, name.c_str());
    }
  }
  std::puts("");
}

}  // namespace

void MedianReporter::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    const bool single = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
    if (single || run.error_occurred || run.aggregate_name == "median") medians_.push_back(run);
  }
}

void MedianReporter::Finalize() {
  std::sort(medians_.begin(), medians_.end(), [](const Run& a, const Run& b) {
    return std::pair(a.family_index, a.per_family_instance_index) <
           std::pair(b.family_index, b.per_family_instance_index);
  });
  size_t longest = 0;
  for (const Run& run : medians_) longest = std::max(longest, run.run_name.str().size());
  for (const Run& run : medians_) print(run, static_cast<int>(longest));
}

}  // namespace marlo::bench
