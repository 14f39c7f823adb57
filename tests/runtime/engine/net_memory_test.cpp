// What a pass does with memory: where tensors come from, and when they go back.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "qrt_core/qrt_core.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/net_maker.h"

namespace marlo::test {

using namespace runtime;

namespace {

using ::testing::ElementsAre;

class NetMemoryTest : public NetMaker, public ::testing::Test {
 protected:
  // Lets layer `index` note, before it makes its output, how many blocks of the dynamic pool are in
  // use.
  void watch(uint32_t index) {
    kernel(index).run = [this](const IKernel::Tensors&, IKernel::Tensors& out, DeviceCPU& device) {
      in_use_.push_back(counting.dynamic_pool->blocks_in_use());
      const float number = 1.0f;
      out.push_back(device.CreateF32CMainMemory(1, &number));
      return 0;
    };
  }

  void watch_all() {
    for (uint32_t i = 0; i < layers.size(); ++i) watch(i);
  }

  void pass_inputs_through(uint32_t index) {
    kernel(index).run = [](const IKernel::Tensors& in, IKernel::Tensors& out, DeviceCPU&) {
      out = in;
      return 0;
    };
  }

  std::vector<size_t> in_use_;
  test::LogCapture log_;
};

TEST_F(NetMemoryTest, DynamicModeIsOnDuringThePassAndOffAfterIt) {
  chain(2);
  bool during = false;
  kernel(1).run = [&](const IKernel::Tensors& in, IKernel::Tensors& out, DeviceCPU& device) {
    during = device.dynamic_mode;
    out = in;
    return 0;
  };
  run({{0, number(1.0f)}}, {1});
  EXPECT_TRUE(during);
  EXPECT_FALSE(counting.device().dynamic_mode);
}

TEST_F(NetMemoryTest, TensorsOfAPassComeFromTheDynamicPool) {
  chain(3);
  const auto x = number(1.0f);
  const size_t fixed = counting.static_pool->allocations();
  run({{0, x}}, {2});
  EXPECT_EQ(counting.static_pool->allocations(), fixed);
  EXPECT_EQ(counting.dynamic_pool->allocations(), 3u);
}

TEST_F(NetMemoryTest, WithoutADynamicPoolAPassUsesTheStaticOneAndWorksAllTheSame) {
  chain(3);
  counting.device().dynamic_pool.reset();
  const auto x = number(1.0f);
  bool during = true;
  kernel(1).run = [&](const IKernel::Tensors& in, IKernel::Tensors& out, DeviceCPU& device) {
    during = device.dynamic_mode;
    const float number = first_of(in[0]) + 1.0f;
    out.push_back(device.CreateF32CMainMemory(1, &number));
    return 0;
  };
  {
    const auto result = run({{0, x}}, {2});
    EXPECT_EQ(first_of(result.at(2).at(0)), 2.0f);
    EXPECT_EQ(counting.static_pool->blocks_in_use(), 2u);  // input and result
  }
  EXPECT_FALSE(during);
  EXPECT_EQ(counting.static_pool->blocks_in_use(), 1u);
}

TEST_F(NetMemoryTest, TensorMadeInAPassAndKeptStaysValidAndGoesBackToTheDynamicPool) {
  chain(2);
  kernel(1).addend = 5.0f;
  std::shared_ptr<Tensor> kept = run({{0, number(1.0f)}}, {1}).at(1).at(0);
  run({{0, number(100.0f)}}, {1});
  EXPECT_EQ(first_of(kept), 6.0f);
  EXPECT_EQ(counting.dynamic_pool->blocks_in_use(), 1u);
  kept.reset();
  EXPECT_EQ(counting.dynamic_pool->blocks_in_use(), 0u);
}

TEST_F(NetMemoryTest, EverythingNotReturnedIsFreeAfterThePass) {
  const auto a = input();
  const auto b = add({a});
  const auto c = add({a, b});
  add({c});  // nobody reads it
  add({b, c});
  run({{0, number(1.0f)}}, {4});
  EXPECT_EQ(counting.dynamic_pool->blocks_in_use(), 0u);
}

TEST_F(NetMemoryTest, ChainKeepsTwoTensorsAtATime) {
  chain(6);
  pass_inputs_through(0);
  for (uint32_t i = 1; i < 6; ++i) watch(i);
  run({{0, number(1.0f)}}, {5});
  // Each layer sees its input only: the one before went back when its reader had run.
  EXPECT_THAT(in_use_, ElementsAre(0u, 1u, 1u, 1u, 1u));
}

TEST_F(NetMemoryTest, ReleasedBlocksServeTheVeryNextLayer) {
  chain(10);
  run({{0, number(1.0f)}}, {9});
  // The input's copy, and two blocks that take turns.
  const uint64_t block = 80;
  EXPECT_LE(counting.dynamic_pool->TotalBytes(), 3 * block);
}

TEST_F(NetMemoryTest, TensorWithSeveralReadersGoesAfterTheLast) {
  input();
  pass_inputs_through(0);
  add({0});  // 1
  add({1});  // 2
  add({1});  // 3
  add({2});  // 4: layer 2's tensor goes here
  add({3});  // 5
  for (uint32_t i = 1; i < 6; ++i) watch(i);
  run({{0, number(1.0f)}}, {5});
  // before 1: none; before 2: [1]; before 3: [1, 2]; before 4: [2, 3], as 1 had its last reader;
  // before 5: [3, 4], as 2 had its only one.
  EXPECT_THAT(in_use_, ElementsAre(0u, 1u, 2u, 2u, 2u));
}

// A source goes when the results of all its readers are there at one moment. In this diamond the
// short branch's result has itself gone by the time the long branch arrives, so the source stays.
TEST_F(NetMemoryTest, SourceStaysIfAReadersOwnResultWentBefore) {
  input();
  pass_inputs_through(0);
  add({0});     // 1: the source
  add({1});     // 2: reads it early
  add({2});     // 3: last reader of 2, whose tensor goes
  add({1});     // 4: reads the source late: the result of 2 isn't there any more
  add({3, 4});  // 5
  add({5});     // 6
  for (uint32_t i = 1; i < 7; ++i) watch(i);
  run({{0, number(1.0f)}}, {6});
  // before 1: none; 2: [1]; 3: [1, 2]; 4: [1, 3]; 5: [1, 3, 4]; 6: [1, 5].
  EXPECT_THAT(in_use_, ElementsAre(0u, 1u, 2u, 2u, 3u, 2u));
  EXPECT_EQ(counting.dynamic_pool->blocks_in_use(), 0u);
}

TEST_F(NetMemoryTest, SourceWithAReaderThatHasNotRunStays) {
  input();
  pass_inputs_through(0);
  add({0});  // 1
  add({1});  // 2
  add({2});  // 3
  add({1});  // 4, not reached
  for (uint32_t i = 1; i < 5; ++i) watch(i);
  run({{0, number(1.0f)}}, {3});
  EXPECT_THAT(in_use_, ElementsAre(0u, 1u, 2u));
  EXPECT_EQ(counting.dynamic_pool->blocks_in_use(), 0u);
}

TEST_F(NetMemoryTest, ReaderThatLeavesItsOutputEmptyHoldsTheSource) {
  input();
  pass_inputs_through(0);
  add({0});  // 1
  add({1});  // 2 makes nothing
  add({1});  // 3
  add({3});  // 4
  for (uint32_t i : {1u, 3u, 4u}) watch(i);
  kernel(2).run = [](const IKernel::Tensors&, IKernel::Tensors&, DeviceCPU&) { return 0; };
  run({{0, number(1.0f)}}, {4});
  EXPECT_THAT(in_use_, ElementsAre(0u, 1u, 2u));
}

TEST_F(NetMemoryTest, RequestedOutputIsReturnedAlthoughItsConsumersReleaseIt) {
  chain(4);
  kernel(1).addend = 7.0f;
  const auto result = run({{0, number(1.0f)}}, {1, 3});
  EXPECT_EQ(first_of(result.at(1).at(0)), 8.0f);
  EXPECT_EQ(first_of(result.at(3).at(0)), 8.0f);
  EXPECT_EQ(counting.dynamic_pool->blocks_in_use(), 2u);
}

TEST_F(NetMemoryTest, CallersTensorIsNeverReleased) {
  chain(3);
  pass_inputs_through(0);
  const auto x = number(1.0f);
  const std::unordered_map<unsigned int, std::shared_ptr<Tensor>> inputs = {{0, x}};
  const long before = x.use_count();
  const auto result = run(inputs, {2});
  EXPECT_EQ(x.use_count(), before);
  EXPECT_EQ(first_of(x), 1.0f);
}

TEST_F(NetMemoryTest, CallersTensorIsHeldOnceMoreByTheResultOfItsInputLayer) {
  chain(3);
  pass_inputs_through(0);
  const auto x = number(1.0f);
  const std::unordered_map<unsigned int, std::shared_ptr<Tensor>> inputs = {{0, x}};
  const long before = x.use_count();
  auto result = run(inputs, {0, 2});
  EXPECT_EQ(result.at(0).at(0), x);
  EXPECT_EQ(x.use_count(), before + 1);
  result.clear();
  EXPECT_EQ(x.use_count(), before);
}

TEST_F(NetMemoryTest, ResultsOfAKeyOfTheCallersInputsStayUntilTheEnd) {
  chain(4);
  pass_inputs_through(0);
  for (uint32_t i = 1; i < 4; ++i) watch(i);
  // Layer 1 is no input layer, yet its number is a key of the inputs, so its result isn't released.
  run({{0, number(1.0f)}, {1, number(9.0f)}}, {3});
  EXPECT_THAT(in_use_, ElementsAre(0u, 1u, 2u));
}

TEST_F(NetMemoryTest, TensorsOfInputConvertersGoWithTheirLayer) {
  chain(3);
  pass_inputs_through(0);
  layers[1]->input_converters[0] = fake("converter");
  watch(1);
  watch(2);
  run({{0, number(1.0f)}}, {2});
  // Layer 1 sees the converted tensor; layer 2 only the result of layer 1.
  EXPECT_THAT(in_use_, ElementsAre(1u, 1u));
}

TEST_F(NetMemoryTest, ExceptionLeavesDynamicModeOnUntilTheNextPassEnds) {
  chain(3);
  kernel(1).run = [](const IKernel::Tensors&, IKernel::Tensors&, DeviceCPU&) -> int {
    throw std::runtime_error("kernel failed");
  };
  EXPECT_EQ(failure_of([&] { run({{0, number(1.0f)}}, {2}); }), "kernel failed");
  EXPECT_TRUE(counting.device().dynamic_mode);
  EXPECT_EQ(counting.dynamic_pool->blocks_in_use(), 0u);
  {
    // In the meantime tensors come from the dynamic pool.
    const auto tensor = number(1.0f);
    EXPECT_EQ(counting.dynamic_pool->blocks_in_use(), 1u);
  }
  kernel(1).run = nullptr;
  EXPECT_EQ(first_of(run({{0, number(2.0f)}}, {2}).at(2).at(0)), 2.0f);
  EXPECT_FALSE(counting.device().dynamic_mode);
}

TEST_F(NetMemoryTest, MissingInputLeavesDynamicModeOnToo) {
  chain(2);
  EXPECT_NE(failure_of([&] { run({}, {1}); }), "");
  EXPECT_TRUE(counting.device().dynamic_mode);
  run({}, {});
  EXPECT_FALSE(counting.device().dynamic_mode);
}

TEST_F(NetMemoryTest, APassLeavesTheDynamicModeOffEvenIfItWasOn) {
  chain(1);
  counting.device().dynamic_mode = true;
  run({}, {});
  EXPECT_FALSE(counting.device().dynamic_mode);
}

}  // namespace
}  // namespace marlo::test
