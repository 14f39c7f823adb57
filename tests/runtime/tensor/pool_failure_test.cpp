// Memory that runs out at any call of a pool leaves the pool whole.

#include <gtest/gtest.h>

#include <new>
#include <vector>

#include "qrt_core/runtime/tensor/align_up_pool.h"
#include "qrt_core/runtime/tensor/aligned_pool.h"
#include "qrt_core/runtime/tensor/device_cpu.h"
#include "tests/support/counting_allocator.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"

namespace marlo::test {

using namespace runtime;

namespace {

const TensorShape kThousandFloats({1000}, DataType::FLOAT32, LayoutType::C);

#ifdef QRT_UNDER_SANITIZER
#define QRT_SKIP_WHERE_NOTHING_IS_REFUSED() GTEST_SKIP() << "the sanitizer's allocator serves all"
#else
#define QRT_SKIP_WHERE_NOTHING_IS_REFUSED() static_cast<void>(0)
#endif

TEST(AlignUpPool, RefusedRequestCountsAsABlockUntilItIsTakenBack) {
  QRT_SKIP_WHERE_NOTHING_IS_REFUSED();
  test::LogCapture log;
  AlignUpPool pool(16);
  test::refuse_block_at(1);
  EXPECT_EQ(pool.Allocate(100), nullptr);
  EXPECT_EQ(pool.TotalBytes(), 176u);
  pool.Free(nullptr);
  EXPECT_EQ(pool.TotalBytes(), 0u);
  EXPECT_NE(failure_of([&] { pool.Free(nullptr); }), "");
  void* block = pool.Allocate(100);
  EXPECT_NE(block, nullptr);
  pool.Free(block);
}

TEST(CreateTensor, RefusedByTheSystemIsABadAllocThatLeavesThePoolAsItWas) {
  QRT_SKIP_WHERE_NOTHING_IS_REFUSED();
  test::LogCapture log;
  const auto pool = std::make_shared<AlignUpPool>();
  const auto device = CreateDeviceCPU({}, pool, nullptr, nullptr);
  const auto before = device->CreateTensor(kThousandFloats, nullptr);
  const uint64_t bytes = pool->TotalBytes();
  for (int i = 0; i < 3; ++i) {
    test::refuse_block_at(1);
    EXPECT_THROW(device->CreateTensor(kThousandFloats, nullptr), std::bad_alloc);
    EXPECT_EQ(pool->TotalBytes(), bytes);
  }
  EXPECT_NE(device->CreateTensor(kThousandFloats, nullptr), nullptr);
  EXPECT_TRUE(log.lines().empty());
}

// Null is all that this pool knows to say, and it is never asked to take it back.
class EmptyPool final : public MemoryPool {
 public:
  void ReleaseFreeBlocks() override {}
  void* Allocate(uint64_t) override { return nullptr; }
  void Free(void*) override { ADD_FAILURE() << "nothing was given out"; }
  uint64_t TotalBytes() override { return 0; }
};

TEST(CreateTensor, GivesNothingBackToAnApplicationsPoolThatReturnedNull) {
  const auto device = CreateDeviceCPU({}, std::make_shared<EmptyPool>(), nullptr, nullptr);
  EXPECT_THROW(device->CreateTensor(kThousandFloats, nullptr), std::bad_alloc);
}

template <typename Pool>
class PoolFailureTest : public ::testing::Test {};
using Pools = ::testing::Types<AlignUpPool, AlignedPool>;
TYPED_TEST_SUITE(PoolFailureTest, Pools);

// Many blocks at once, then fewer, then all again: `attempt` makes and frees them, and may throw.
template <typename Pool>
void use(Pool& pool, std::vector<void*>& held) {
  const auto take = [&](uint64_t size) {
    void* address = pool.Allocate(size);
    if (address == nullptr) {
      pool.Free(nullptr);
      throw std::bad_alloc();
    }
    held.push_back(address);
  };
  const auto give_all = [&] {
    for (void* address : held) pool.Free(address);
    held.clear();
  };
  for (uint64_t round = 0; round < 3; ++round) {
    // Each request is larger than any free block, and only the last ones are in use together.
    for (uint64_t size = 1; size < 40; ++size) {
      take(1000 * size + 100000 * round);
      give_all();
    }
    for (uint64_t size = 1; size < 40; ++size) take(1000 * size + 100000 * round);
    pool.ReleaseFreeBlocks();
    give_all();
  }
}

TYPED_TEST(PoolFailureTest, OperatorNewThatFailsAtTheNthCallLeavesItWhole) {
  std::vector<void*> held;
  held.reserve(100);
  uint64_t call = 1;
  for (bool failed = true; failed; ++call) {
    TypeParam pool;
    test::fail_new_at(call);
    try {
      use(pool, held);
    } catch (const std::bad_alloc&) {
    }
    failed = !test::new_failure_is_pending();
    test::fail_new_at(0);
    for (void* address : held) pool.Free(address);
    held.clear();
    // All of it again, on what the failure left.
    use(pool, held);
    pool.ReleaseFreeBlocks();
    ASSERT_EQ(pool.TotalBytes(), 0u) << "call " << call;
  }
  EXPECT_GT(call, 10u);
}

TEST(AlignUpPool, SystemThatRefusesTheNthBlockLeavesItWhole) {
  QRT_SKIP_WHERE_NOTHING_IS_REFUSED();
  std::vector<void*> held;
  held.reserve(100);
  uint64_t call = 1;
  for (bool failed = true; failed; ++call) {
    AlignUpPool pool;
    test::refuse_block_at(call);
    try {
      use(pool, held);
    } catch (const std::bad_alloc&) {
    }
    failed = !test::block_refusal_is_pending();
    test::refuse_block_at(0);
    for (void* address : held) pool.Free(address);
    held.clear();
    use(pool, held);
    pool.ReleaseFreeBlocks();
    ASSERT_EQ(pool.TotalBytes(), 0u) << "call " << call;
  }
  EXPECT_GT(call, 10u);
}

TYPED_TEST(PoolFailureTest, TakesABlockBackWithoutMemoryAlsoAfterItsFreeBlocksWent) {
  TypeParam pool;
  std::vector<void*> blocks;
  for (int i = 0; i < 100; ++i) blocks.push_back(pool.Allocate(10));
  for (int i = 0; i < 50; ++i) pool.Free(blocks[static_cast<size_t>(i)]);
  const uint64_t calls = test::allocator_calls();
  pool.ReleaseFreeBlocks();
  for (int i = 50; i < 100; ++i) pool.Free(blocks[static_cast<size_t>(i)]);
  EXPECT_EQ(test::allocator_calls(), calls);
}

// Also where more blocks are in use together than ever before.
TYPED_TEST(PoolFailureTest, HandsFreeBlocksOutWithoutMemory) {
  TypeParam pool;
  std::vector<uint64_t> sizes;
  for (uint64_t size = 1; size < 200; ++size) sizes.push_back(1000 * size);
  for (const uint64_t size : sizes) pool.Free(pool.Allocate(size));
  std::vector<void*> blocks(sizes.size());
  const uint64_t bytes = pool.TotalBytes();
  const uint64_t calls = test::allocator_calls();
  for (size_t i = sizes.size(); i-- > 0;) blocks[i] = pool.Allocate(sizes[i]);
  EXPECT_EQ(test::allocator_calls(), calls);
  EXPECT_EQ(pool.TotalBytes(), bytes);
  for (void* block : blocks) pool.Free(block);
}

}  // namespace
}  // namespace marlo::test
