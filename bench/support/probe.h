#pragma once

#include <cstddef>

#include "bench/support/processor.h"

// The machine's own limits, measured in the process that is measured against them, on its one core.

namespace marlo::bench {

/// GB/s at one level of memory; 0 where the processor lacks the width.
struct Bandwidth {
  double read = 0;
  double copy = 0;  ///< bytes read plus bytes written
};

/// Medians of several runs.
struct Limits {
  double clock = 0;  ///< GHz
  double sse = 0;    ///< GFLOP/s of separate products and sums in 4 lanes
  double avx = 0;    ///< the same in 8 lanes; 0 without AVX
  double fma = 0;    ///< GFLOP/s of fused products and sums in 8 lanes; 0 without FMA
  double maxima_and_sums_per_cycle = 0;  ///< instructions, of both together
  Bandwidth l1[2], l2[2], memory[2];     ///< at 16 and at 32 bytes
};

/// Measures all of it, which takes about a second.
Limits measure_limits();

/// Prints the limits to standard error, as the header of a report.
void print_limits(const Limits& limits);

/// GB/s of the best copy between two given arrays, read plus written: what a kernel that reads one
/// and writes the other could reach at most. `count` is a multiple of `kCopyStep`.
///
/// A machine that others use as well changes from second to second, so a share is taken of a limit
/// that was measured just before, on the same memory.
double copy_limit(Width width, const float* from, float* to, size_t count);

/// GFLOP/s of separate products and sums, measured now.
double arithmetic_limit(Width width);

/// GFLOP/s of fused products and sums in 8 lanes, measured now; 0 without FMA.
double fused_limit();

/// GB/s of reading an array of `count` floats, a multiple of `kCopyStep`, measured now.
double read_limit(Width width, const float* from, size_t count);

/// GHz, measured now.
double clock_now();

}  // namespace marlo::bench
