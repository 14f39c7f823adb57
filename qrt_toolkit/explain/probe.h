#pragma once

#include <cstddef>

#include "qrt_toolkit/assign/kernel_set.h"
#include "qrt_toolkit/explain/probe_cores.h"

// What one core of this machine does at most, measured on the calling thread.

namespace marlo::toolkit {

/// How long a number is measured.
struct ProbeEffort {
  double run_ms = 0.5;  ///< of one run, at least; a run is as many calls as that takes
  size_t runs = 9;      ///< of which the median counts
};

/// Billions of operations a second of a core that does so many in a round.
double giga_per_second(PeakCore core, double operations_per_round, const ProbeEffort& effort = {});

/// GFLOP/s of products and sums in the widest vectors of a set: separate ones below FMA, fused
/// above. The processor has the set.
double peak_gigaflops(KernelSet set, const ProbeEffort& effort = {});

/// GB/s of copying, read plus written, in the widest vectors of a set.
/// @param count floats, `kCopyStep` at least; what is left of whole steps isn't copied
double copy_gigabytes(KernelSet set, const float* from, float* to, size_t count,
                      const ProbeEffort& effort = {});

/// The same of reading only.
double read_gigabytes(KernelSet set, const float* from, size_t count,
                      const ProbeEffort& effort = {});

/// GHz.
double clock_gigahertz(const ProbeEffort& effort = {});

/// Loads that follow a store to the same place of another page wait for it, so source and target of
/// a copy stand half a page apart.
constexpr size_t kApart = 2048;

/// Memory from the beginning of a page on, all ones.
class ProbeMemory {
 public:
  explicit ProbeMemory(size_t bytes);
  ProbeMemory(const ProbeMemory&) = delete;
  ProbeMemory& operator=(const ProbeMemory&) = delete;
  ~ProbeMemory();

  /// The place so many bytes behind the beginning.
  float* at(size_t offset) const { return memory_ + offset / sizeof(float); }

 private:
  float* memory_;
};

}  // namespace marlo::toolkit
