#include "qrt_toolkit/explain/machine.h"

#include <cpuid.h>

#include <algorithm>
#include <initializer_list>

#include "qrt_toolkit/explain/probe.h"
#include "qrt_toolkit/tune/tune.h"

namespace marlo::toolkit {
namespace {

constexpr uint64_t kKibi = 1024;

/// A cache of the processor, and what it holds where the processor doesn't say.
struct Cache {
  const char* name;
  uint64_t usual;
};

constexpr Cache kCaches[] = {{"L1", 32 * kKibi}, {"L2", 512 * kKibi}, {"L3", 0}};

/// Bytes of the data cache of a level from 1 on, of one core or of the cores that share it; 0 where
/// the processor doesn't say. Systems add up the caches of all cores, which no core has.
uint64_t cache_bytes(unsigned int level) {
  constexpr unsigned int kIntel = 4;
  constexpr unsigned int kAmd = 0x8000001D;
  constexpr unsigned int kMostCaches = 8;
  constexpr unsigned int kInstructions = 2;
  for (const unsigned int leaf : {kAmd, kIntel}) {
    for (unsigned int i = 0; i < kMostCaches; ++i) {
      unsigned int a = 0;
      unsigned int b = 0;
      unsigned int c = 0;
      unsigned int d = 0;
      if (__get_cpuid_count(leaf, i, &a, &b, &c, &d) == 0) break;
      const unsigned int type = a & 0x1Fu;
      if (type == 0) break;
      if (type == kInstructions || ((a >> 5) & 7u) != level) continue;
      const uint64_t line = (b & 0xFFFu) + 1;
      const uint64_t parts = ((b >> 12) & 0x3FFu) + 1;
      const uint64_t ways = (b >> 22) + 1;
      return line * parts * ways * (uint64_t{c} + 1);
    }
  }
  return 0;
}

/// The levels with their sizes; a cache that is no larger than the one before isn't there.
std::vector<MemoryLevel> levels_of_processor() {
  std::vector<MemoryLevel> levels;
  unsigned int number = 0;
  for (const Cache& cache : kCaches) {
    const uint64_t told = cache_bytes(++number);
    const uint64_t bytes = told != 0 ? told : cache.usual;
    if (levels.empty() || bytes > levels.back().bytes) levels.push_back({cache.name, bytes, {}});
  }
  levels.push_back({"memory", 0, {}});
  return levels;
}

/// Bytes of each of the two arrays that a level is measured with: in a cache both have room beside
/// each other and what else goes on, in memory both together are far beyond the last cache.
uint64_t probe_bytes(const std::vector<MemoryLevel>& levels, size_t level, uint64_t most_bytes) {
  constexpr uint64_t kLeast = 4 * kKibi;
  constexpr uint64_t kPart = 4;
  constexpr uint64_t kBeyond = 64 * kKibi * kKibi;
  const uint64_t wanted = levels[level].bytes != 0 ? levels[level].bytes / kPart
                                                   : std::max(kBeyond, levels[level - 1].bytes);
  return std::max(kLeast, std::min(wanted, most_bytes / 2));
}

/// Sets that load and store alike are measured once.
bool is_measured_alone(KernelSet set) {
  return set == KernelSet::sse || set == KernelSet::avx || set == KernelSet::avx512;
}

}  // namespace

MachineLimits measure_machine(const MachineEffort& effort) {
  const ProbeEffort probe{effort.run_ms, effort.runs};
  const KernelSet best = processor_kernels();
  MachineLimits machine;
  machine.processor = processor_name();
  machine.gigahertz = clock_gigahertz(probe);
  machine.levels = levels_of_processor();
  for (size_t s = 0; s <= static_cast<size_t>(best); ++s) {
    machine.gigaflops.at(s) = peak_gigaflops(static_cast<KernelSet>(s), probe);
  }
  uint64_t largest = 0;
  for (size_t level = 0; level < machine.levels.size(); ++level) {
    largest = std::max(largest, probe_bytes(machine.levels, level, effort.most_bytes));
  }
  const ProbeMemory memory(2 * largest + kApart);
  for (size_t level = 0; level < machine.levels.size(); ++level) {
    const uint64_t bytes = probe_bytes(machine.levels, level, effort.most_bytes);
    const size_t count = bytes / sizeof(float);
    // One array alone would lie in the last cache in part.
    const size_t read_count = machine.levels[level].bytes != 0 ? count : 2 * count;
    std::array<Bandwidth, kKernelSets>& found = machine.levels[level].bandwidth;
    for (size_t s = 0; s <= static_cast<size_t>(best); ++s) {
      const auto set = static_cast<KernelSet>(s);
      if (is_measured_alone(set)) {
        found.at(s).read = read_gigabytes(set, memory.at(0), read_count, probe);
        found.at(s).copy =
            copy_gigabytes(set, memory.at(0), memory.at(bytes + kApart), count, probe);
      } else if (s > 0) {
        found.at(s) = found.at(s - 1);
      }
    }
    found[0] = found[static_cast<size_t>(KernelSet::sse)];
  }
  return machine;
}

size_t level_of(const MachineLimits& machine, uint64_t bytes) {
  for (size_t level = 0; level + 1 < machine.levels.size(); ++level) {
    if (bytes <= machine.levels[level].bytes) return level;
  }
  return machine.levels.empty() ? 0 : machine.levels.size() - 1;
}

KernelSet limiting_set(std::string_view kernel, KernelSet set, KernelSet best) {
  return kernel.find("_SGEMM_") != std::string_view::npos ? std::max(set, best) : set;
}

}  // namespace marlo::toolkit
