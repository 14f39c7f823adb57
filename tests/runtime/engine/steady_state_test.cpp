// After the first pass the pools ask the system for nothing, and the small allocations around them
// are the same in each pass.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "qrt_core/qrt_core.h"
#include "tests/runtime/engine/all_layers.h"
#include "tests/support/counting_allocator.h"
#include "tests/support/kernels.h"

namespace marlo::test {

using namespace runtime;

namespace {

constexpr int kPasses = 1000;

// Calls of an `AlignUpPool` to the system's allocator, its book-keeping included.
class WatchedPool final : public MemoryPool {
 public:
  void* Allocate(uint64_t size) override {
    const uint64_t before = test::allocator_calls();
    void* address = pool_.Allocate(size);
    system_calls_ += test::allocator_calls() - before;
    ++allocations_;
    return address;
  }

  void Free(void* address) override {
    const uint64_t before = test::allocator_calls();
    pool_.Free(address);
    system_calls_ += test::allocator_calls() - before;
  }

  void ReleaseFreeBlocks() override { pool_.ReleaseFreeBlocks(); }
  uint64_t TotalBytes() override { return pool_.TotalBytes(); }

  uint64_t system_calls() const { return system_calls_; }
  uint64_t allocations() const { return allocations_; }

 private:
  AlignUpPool pool_;
  uint64_t system_calls_ = 0;
  uint64_t allocations_ = 0;
};

TEST(AllocatorCounter, SeesEveryWayToAllocate) {
  const auto calls_of = [](auto allocate) {
    const uint64_t before = test::allocator_calls();
    void* volatile address = allocate();  // volatile, so that no call is optimised away
    const uint64_t calls = test::allocator_calls() - before;
    std::free(address);
    return calls;
  };
  EXPECT_EQ(calls_of([] { return std::malloc(8); }), 1u);
  EXPECT_EQ(calls_of([] { return std::calloc(2, 8); }), 1u);
  EXPECT_EQ(calls_of([] { return std::realloc(nullptr, 8); }), 1u);
  EXPECT_EQ(calls_of([] { return std::aligned_alloc(64, 64); }), 1u);
  EXPECT_EQ(calls_of([] {
              void* address = nullptr;
              return posix_memalign(&address, 64, 8) == 0 ? address : nullptr;
            }),
            1u);
  const uint64_t before = test::allocator_calls();
  const int64_t objects = test::live_objects();
  auto* volatile number = new int(1);
  EXPECT_EQ(test::live_objects(), objects + 1);
  delete number;
  EXPECT_EQ(test::allocator_calls(), before + 1);
  EXPECT_EQ(test::live_objects(), objects);
}

TEST(AllocatorCounter, SeesTheFirstAllocationsOfAPool) {
  WatchedPool pool;
  void* block = pool.Allocate(100);
  const uint64_t first = pool.system_calls();
  EXPECT_GE(first, 1u);
  pool.Free(block);
  pool.Free(pool.Allocate(100));
  EXPECT_EQ(pool.system_calls(), first);
}

// A network with every kind of layer on watched pools.
class SteadyStateTest : public ::testing::Test {
 protected:
  void make(uint16_t window) {
    auto model = test::all_layers(window);
    net_ = CreateNet(model.info(), model.configuration(), test::all_kernels(), context_);
    inputs_ = test::all_layers_inputs(*context_->cpu);
    const auto& ids = model.info()->squential_ids;
    for (const std::string& id : model.info()->squential_output_ids) {
      const auto at = std::find(ids.begin(), ids.end(), id);
      output_ids_.push_back(static_cast<unsigned int>(at - ids.begin()));
    }
  }

  // One pass. @return the calls to the system's allocator, whoever made them
  uint64_t pass() {
    const uint64_t before = test::allocator_calls();
    const auto result = net_->Forward(inputs_, output_ids_, context_, nullptr, nullptr);
    EXPECT_EQ(result.size(), output_ids_.size());
    return test::allocator_calls() - before;
  }

  uint64_t total_bytes() { return fixed_->TotalBytes() + dynamic_->TotalBytes(); }
  uint64_t pool_calls() { return fixed_->system_calls() + dynamic_->system_calls(); }

  void expect_a_thousand_passes_without_a_call() {
    const uint64_t total = total_bytes();
    const uint64_t calls = pool_calls();
    const uint64_t tensors = dynamic_->allocations();
    ASSERT_GT(calls, 0u);
    const uint64_t per_pass = pass();
    const uint64_t tensors_per_pass = dynamic_->allocations() - tensors;
    EXPECT_GT(tensors_per_pass, 15u);
    for (int i = 1; i < kPasses; ++i) ASSERT_EQ(pass(), per_pass) << "pass " << i;
    EXPECT_EQ(pool_calls(), calls);
    EXPECT_EQ(total_bytes(), total);
    EXPECT_EQ(dynamic_->allocations(), tensors + kPasses * tensors_per_pass);
    RecordProperty("layers", static_cast<int>(net_->layers.size()));
    RecordProperty("tensors_per_pass", static_cast<int>(tensors_per_pass));
    RecordProperty("small_allocations_per_pass", static_cast<int>(per_pass));
  }

  std::shared_ptr<WatchedPool> fixed_ = std::make_shared<WatchedPool>();
  std::shared_ptr<WatchedPool> dynamic_ = std::make_shared<WatchedPool>();
  std::shared_ptr<Context> context_ =
      CreateContext(CreateDeviceCPU(DetectCPUDevice(), fixed_, nullptr, dynamic_), nullptr, nullptr,
                    nullptr, nullptr, nullptr);
  std::shared_ptr<Net> net_;
  std::unordered_map<unsigned int, std::shared_ptr<Tensor>> inputs_;
  std::vector<unsigned int> output_ids_;
};

TEST_F(SteadyStateTest, AThousandPassesAfterTheFirstAskTheSystemForNothing) {
  make(1);
  pass();
  expect_a_thousand_passes_without_a_call();
}

// A request takes the block freed last, however large, so with tensors of several sizes a small one
// may take the block that a large one had in the pass before. That can cost another block in an
// early pass, until there are enough for every order.
TEST_F(SteadyStateTest, TensorsOfSeveralSizesSettleWithinAFewPasses) {
  make(3);
  int passes = 0;
  for (int quiet = 0; quiet < 20; ++passes) {
    const uint64_t before = pool_calls();
    pass();
    quiet = pool_calls() == before ? quiet + 1 : 0;
    ASSERT_LT(passes, 60);
  }
  expect_a_thousand_passes_without_a_call();
  RecordProperty("passes_to_settle", passes - 20);
}

}  // namespace
}  // namespace marlo::test
