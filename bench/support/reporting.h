#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>

// The columns of the report. Call these after the timed loop.

namespace marlo::bench {

/// Adds "GB/s" for the bytes that one turn of the timed loop moves, and "share" of `limit`, in
/// GB/s.
void report_bandwidth(benchmark::State& state, size_t bytes, double limit);

/// Adds "GFLOP/s" for the arithmetic of one turn, and "share" of `limit`, in GFLOP/s.
void report_arithmetic(benchmark::State& state, double operations, double limit);

/// Adds `name` for the `count` items of one turn, in thousands of millions per second: items per
/// nanosecond, or gigabytes per second.
void report_rate(benchmark::State& state, const char* name, double count);

/// Adds "cycles/vector", with so many vectors in one turn and a clock of `clock` GHz.
void report_cycles(benchmark::State& state, double vectors, double clock);

}  // namespace marlo::bench
