#include "qrt_core/runtime/engine/net.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <stdexcept>
#include <type_traits>

#include "qrt_core/qrt_core.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/net_maker.h"

namespace {
int wall_clock_reads = 0;
}  // namespace

// Stands in for the C library's, to count how often the wall clock is read.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  if (clock == CLOCK_REALTIME) ++wall_clock_reads;
  return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
}

namespace marlo::test {

using namespace runtime;

namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class NetTest : public NetMaker, public ::testing::Test {
 protected:
  test::LogCapture log_;
};

TEST_F(NetTest, HoldsLayersAndInputMapAndHasNoVirtualFunctions) {
  chain(2);
  const Net net(layers, {{"x", 0}});
  EXPECT_EQ(net.layers, layers);
  EXPECT_THAT(net.input_map, ElementsAre(::testing::Pair("x", 0u)));
  EXPECT_FALSE(std::is_polymorphic_v<Net>);
}

TEST_F(NetTest, LayersRunInListOrderEachAfterItsPrepareForward) {
  chain(3);
  run({{0, number(1.0f)}}, {2});
  std::vector<std::string> order;
  for (const KernelCall& call : *calls) {
    order.push_back((call.slot == KernelCall::prepare ? "prepare " : "forward ") + call.kernel);
  }
  EXPECT_THAT(order, ElementsAre("prepare 0", "forward 0", "prepare 1", "forward 1", "prepare 2",
                                 "forward 2"));
}

TEST_F(NetTest, ResultsFlowFromLayerToLayer) {
  chain(3);
  kernel(1).addend = 10.0f;
  kernel(2).addend = 100.0f;
  const auto result = run({{0, number(1.0f)}}, {2});
  ASSERT_THAT(result, SizeIs(1));
  EXPECT_EQ(first_of(result.at(2).at(0)), 111.0f);
}

TEST_F(NetTest, InputsOfALayerComeInTheOrderOfItsPositions) {
  const auto a = input();
  const auto b = input();
  add({b, a, b});
  kernel(2).run = [](const IKernel::Tensors& in, IKernel::Tensors& out, DeviceCPU& device) {
    const float number = 100 * first_of(in[0]) + 10 * first_of(in[1]) + first_of(in[2]);
    out.push_back(device.CreateF32CMainMemory(1, &number));
    return 0;
  };
  const auto result = run({{0, number(1.0f)}, {1, number(2.0f)}}, {2});
  EXPECT_EQ(first_of(result.at(2).at(0)), 212.0f);
}

TEST_F(NetTest, LayersMayTakeAnyOutputOfTheirSource) {
  input();
  add({0});
  add({1});
  kernel(1).run = [](const IKernel::Tensors&, IKernel::Tensors& out, DeviceCPU& device) {
    for (const float number : {5.0f, 6.0f, 7.0f}) {
      out.push_back(device.CreateF32CMainMemory(1, &number));
    }
    return 0;
  };
  layers[2]->inputs[0].second = 2;
  EXPECT_EQ(first_of(run({{0, number(1.0f)}}, {2}).at(2).at(0)), 7.0f);
  const auto all = run({{0, number(1.0f)}}, {1});
  EXPECT_THAT(all.at(1), SizeIs(3));
}

TEST_F(NetTest, WithoutOutputIdsNothingRunsAndTheTimesAreEmptied) {
  chain(3);
  std::vector<float> cpu = {1.0f, 2.0f};
  std::vector<float> gpu = {3.0f};
  // Without an input tensor, as nothing reads it.
  EXPECT_THAT(run({}, {}, &cpu, &gpu), IsEmpty());
  EXPECT_THAT(*calls, IsEmpty());
  EXPECT_THAT(cpu, IsEmpty());
  EXPECT_THAT(gpu, IsEmpty());
  EXPECT_GE(cpu.capacity(), 3u);
  EXPECT_GE(gpu.capacity(), 3u);
}

TEST_F(NetTest, WithLayer3OfTenRequestedLayers0To3RunAndHaveTheirTimes) {
  chain(10);
  std::vector<float> cpu = {9.0f};
  std::vector<float> gpu = {9.0f};
  const auto result = run({{0, number(1.0f)}}, {3}, &cpu, &gpu);
  EXPECT_THAT(ran(), ElementsAre("0", "1", "2", "3"));
  EXPECT_THAT(result, SizeIs(1));
  EXPECT_THAT(cpu, SizeIs(4));
  EXPECT_THAT(cpu, Each(Ge(0.0f)));
  EXPECT_THAT(gpu, ElementsAre(0.0f, 0.0f, 0.0f, 0.0f));
}

TEST_F(NetTest, TimesAreThoseOfEachLayerInMilliseconds) {
  chain(3);
  kernel(1).run = [](const IKernel::Tensors& in, IKernel::Tensors& out, DeviceCPU&) {
    usleep(30000);
    out = in;
    return 0;
  };
  std::vector<float> cpu;
  run({{0, number(1.0f)}}, {2}, &cpu);
  ASSERT_THAT(cpu, SizeIs(3));
  EXPECT_GE(cpu[1], 29.0f);
  EXPECT_LT(cpu[1], 20000.0f);
}

TEST_F(NetTest, WithoutCpuTimesTheWallClockIsNotRead) {
  chain(5);
  const auto x = number(1.0f);
  std::vector<float> gpu;
  wall_clock_reads = 0;
  run({{0, x}}, {4}, nullptr, &gpu);
  EXPECT_EQ(wall_clock_reads, 0);
  std::vector<float> cpu;
  run({{0, x}}, {4}, &cpu);
  EXPECT_EQ(wall_clock_reads, 10);
}

TEST_F(NetTest, TraceOfAnInputWithoutConvertersReachesNoSink) {
  chain(1);
  utility::SetLogLevel(0xFFFFFFFF);
  std::vector<float> gpu;
  run({{0, number(1.0f)}}, {0}, nullptr, &gpu);
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_THAT(gpu, ElementsAre(0.0f));
}

TEST_F(NetTest, TransientIsTrueUnlessTheLayerIsRequestedAndHasNoOutputConverter) {
  chain(4);
  layers[2]->output_converters[0] = fake("out 2");
  layers[1]->output_converters[0] = fake("out 1");
  run({{0, number(1.0f)}}, {0, 2, 3});
  EXPECT_THAT(transient_flags(*calls, "0"), ElementsAre(false));
  EXPECT_THAT(transient_flags(*calls, "1"), ElementsAre(true));
  EXPECT_THAT(transient_flags(*calls, "2"), ElementsAre(true));
  EXPECT_THAT(transient_flags(*calls, "3"), ElementsAre(false));
  // An output converter gets the negation of `requested`.
  EXPECT_THAT(transient_flags(*calls, "out 1"), ElementsAre(true));
  EXPECT_THAT(transient_flags(*calls, "out 2"), ElementsAre(false));
}

TEST_F(NetTest, InputConvertersAlwaysGetTransientTrue) {
  chain(2);
  layers[1]->input_converters[0] = fake("in 1");
  run({{0, number(1.0f)}}, {0, 1});
  EXPECT_THAT(transient_flags(*calls, "in 1"), ElementsAre(true));
}

TEST_F(NetTest, ConverterOnInputPosition1LeavesPosition0Untouched) {
  const auto a = input();
  const auto b = input();
  add({a, b});
  auto converter = fake("converter");
  converter->addend = 1000.0f;
  layers[2]->input_converters[1] = converter;
  const auto x = number(1.0f);
  const auto y = number(2.0f);
  const auto result = run({{0, x}, {1, y}}, {2});
  EXPECT_EQ(first_of(result.at(2).at(0)), 1003.0f);
  EXPECT_EQ(first_of(y), 2.0f);
  const KernelCall& last = calls->back();
  ASSERT_THAT(last.inputs, SizeIs(2));
  EXPECT_NE(last.inputs[1], y.get());
}

TEST_F(NetTest, TwoConsumersEachSeeTheirOwnConvertedFormOfOneTensor) {
  input();
  add({0});
  add({1});
  add({1});
  add({2, 3});
  auto converter = fake("converter");
  converter->addend = 1000.0f;
  layers[2]->input_converters[0] = converter;
  const auto result = run({{0, number(1.0f)}}, {2, 3, 4});
  EXPECT_EQ(first_of(result.at(2).at(0)), 1001.0f);
  EXPECT_EQ(first_of(result.at(3).at(0)), 1.0f);
  EXPECT_EQ(first_of(result.at(4).at(0)), 1002.0f);
}

TEST_F(NetTest, ConvertersOfAnInputLayersInputAreNotConsulted) {
  input();
  layers[0]->input_converters[0] = fake("never");
  layers[0]->inputs.emplace_back(0, 0);
  const auto result = run({{0, number(4.0f)}}, {0});
  EXPECT_EQ(first_of(result.at(0).at(0)), 4.0f);
  EXPECT_THAT(ran(), ElementsAre("0"));
}

TEST_F(NetTest, OutputConverterOfAnInputLayerRuns) {
  chain(2);
  auto converter = fake("converter");
  converter->addend = 50.0f;
  layers[0]->output_converters[0] = converter;
  EXPECT_EQ(first_of(run({{0, number(4.0f)}}, {1}).at(1).at(0)), 54.0f);
}

TEST_F(NetTest, ConvertersBeyondTheLastPositionDoNotRun) {
  chain(2);
  layers[1]->input_converters[1] = fake("never");
  layers[1]->output_converters[1] = fake("never");
  run({{0, number(4.0f)}}, {1});
  EXPECT_THAT(ran(), ElementsAre("0", "1"));
}

TEST_F(NetTest, OutputConvertersServeChosenOutputs) {
  chain(2);
  kernel(1).run = [](const IKernel::Tensors&, IKernel::Tensors& out, DeviceCPU& device) {
    for (const float number : {1.0f, 2.0f, 3.0f}) {
      out.push_back(device.CreateF32CMainMemory(1, &number));
    }
    return 0;
  };
  auto converter = fake("converter");
  converter->addend = 10.0f;
  layers[1]->output_converters[1] = converter;
  const auto result = run({{0, number(0.0f)}}, {1});
  ASSERT_THAT(result.at(1), SizeIs(3));
  EXPECT_EQ(first_of(result.at(1)[0]), 1.0f);
  EXPECT_EQ(first_of(result.at(1)[1]), 12.0f);
  EXPECT_EQ(first_of(result.at(1)[2]), 3.0f);
}

TEST_F(NetTest, RequestedLayerWithAnOutputConverterReturnsTheConvertedTensor) {
  chain(2);
  auto converter = fake("converter");
  converter->addend = 10.0f;
  layers[1]->output_converters[0] = converter;
  {
    const auto result = run({{0, number(1.0f)}}, {1});
    EXPECT_EQ(first_of(result.at(1).at(0)), 11.0f);
    // The kernel's own tensor went back to the pool.
    EXPECT_EQ(counting.dynamic_pool->blocks_in_use(), 1u);
  }
  EXPECT_EQ(counting.dynamic_pool->blocks_in_use(), 0u);
}

TEST_F(NetTest, RepeatedOutputIdNeverLeavesPendingSoThatEveryLayerRuns) {
  chain(5);
  const auto result = run({{0, number(1.0f)}}, {1, 1});
  EXPECT_THAT(ran(), ElementsAre("0", "1", "2", "3", "4"));
  ASSERT_THAT(result, SizeIs(1));
  EXPECT_EQ(first_of(result.at(1).at(0)), 1.0f);
}

TEST_F(NetTest, OutputIdThatIsNotThereRunsEveryLayerAndTheMapHoldsWhatWasFound) {
  chain(3);
  const auto result = run({{0, number(1.0f)}}, {77, 1});
  EXPECT_THAT(ran(), SizeIs(3));
  EXPECT_THAT(result, ElementsAre(::testing::Key(1u)));
}

TEST_F(NetTest, OutputIdsMayStandInAnyOrder) {
  chain(4);
  const auto result = run({{0, number(1.0f)}}, {2, 0, 1});
  EXPECT_THAT(result, SizeIs(3));
  EXPECT_THAT(ran(), ElementsAre("0", "1", "2"));
}

TEST_F(NetTest, ResultsOfKernelsAreNotInspected) {
  chain(2);
  kernel(1).prepare_result = -1;
  kernel(1).run = [](const IKernel::Tensors& in, IKernel::Tensors& out, DeviceCPU&) {
    out = in;
    return -1;
  };
  EXPECT_EQ(first_of(run({{0, number(3.0f)}}, {1}).at(1).at(0)), 3.0f);
}

TEST_F(NetTest, MissingInputThrowsAndNamesTheLayer) {
  input();
  input();
  add({0, 1});
  EXPECT_THAT(failure_of([&] { run({{0, number(1.0f)}}, {2}); }), HasSubstr("layer 1"));
  EXPECT_THAT(failure_of([&] {
                run({{0, number(1.0f)}, {1, nullptr}}, {2});
              }),
              HasSubstr("layer 1"));
}

TEST_F(NetTest, InputThatThePassDoesNotReachNeedNotBeThere) {
  input();
  add({0});
  input();
  EXPECT_THAT(run({{0, number(1.0f)}}, {1}), SizeIs(1));
}

TEST_F(NetTest, KernelThatMakesNoOutputIsReportedWhereItIsRead) {
  chain(3);
  kernel(1).run = [](const IKernel::Tensors&, IKernel::Tensors&, DeviceCPU&) { return 0; };
  EXPECT_THAT(run({{0, number(1.0f)}}, {1}).at(1), IsEmpty());
  EXPECT_THAT(failure_of([&] {
                run({{0, number(1.0f)}}, {2});
              }),
              AllOf(HasSubstr("layer 2"), HasSubstr("layer 1")));
}

TEST_F(NetTest, ConverterThatMakesNothingThrowsAndNamesTheLayer) {
  chain(2);
  auto converter = fake("converter");
  converter->run = [](const IKernel::Tensors&, IKernel::Tensors&, DeviceCPU&) { return 0; };
  layers[1]->input_converters[0] = converter;
  EXPECT_THAT(failure_of([&] { run({{0, number(1.0f)}}, {1}); }), HasSubstr("layer 1"));
}

TEST_F(NetTest, EmptyKernelOrConverterThrowsAndNamesTheLayer) {
  chain(3);
  layers[2]->kernel = nullptr;
  EXPECT_THAT(failure_of([&] { run({{0, number(1.0f)}}, {2}); }), HasSubstr("layer 2"));
  layers[1]->output_converters[0] = nullptr;
  EXPECT_THAT(failure_of([&] { run({{0, number(1.0f)}}, {1}); }), HasSubstr("layer 1"));
}

TEST_F(NetTest, ANetMayRunAnyNumberOfTimes) {
  chain(3);
  const Net fixed = net();
  for (int pass = 0; pass < 10; ++pass) {
    const auto result = fixed.Forward({{0, number(static_cast<float>(pass))}}, {2},
                                      counting.context, nullptr, nullptr);
    EXPECT_EQ(first_of(result.at(2).at(0)), static_cast<float>(pass));
  }
}

TEST_F(NetTest, StateOfAKernelLastsFromPassToPassUntilItIsReset) {
  // A kernel with a hidden state, as recurrent ones have.
  class Recurrent final : public IKernel {
   public:
    std::string GetKernelName() override { return "Recurrent"; }
    bool Config(std::shared_ptr<LayerInfo>, std::shared_ptr<InferenceParam>,
                std::shared_ptr<Context>) override {
      return true;
    }
    int ResetState() override {
      hidden_ = 0.0f;
      return KERNEL_OK;
    }
    int CheckInputs(const Tensors&) override { return KERNEL_OK; }
    int Forward(const Tensors& in, Tensors& out, std::shared_ptr<Context> context) override {
      hidden_ = hidden_ / 2 + first_of(in[0]);
      out.push_back(context->cpu->CreateF32CMainMemory(1, &hidden_));
      return KERNEL_OK;
    }
    int CheckOutputs(const Tensors&) override { return KERNEL_OK; }

   private:
    float hidden_ = 0.0f;
  };
  chain(2);
  layers[1]->kernel = std::make_shared<Recurrent>();
  const auto pass = [this] { return first_of(run({{0, number(4.0f)}}, {1}).at(1).at(0)); };
  const float first = pass();
  EXPECT_NE(pass(), first);
  EXPECT_EQ(layers[1]->kernel->ResetState(), 0);
  EXPECT_EQ(pass(), first);
}

TEST_F(NetTest, EmptyNetReturnsNothing) { EXPECT_THAT(run({}, {0}), IsEmpty()); }

}  // namespace
}  // namespace marlo::test
