#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "qrt_core/utility/export.h"
#include "qrt_toolkit/assign/kernel_set.h"

// The limits of this machine: what no kernel can do better than.

namespace marlo::toolkit {

/// How fast one core moves memory of one level with the loads and stores of one set.
struct Bandwidth {
  double read = 0;  ///< GB/s of reading only; 0 where the processor lacks the set
  double copy = 0;  ///< GB/s of copying, read plus written
};

/// One level of memory.
struct MemoryLevel {
  std::string name;    ///< "L1", "L2", "L3" or "memory"
  uint64_t bytes = 0;  ///< what it holds; 0 for main memory, which holds all
  std::array<Bandwidth, kKernelSets> bandwidth{};  ///< by set
};

/// What one core can do. Plain data.
struct MachineLimits {
  std::string processor;  ///< the name that it gives itself
  double gigahertz = 0;   ///< its clock while it was measured
  /// GFLOP/s of products and sums by set; 0 where the processor lacks it.
  std::array<double, kKernelSets> gigaflops{};
  std::vector<MemoryLevel> levels;  ///< from the nearest; main memory is the last
};

/// How thoroughly limits are measured.
struct MachineEffort {
  double run_ms = 0.5;  ///< of one run, at least
  size_t runs = 7;      ///< of which the median counts
  /// Of memory that is taken for it: 128 MiB, or twice the last cache where that is more. Less lies
  /// in caches in part, and main memory seems faster than it is.
  uint64_t most_bytes = uint64_t{1} << 30;
};

/// Measures this machine on the calling thread, which takes about a second.
/// @throws std::bad_alloc where the memory for it isn't to be had
QRT_API MachineLimits measure_machine(const MachineEffort& effort = {});

/// The place of the level where data of so many bytes lie after they were used: the nearest one that
/// holds them.
QRT_API size_t level_of(const MachineLimits& machine, uint64_t bytes);

/// The set whose peak is the limit of a kernel: its own, or that of the processor for kernels on a
/// BLAS, which takes the best instructions that it finds.
/// @param set of the kernel
/// @param best of the processor
QRT_API KernelSet limiting_set(std::string_view kernel, KernelSet set, KernelSet best);

}  // namespace marlo::toolkit
