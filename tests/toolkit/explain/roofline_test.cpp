#include "qrt_toolkit/explain/roofline.h"

#include <gtest/gtest.h>

#include <cmath>

namespace marlo::toolkit::test {
namespace {

constexpr uint64_t kMega = 1000 * 1000;

/// 100 GFLOP/s; 1000 bytes at 50 GB/s, 1 MB at 20, and memory that is read at 10 and copied at 8.
MachineLimits made_up_machine() {
  MachineLimits machine;
  machine.gigaflops.fill(100);
  machine.levels.resize(3);
  const double speeds[][2] = {{50, 50}, {20, 20}, {10, 8}};
  const uint64_t sizes[] = {1000, kMega, 0};
  for (size_t i = 0; i < 3; ++i) {
    machine.levels[i].name = i == 2 ? "memory" : "L" + std::to_string(i + 1);
    machine.levels[i].bytes = sizes[i];
    machine.levels[i].bandwidth.fill({speeds[i][0], speeds[i][1]});
  }
  return machine;
}

TEST(Roofline, ArithmeticIsTheLimitOfMuchWorkOnFewBytes) {
  const KernelWork work{50 * kMega, 400, 400, 0};
  const Roofline found = roofline_of(work, 2.0, 800, KernelSet::fma, made_up_machine());
  // 100 million operations: 1 ms at 100 GFLOP/s.
  EXPECT_DOUBLE_EQ(found.limit_ms, 1.0);
  EXPECT_DOUBLE_EQ(found.share, 0.5);
  EXPECT_DOUBLE_EQ(found.gigaflops, 50);
  EXPECT_EQ(found.bound, Bound::arithmetic);
  EXPECT_EQ(found.tensor_level, 0u);
  EXPECT_DOUBLE_EQ(found.intensity, 125000);
  EXPECT_EQ(limit_name(found, made_up_machine()), "fma");
}

TEST(Roofline, MemoryIsTheLimitOfLayersThatOnlyMove) {
  const KernelWork work{0, 400 * 1000, 400 * 1000, 0};
  const Roofline found = roofline_of(work, 0.08, kMega, KernelSet::sse, made_up_machine());
  EXPECT_DOUBLE_EQ(found.limit_ms, 0.04);  // 800 kB at 20 GB/s
  EXPECT_DOUBLE_EQ(found.share, 0.5);
  EXPECT_DOUBLE_EQ(found.gigabytes, 10);
  EXPECT_EQ(found.bound, Bound::memory);
  EXPECT_EQ(limit_name(found, made_up_machine()), "L2");
}

TEST(Roofline, WhatIsOnlyReadMovesFasterThanWhatIsCopied) {
  const MachineLimits machine = made_up_machine();
  const auto limit = [&](uint64_t read, uint64_t written) {
    return roofline_of({0, read, written, 0}, 1, 0, KernelSet::sse, machine).limit_ms;
  };
  EXPECT_DOUBLE_EQ(limit(10 * kMega, 0), 1.0);
  EXPECT_DOUBLE_EQ(limit(4 * kMega, 4 * kMega), 1.0);
  EXPECT_DOUBLE_EQ(limit(14 * kMega, 4 * kMega), 2.0);
  EXPECT_DOUBLE_EQ(limit(4 * kMega, 12 * kMega), 2.0);
}

TEST(Roofline, WeightsComeFromWhereAWholePassHasRoom) {
  const KernelWork work{kMega, 100, 100, 500};
  const MachineLimits machine = made_up_machine();
  EXPECT_EQ(roofline_of(work, 1, 900, KernelSet::avx, machine).weight_level, 0u);
  const Roofline far = roofline_of(work, 1, 2 * kMega, KernelSet::avx, machine);
  EXPECT_EQ(far.tensor_level, 0u);
  EXPECT_EQ(far.weight_level, 2u);
  const Roofline dense =
      roofline_of({kMega, 100, 100, 800 * 1000}, 1, 2 * kMega, KernelSet::avx, machine);
  EXPECT_EQ(limit_name(dense, machine), "memory");
}

TEST(Roofline, NothingToDoHasNoLimit) {
  const MachineLimits machine = made_up_machine();
  const Roofline nothing = roofline_of({}, 0.001, 0, KernelSet::portable, machine);
  EXPECT_EQ(nothing.bound, Bound::none);
  EXPECT_EQ(nothing.share, 0);
  EXPECT_EQ(limit_name(nothing, machine), "");
  EXPECT_EQ(roofline_of({kMega, 8, 8, 8}, 0, 24, KernelSet::sse, machine).gigaflops, 0);
  // A processor without the set: there is no peak to compare with.
  MachineLimits old = machine;
  old.gigaflops[static_cast<size_t>(KernelSet::avx512)] = 0;
  EXPECT_EQ(roofline_of({kMega, 0, 0, 0}, 1, 0, KernelSet::avx512, old).bound, Bound::none);
}

TEST(Machine, ItsLimitsAreMeasured) {
  MachineEffort effort;
  effort.run_ms = 0.01;
  effort.runs = 3;
  effort.most_bytes = 1 << 16;
  const MachineLimits machine = measure_machine(effort);
  EXPECT_GT(machine.gigahertz, 0);
  EXPECT_TRUE(std::isfinite(machine.gigahertz));
  ASSERT_GE(machine.levels.size(), 2u);
  EXPECT_EQ(machine.levels.front().name, "L1");
  EXPECT_EQ(machine.levels.back().name, "memory");
  EXPECT_EQ(machine.levels.back().bytes, 0u);
  for (size_t i = 0; i + 2 < machine.levels.size(); ++i) {
    EXPECT_LT(machine.levels[i].bytes, machine.levels[i + 1].bytes);
  }
  for (size_t s = 0; s < kKernelSets; ++s) {
    const bool has = s <= static_cast<size_t>(processor_kernels());
    EXPECT_EQ(machine.gigaflops[s] > 0, has) << s;
    EXPECT_TRUE(std::isfinite(machine.gigaflops[s])) << s;
    for (const MemoryLevel& level : machine.levels) {
      EXPECT_EQ(level.bandwidth[s].read > 0, has) << level.name << s;
      EXPECT_EQ(level.bandwidth[s].copy > 0, has) << level.name << s;
      EXPECT_TRUE(std::isfinite(level.bandwidth[s].read + level.bandwidth[s].copy)) << level.name;
    }
  }
}

TEST(Machine, DataLieInTheNearestLevelThatHoldsThem) {
  const MachineLimits machine = made_up_machine();
  EXPECT_EQ(level_of(machine, 0), 0u);
  EXPECT_EQ(level_of(machine, 1000), 0u);
  EXPECT_EQ(level_of(machine, 1001), 1u);
  EXPECT_EQ(level_of(machine, kMega + 1), 2u);
  EXPECT_EQ(level_of({}, 1), 0u);
}

TEST(Machine, ABlasTakesTheBestInstructionsThatItFinds) {
  EXPECT_EQ(limiting_set("Conv2D_SGEMM_Float", KernelSet::sse, KernelSet::avx2), KernelSet::avx2);
  EXPECT_EQ(limiting_set("ReLU_SSE_Float_M1", KernelSet::sse, KernelSet::avx2), KernelSet::sse);
}

}  // namespace
}  // namespace marlo::toolkit::test
