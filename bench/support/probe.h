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
  double clock = 0;   ///< GHz
  double sse = 0;     ///< GFLOP/s of separate products and sums in 4 lanes
  double avx = 0;     ///< the same in 8 lanes; 0 without AVX
  double fma = 0;     ///< GFLOP/s of fused products and sums in 8 lanes; 0 without FMA
  double avx512 = 0;  ///< the same in 16 lanes; 0 without AVX-512
  double maxima_and_sums_per_cycle = 0;  ///< instructions, of both together
  Bandwidth l1[2], l2[2], memory[2];     ///< at 16 and at 32 bytes
};

/// Measures all of it, which takes about a second.
Limits measure_limits();

/// Prints the limits to standard error, as the header of a report.
void print_limits(const Limits& limits);

/// GB/s of the best copy between two given arrays, read plus written: what a kernel that reads one
/// and writes the other could reach at most.
///
/// A machine that others use as well changes from second to second, so a share is taken of a limit
/// that was measured just before, on the same memory.
/// @param count floats in each array, `kCopyStep` at least; what is left of whole steps isn't
/// copied
double copy_limit(Width width, const float* from, float* to, size_t count);

/// The same between two new arrays that together hold `floats`: for a kernel that reads and writes
/// so many, in whatever shares.
double copy_limit(Width width, size_t floats);

/// GFLOP/s of separate products and sums, measured now.
double arithmetic_limit(Width width);

/// GFLOP/s of fused products and sums in 8 lanes, measured now; 0 without FMA.
double fused_limit();

/// The same in 16 lanes; 0 without AVX-512.
double wide_limit();

/// GB/s of reading an array of `count` floats, `kCopyStep` at least, but for what is left of whole
/// steps; measured now.
double read_limit(Width width, const float* from, size_t count);

/// GHz, measured now.
double clock_now();

}  // namespace marlo::bench
