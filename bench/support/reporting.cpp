#include "bench/support/reporting.h"

namespace marlo::bench {
namespace {

using benchmark::Counter;

void report_share(benchmark::State& state, double amount, double limit) {
  state.counters["share"] = Counter(1e-9 * amount / limit, Counter::kIsIterationInvariantRate);
}

}  // namespace

void report_rate(benchmark::State& state, const char* name, double count) {
  state.counters[name] = Counter(1e-9 * count, Counter::kIsIterationInvariantRate);
}

void report_bandwidth(benchmark::State& state, size_t bytes, double limit) {
  report_rate(state, "GB/s", static_cast<double>(bytes));
  report_share(state, static_cast<double>(bytes), limit);
}

void report_arithmetic(benchmark::State& state, double operations, double limit) {
  report_rate(state, "GFLOP/s", operations);
  report_share(state, operations, limit);
}

void report_cycles(benchmark::State& state, double vectors, double clock) {
  // The inverse of a rate is the time of one turn.
  state.counters["cycles/vector"] =
      Counter(1e-9 * vectors / clock, Counter::kIsIterationInvariantRate | Counter::kInvert);
}

}  // namespace marlo::bench
