#pragma once

#include <benchmark/benchmark.h>

#include <vector>

namespace marlo::bench {

/// Prints one line per benchmark with the medians of its runs, in the order in which they were
/// registered, when all have run.
class MedianReporter : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

 private:
  std::vector<Run> medians_;
};

}  // namespace marlo::bench
