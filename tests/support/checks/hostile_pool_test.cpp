#include "tests/support/hostile_pool.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/numbers.h"

// The pool must catch what it is there to catch.

namespace marlo::test {
namespace {

TEST(HostilePool, FillsBlocksWithNaNs) {
  HostilePool pool;
  auto* block = static_cast<float*>(pool.Allocate(5 * sizeof(float)));
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(std::isnan(block[i])) << i;
  pool.Free(block);
}

TEST(HostilePool, AlignsAsPromisedAndOftenNoMore) {
  for (const size_t alignment : {size_t{4}, size_t{16}, size_t{32}}) {
    HostilePool pool(alignment);
    size_t aligned_to_more = 0;
    for (size_t i = 0; i < 1000; ++i) {
      void* const block = pool.Allocate(i / 10);
      const auto address = reinterpret_cast<uintptr_t>(block);
      EXPECT_EQ(address % alignment, 0u);
      if (address % (2 * alignment) == 0) ++aligned_to_more;
      pool.Free(block);
    }
    EXPECT_GT(aligned_to_more, 100u) << alignment;
    EXPECT_LT(aligned_to_more, 500u) << alignment;
  }
}

// Reads behind blocks until one stands at its page.
[[gnu::noinline]] void read_behind(size_t size) {
  HostilePool pool(4);
  volatile float sum = 0.0f;
  for (int i = 0; i < 100; ++i) {
    auto* block = static_cast<volatile float*>(pool.Allocate(size));
    sum = sum + block[size / sizeof(float)];
    pool.Free(const_cast<float*>(block));
  }
}

TEST(HostilePoolDeathTest, EndsWhatReadsBehindABlock) {
  for (const size_t size : {size_t{0}, size_t{4}, size_t{12}, size_t{4096}, size_t{5000}}) {
    EXPECT_DEATH(read_behind(size), "") << size;
  }
}

TEST(HostilePool, LeavesAWellUsedBlockInPeace) {
  HostilePool pool;
  for (size_t size = 0; size < 100; ++size) {
    void* const block = pool.Allocate(size);
    std::memset(block, 0, size);
    EXPECT_EQ(pool.TotalBytes(), size);
    pool.Free(block);
  }
  EXPECT_EQ(pool.allocations(), 100u);
  EXPECT_EQ(pool.blocks_in_use(), 0u);
}

// Writes a byte at an offset of a block of 10 bytes and frees it. A sanitizer would see it first.
[[gnu::noinline]] __attribute__((no_sanitize_address)) void write_at(ptrdiff_t offset) {
  HostilePool pool;
  auto* block = static_cast<unsigned char*>(pool.Allocate(10));
  block[offset] = 1;
  pool.Free(block);
}

TEST(HostilePool, ReportsAByteWrittenBehindABlock) {
  EXPECT_NONFATAL_FAILURE(write_at(10), "a block of 10 bytes was written at offset 10, behind it");
  EXPECT_NONFATAL_FAILURE(write_at(15), "a block of 10 bytes was written at offset 15, behind it");
}

TEST(HostilePool, ReportsAByteWrittenInFrontOfABlock) {
  EXPECT_NONFATAL_FAILURE(write_at(-1), "written at offset -1, in front of it");
  EXPECT_NONFATAL_FAILURE(write_at(-64), "written at offset -64, in front of it");
}

TEST(HostilePool, ReportsABlockThatNeverComesBack) {
  const auto leak = [] {
    HostilePool pool;
    pool.Allocate(12);
  };
  EXPECT_NONFATAL_FAILURE(leak(), "a block of 12 bytes was never freed");
}

TEST(HostilePool, ReportsAnAddressThatIsNotInUse) {
  const auto free_twice = [] {
    HostilePool pool;
    void* const block = pool.Allocate(12);
    pool.Free(block);
    pool.Free(block);
  };
  EXPECT_NONFATAL_FAILURE(free_twice(), "isn't in use");
}

TEST(HostilePool, FailsAtTheChosenCall) {
  HostilePool pool;
  pool.fail_at(2);
  void* const first = pool.Allocate(1);
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(pool.Allocate(1), nullptr);
  void* const third = pool.Allocate(1);
  EXPECT_NE(third, nullptr);
  pool.Free(first);
  pool.Free(third);
}

}  // namespace
}  // namespace marlo::test
