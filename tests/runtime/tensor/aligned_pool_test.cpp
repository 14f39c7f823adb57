#include "qrt_core/runtime/tensor/aligned_pool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/sanitizer.h"

namespace marlo::test {

using namespace runtime;

namespace {

// The system's address of a block, which stands in front of it.
void* raw_address(void* block) {
  void* raw;
  std::memcpy(&raw, static_cast<char*>(block) - sizeof raw, sizeof raw);
  return raw;
}

TEST(AlignedPool, After1000BytesReuses750AndMakesANewBlockFor749And1001) {
  AlignedPool pool(16);
  void* block = pool.Allocate(1000);
  pool.Free(block);
  EXPECT_EQ(pool.Allocate(750), block);
  pool.Free(block);
  void* smaller = pool.Allocate(749);
  void* larger = pool.Allocate(1001);
  EXPECT_NE(smaller, block);
  EXPECT_NE(larger, block);
  EXPECT_EQ(pool.TotalBytes(), 1000u + 749u + 1001u);
  pool.Free(smaller);
  pool.Free(larger);
}

TEST(AlignedPool, ReusesAtTheExactSize) {
  AlignedPool pool;
  void* block = pool.Allocate(1000);
  pool.Free(block);
  EXPECT_EQ(pool.Allocate(1000), block);
  pool.Free(block);
}

TEST(AlignedPool, LowerBoundOfReuseIsRoundedDown) {
  AlignedPool pool;
  void* block = pool.Allocate(101);  // three quarters are 75.75
  pool.Free(block);
  EXPECT_EQ(pool.Allocate(75), block);
  pool.Free(block);
  void* smaller = pool.Allocate(74);
  EXPECT_NE(smaller, block);
  pool.Free(smaller);
}

TEST(AlignedPool, TakesTheFirstFittingBlockFromTheBeginning) {
  AlignedPool pool;
  void* a = pool.Allocate(100);
  void* b = pool.Allocate(100);
  void* c = pool.Allocate(5000);
  for (void* block : {c, a, b}) pool.Free(block);
  EXPECT_EQ(pool.Allocate(100), a);
  EXPECT_EQ(pool.Allocate(100), b);
  pool.Free(a);
  pool.Free(b);
}

TEST(AlignedPool, RemovalMovesTheLastFreeBlockIntoTheGap) {
  AlignedPool pool;
  void* a = pool.Allocate(1000);
  void* b = pool.Allocate(100);
  void* c = pool.Allocate(100);
  for (void* block : {a, b, c}) pool.Free(block);
  // The list is [a, b, c]. Taking `a` leaves [c, b].
  EXPECT_EQ(pool.Allocate(1000), a);
  EXPECT_EQ(pool.Allocate(100), c);
  EXPECT_EQ(pool.Allocate(100), b);
  for (void* block : {a, b, c}) pool.Free(block);
}

TEST(AlignedPool, EntersTheRequestedSizeAndNotTheSizeObtained) {
  AlignedPool pool(64);
  void* block = pool.Allocate(10);
  EXPECT_EQ(pool.TotalBytes(), 10u);
  pool.Free(block);
}

TEST(AlignedPool, ReusedBlockKeepsItsOwnSize) {
  AlignedPool pool;
  void* block = pool.Allocate(1000);
  pool.Free(block);
  ASSERT_EQ(pool.Allocate(800), block);
  EXPECT_EQ(pool.TotalBytes(), 1000u);
  pool.Free(block);
  EXPECT_EQ(pool.Allocate(1000), block);
  pool.Free(block);
}

TEST(AlignedPool, AddressFollowsFromTheSystemsAddressWhichStandsInFront) {
  for (size_t alignment = 1; alignment <= 4096; alignment *= 2) {
    AlignedPool pool(alignment);
    void* block = pool.Allocate(100);
    const auto address = reinterpret_cast<uintptr_t>(block);
    const auto raw = reinterpret_cast<uintptr_t>(raw_address(block));
    EXPECT_EQ(address, (raw + alignment + 7) / alignment * alignment) << alignment;
    EXPECT_GE(address, raw + 8);
    std::memset(block, 1, 100 + 64);  // padding included
    pool.Free(block);
  }
}

TEST(AlignedPool, DefaultAlignmentIs16) {
  AlignedPool pool;
  void* block = pool.Allocate(1);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0u);
  pool.Free(block);
}

TEST(AlignedPool, TotalBytesCountsFreeBlocksUntilTheirRelease) {
  AlignedPool pool;
  void* a = pool.Allocate(100);
  void* b = pool.Allocate(200);
  EXPECT_EQ(pool.TotalBytes(), 300u);
  pool.Free(a);
  EXPECT_EQ(pool.TotalBytes(), 300u);
  pool.ReleaseFreeBlocks();
  EXPECT_EQ(pool.TotalBytes(), 200u);
  pool.Free(b);
  pool.ReleaseFreeBlocks();
  EXPECT_EQ(pool.TotalBytes(), 0u);
}

TEST(AlignedPool, FreeOfNullDoesNothing) {
  test::LogCapture log;
  AlignedPool pool;
  pool.Free(nullptr);
  EXPECT_EQ(pool.TotalBytes(), 0u);
  EXPECT_TRUE(log.lines().empty());
}

TEST(AlignedPool, ForgottenBlockOfAnotherPoolGoesBackToTheSystemWithoutAWord) {
  test::LogCapture log;
  // A block of this kind of pool's making that no pool knows.
  void* raw = std::malloc(256);
  void* block = static_cast<char*>(raw) + 64;
  std::memcpy(static_cast<char*>(block) - sizeof raw, &raw, sizeof raw);
  AlignedPool pool;
  pool.Free(block);  // a leak checker sees if it doesn't
  EXPECT_EQ(pool.TotalBytes(), 0u);
  EXPECT_TRUE(log.lines().empty());
}

TEST(AlignedPool, ExhaustionIsABadAllocWithTheTextBadAllocation) {
  AlignedPool pool;
  // With alignment, address and padding the first two wrap; the others reach the system.
  std::vector<uint64_t> sizes = {UINT64_MAX, UINT64_MAX - 87};
#ifndef QRT_UNDER_SANITIZER
  sizes.insert(sizes.end(), {UINT64_MAX - 88, UINT64_MAX / 2, uint64_t{1} << 62});
#endif
  for (const uint64_t size : sizes) {
    try {
      pool.Allocate(size);
      FAIL() << size;
    } catch (const std::bad_alloc& failure) {
      EXPECT_STREQ(failure.what(), "bad allocation");
    }
  }
  EXPECT_EQ(pool.TotalBytes(), 0u);
}

TEST(AlignedPool, AlignmentThatIsNoPowerOfTwoThrowsAndIsNamed) {
  test::LogCapture log;
  for (const size_t alignment : {size_t{0}, size_t{6}, size_t{48}}) {
    EXPECT_THAT(failure_of([&] { AlignedPool pool(alignment); }),
                ::testing::HasSubstr(std::to_string(alignment)));
  }
}

TEST(AlignedPool, EndPrintsALineForEachBlockInUseAndLeavesItAllocated) {
  void* used[2];
  ::testing::internal::CaptureStderr();
  {
    AlignedPool pool;
    used[0] = pool.Allocate(10);
    used[1] = pool.Allocate(20);
    pool.Free(pool.Allocate(3000));
  }
  const std::string printed = ::testing::internal::GetCapturedStderr();
  std::string lines[2];
  for (int i = 0; i < 2; ++i) {
    char line[64];
    std::snprintf(line, sizeof line, "%p still in use \n", used[i]);
    lines[i] = line;
    static_cast<char*>(used[i])[9] = 1;
    std::free(raw_address(used[i]));
  }
  EXPECT_TRUE(printed == lines[0] + lines[1] || printed == lines[1] + lines[0]) << printed;
}

TEST(AlignedPool, EndWithoutBlocksInUseIsQuiet) {
  ::testing::internal::CaptureStderr();
  {
    AlignedPool pool;
    pool.Free(pool.Allocate(10));
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace marlo::test
