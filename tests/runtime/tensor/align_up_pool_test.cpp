#include "qrt_core/runtime/tensor/align_up_pool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"

namespace marlo::test {

using namespace runtime;

namespace {

bool is_aligned(const void* address, size_t alignment) {
  return reinterpret_cast<uintptr_t>(address) % alignment == 0;
}

TEST(AlignUpPool, BlockSizeIsTheRequestPlus64RoundedUpToTheAlignment) {
  AlignUpPool pool(16);
  void* block = pool.Allocate(100);
  EXPECT_EQ(pool.TotalBytes(), 176u);
  pool.Free(block);
}

TEST(AlignUpPool, DefaultAlignmentIs16) {
  AlignUpPool pool;
  void* block = pool.Allocate(1);
  EXPECT_EQ(pool.TotalBytes(), 80u);
  EXPECT_TRUE(is_aligned(block, 16));
  pool.Free(block);
}

TEST(AlignUpPool, Allocate112ReusesABlockOf176AndAllocate113Makes192) {
  AlignUpPool pool(16);
  void* first = pool.Allocate(100);
  pool.Free(first);
  void* second = pool.Allocate(112);
  EXPECT_EQ(second, first);
  EXPECT_EQ(pool.TotalBytes(), 176u);
  pool.Free(second);
  void* third = pool.Allocate(113);
  EXPECT_NE(third, first);
  EXPECT_EQ(pool.TotalBytes(), 176u + 192u);
  pool.Free(third);
}

TEST(AlignUpPool, AfterTwoFreesHandsOutTheBlockFreedLastIfItIsLargeEnough) {
  AlignUpPool pool(16);
  void* a = pool.Allocate(100);
  void* b = pool.Allocate(100);
  void* small = pool.Allocate(10);
  pool.Free(b);
  pool.Free(a);
  EXPECT_EQ(pool.Allocate(100), a);
  pool.Free(a);
  pool.Free(small);
  // The one freed last is too small.
  EXPECT_EQ(pool.Allocate(100), a);
  EXPECT_EQ(pool.Allocate(100), b);
  EXPECT_EQ(pool.Allocate(10), small);
  for (void* block : {a, b, small}) pool.Free(block);
}

TEST(AlignUpPool, RemovalMovesTheLastFreeBlockIntoTheGap) {
  AlignUpPool pool(16);
  void* large = pool.Allocate(1000);
  void* b = pool.Allocate(10);
  void* c = pool.Allocate(10);
  for (void* block : {large, b, c}) pool.Free(block);
  // The list is [large, b, c]. Taking `large` leaves [c, b], so that b comes before c.
  EXPECT_EQ(pool.Allocate(1000), large);
  EXPECT_EQ(pool.Allocate(10), b);
  EXPECT_EQ(pool.Allocate(10), c);
  for (void* block : {large, b, c}) pool.Free(block);
}

TEST(AlignUpPool, HasNoUpperBoundOnAReusedBlock) {
  AlignUpPool pool(16);
  void* large = pool.Allocate(1 << 24);
  pool.Free(large);
  EXPECT_EQ(pool.Allocate(1), large);
  pool.Free(large);
}

TEST(AlignUpPool, ReusedBlockKeepsItsLargerSizeInTheTable) {
  AlignUpPool pool(16);
  void* block = pool.Allocate(1000);
  pool.Free(block);
  EXPECT_EQ(pool.Allocate(1), block);
  EXPECT_EQ(pool.TotalBytes(), 1072u);
  pool.Free(block);
  EXPECT_EQ(pool.Allocate(1008), block);
  pool.Free(block);
}

TEST(AlignUpPool, TotalBytesDoesNotChangeByReuseAndFallsToWhatIsInUseAfterRelease) {
  AlignUpPool pool(16);
  void* a = pool.Allocate(100);
  void* b = pool.Allocate(200);
  const uint64_t total = pool.TotalBytes();
  EXPECT_EQ(total, 176u + 272u);
  for (int i = 0; i < 10; ++i) {
    pool.Free(a);
    EXPECT_EQ(pool.TotalBytes(), total);
    ASSERT_EQ(pool.Allocate(100), a);
    EXPECT_EQ(pool.TotalBytes(), total);
  }
  pool.Free(a);
  pool.ReleaseFreeBlocks();
  EXPECT_EQ(pool.TotalBytes(), 272u);
  pool.ReleaseFreeBlocks();
  EXPECT_EQ(pool.TotalBytes(), 272u);
  pool.Free(b);
  pool.ReleaseFreeBlocks();
  EXPECT_EQ(pool.TotalBytes(), 0u);
}

TEST(AlignUpPool, AddressesAndSizesFollowTheAlignment) {
  for (size_t alignment = 1; alignment <= 4096; alignment *= 2) {
    AlignUpPool pool(alignment);
    void* block = pool.Allocate(1);
    EXPECT_TRUE(is_aligned(block, alignment)) << alignment;
    EXPECT_EQ(pool.TotalBytes(), (65 + alignment - 1) / alignment * alignment) << alignment;
    pool.Free(block);
  }
}

TEST(AlignUpPool, GivesARequestOfNoBytesABlockOfItsOwn) {
  AlignUpPool pool(16);
  void* a = pool.Allocate(0);
  void* b = pool.Allocate(0);
  EXPECT_NE(a, nullptr);
  EXPECT_NE(a, b);
  EXPECT_EQ(pool.TotalBytes(), 128u);
  pool.Free(a);
  pool.Free(b);
}

TEST(AlignUpPool, The64BytesBehindABlockMayBeReadAndWritten) {
  AlignUpPool pool(16);
  auto* block = static_cast<unsigned char*>(pool.Allocate(100));
  std::memset(block, 1, 164);
  EXPECT_EQ(block[163], 1);
  pool.Free(block);
}

TEST(AlignUpPool, AlignmentThatIsNoPowerOfTwoThrowsAndIsNamed) {
  test::LogCapture log;
  for (const size_t alignment : {size_t{0}, size_t{3}, size_t{24}, size_t{1000}, SIZE_MAX}) {
    EXPECT_THAT(failure_of([&] { AlignUpPool pool(alignment); }),
                ::testing::HasSubstr(std::to_string(alignment)));
  }
}

TEST(AlignUpPool, FreeOfAForeignAddressThrowsWithTheAddress) {
  test::LogCapture log;
  AlignUpPool pool(16);
  int foreign = 0;
  const std::string address = std::to_string(reinterpret_cast<long>(&foreign));
  EXPECT_EQ(failure_of([&] { pool.Free(&foreign); }),
            "[QRT]: pointer(0x" + address + ") not in alignment memory pool !\n");
  EXPECT_EQ(failure_of([&] { pool.Free(nullptr); }),
            "[QRT]: pointer(0x0) not in alignment memory pool !\n");
}

TEST(AlignUpPool, FreeingTwiceThrowsAndKeepsTheBlockOnce) {
  test::LogCapture log;
  AlignUpPool pool(16);
  void* block = pool.Allocate(10);
  pool.Free(block);
  EXPECT_THROW(pool.Free(block), std::runtime_error);
  EXPECT_EQ(pool.TotalBytes(), 80u);
}

TEST(AlignUpPool, RequestBeyondTheAddressSpaceGivesNull) {
  AlignUpPool pool(16);
  EXPECT_EQ(pool.Allocate(UINT64_MAX), nullptr);
  EXPECT_EQ(pool.Allocate(UINT64_MAX - 64), nullptr);
}

TEST(AlignUpPoolDeathTest, EndWithBlocksInUseEndsTheProcessWithItsMessage) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        AlignUpPool pool(16);
        pool.Allocate(10);
      },
      "Destory this pool too early!!");
}

TEST(AlignUpPool, EndWithoutBlocksInUseIsQuiet) {
  test::LogCapture log;
  {
    AlignUpPool pool(16);
    pool.Free(pool.Allocate(10));
  }
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
}  // namespace marlo::test
