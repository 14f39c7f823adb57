// What an application learns from a network that can't be built or run.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <new>
#include <stdexcept>

#include "qrt_core/qrt_core.h"
#include "qrt_core/runtime/engine/kernel_facts.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/model_builder.h"
#include "tests/support/net_maker.h"
#include "tests/support/temporary_folder.h"

namespace marlo::test {

using namespace runtime;

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using utility::Error;
using utility::LayerFault;

/// The error that `call` throws, if it throws one of ours.
template <typename Call>
Error error_of(Call call) {
  try {
    call();
  } catch (const Error& failure) {
    return failure;
  }
  ADD_FAILURE() << "no Error was thrown";
  return Error("");
}

std::shared_ptr<LayerInfo> rectifier() { return std::make_shared<ActivationInfo>(); }

/// A kernel that gives reasons and refuses everything.
class Grumbler final : public IKernel, public IKernelFacts {
 public:
  explicit Grumbler(bool configures) : configures_(configures) {}

  std::string GetKernelName() override { return "Grumbler"; }
  bool Config(std::shared_ptr<LayerInfo>, std::shared_ptr<InferenceParam>,
              std::shared_ptr<Context>) override {
    return configures_;
  }
  int CheckInputs(const Tensors&) override { return KERNEL_BAD_TENSOR; }
  int CheckOutputs(const Tensors&) override { return KERNEL_BAD_TENSOR; }
  int Forward(const Tensors&, Tensors&, std::shared_ptr<Context>) override {
    utility::Assert(false, "Grumbler: the input is of no use");
    return KERNEL_REFUSED;
  }
  InstructionSet needs() const override { return InstructionSet::baseline; }
  InputUse input_use() const override { return InputUse::reads; }
  std::vector<Misfit> refusals(const LayerInfo*, const InferenceParam*) const override {
    return {{"stride_x", "2", "1"}};
  }
  std::vector<Misfit> input_refusals(const std::vector<TensorShape>& inputs) const override {
    return {{"input 0", "nothing", ShapesText(inputs)}};
  }
  std::vector<Misfit> differences(const LayerInfo&,
                                  const std::vector<TensorShape>&) const override {
    return {};
  }

 private:
  bool configures_;
};

class NetFailureTest : public NetMaker, public ::testing::Test {
 protected:
  NetFailureTest() {
    fakes_.add("in").add("a").add("refuser", [](test::FakeKernel& k) { k.refuses = true; });
    fakes_.kernels.Register(
        "Grumbler", [] { return std::make_shared<Grumbler>(false); }, false);
    fakes_.kernels.Register(
        "GrumblerLater", [] { return std::make_shared<Grumbler>(true); }, false);
  }

  std::shared_ptr<Net> create(ModelBuilder& model) {
    return CreateNet(model.info(), model.configuration(), fakes_.kernels, counting.context);
  }

  FakeRegistry fakes_;
  test::LogCapture log_;
};

// --- building ---

TEST_F(NetFailureTest, ARefusedLayerTellsItsPlaceAndTheReasonsWhileItsTextStaysTheTag) {
  auto model = ModelBuilder().input("x", "in").layer("p", {"x"}, rectifier(), "Grumbler");
  const Error failure = error_of([&] { create(model); });
  EXPECT_STREQ(failure.what(), "[QRT]: ");
  ASSERT_NE(failure.layer(), nullptr);
  EXPECT_EQ(failure.layer()->layer, 1u);
  EXPECT_EQ(failure.layer()->id, "p");
  EXPECT_EQ(failure.layer()->kind, "Activation");
  EXPECT_EQ(failure.layer()->kernel, "Grumbler");
  ASSERT_THAT(failure.layer()->misfits, SizeIs(1));
  EXPECT_EQ(failure.story(),
            "layer 1 \"p\" (Activation), kernel Grumbler: refuses the layer\n"
            "  stride_x: expected 2, found 1");
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(NetFailureTest, AKernelWithoutReasonsIsNamedAllTheSame) {
  auto model = ModelBuilder().input("x", "in").layer("p", {"x"}, rectifier(), "refuser");
  EXPECT_EQ(error_of([&] { create(model); }).story(),
            "layer 1 \"p\" (Activation), kernel refuser: refuses the layer");
}

TEST_F(NetFailureTest, FaultsWithATextCarryTheLayerAsWell) {
  auto unknown = ModelBuilder().input("x", "in").layer("p", {"x"}, rectifier(), "nobody");
  EXPECT_EQ(error_of([&] { create(unknown); }).layer()->kernel, "nobody");
  auto early = ModelBuilder()
                   .input("x", "in")
                   .layer("p", {"q"}, rectifier(), "a")
                   .layer("q", {"x"}, rectifier(), "a");
  const Error failure = error_of([&] { create(early); });
  ASSERT_NE(failure.layer(), nullptr);
  EXPECT_EQ(failure.layer()->id, "p");
  EXPECT_THAT(failure.story(), HasSubstr("does not stand before it"));
}

TEST_F(NetFailureTest, LoadModelAddsTheNetwork) {
  test::TemporaryFolder folder;
  const std::string path = ModelBuilder()
                               .network("second")
                               .input("x", "in")
                               .layer("p", {"x"}, rectifier(), "Grumbler")
                               .save(folder.file("m.json"));
  std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
  InferenceParamRegistry params;
  const Error failure = error_of([&] {
    (void)utility::load_model(path, nets, counting.context, fakes_.kernels, params, "sdk", 1, 0);
  });
  EXPECT_EQ(failure.network(), "second");
  EXPECT_THAT(failure.story(), ::testing::StartsWith("network \"second\", layer 1 \"p\""));
}

TEST_F(NetFailureTest, NullArgumentsOfCreateNetAreNamed) {
  auto model = ModelBuilder().input("x", "in");
  EXPECT_THAT(
      failure_of([&] { CreateNet(model.info(), model.configuration(), fakes_.kernels, nullptr); }),
      HasSubstr("a network needs a context with a CPU device"));
  EXPECT_THAT(failure_of([&] {
                CreateNet(model.info(), model.inference_configuration(), fakes_.kernels,
                          std::make_shared<Context>());
              }),
              HasSubstr("a network needs a context with a CPU device"));
}

TEST_F(NetFailureTest, WeightsGoToTheStaticPoolAlsoAfterAPassThatFailed) {
  chain(2);
  kernel(1).run = [](const IKernel::Tensors&, IKernel::Tensors&, DeviceCPU&) -> int {
    throw std::runtime_error("no");
  };
  EXPECT_NE(failure_of([&] { run({{0, number(1.0f)}}, {1}); }), "");
  ASSERT_TRUE(counting.device().dynamic_mode);
  const size_t before = counting.dynamic_pool->allocations();
  auto model = ModelBuilder()
                   .input("x", "Input_Fallback_M1")
                   .conv2d("c", "x", test::plane_convolution(1, 1, 1, {3.0f}));
  CreateNet(model.info(), model.configuration(), test::all_kernels(), counting.context);
  EXPECT_EQ(counting.dynamic_pool->allocations(), before);
  EXPECT_TRUE(counting.device().dynamic_mode);  // as it was found

  auto refused = ModelBuilder().input("x", "in").layer("p", {"x"}, rectifier(), "refuser");
  EXPECT_NE(failure_of([&] { create(refused); }), "");
  EXPECT_TRUE(counting.device().dynamic_mode);
}

// --- a layer that is listed often ---

TEST_F(NetFailureTest, CopiesOfALayerShareTheirWeights) {
  const std::vector<float> weights(64 * 64, 1.0f);
  const auto bytes_of = [&](size_t copies) {
    auto model = ModelBuilder()
                     .input("x", "Input_Fallback_M1")
                     .conv2d("c", "x", test::plane_convolution(64, 64, 1, weights));
    model.info()->squential_ids.insert(model.info()->squential_ids.end(), copies - 1, "c");
    model.info()->squential_types.insert(model.info()->squential_types.end(), copies - 1, 2);
    test::CountingContext fresh;
    const auto net =
        CreateNet(model.info(), model.configuration(), test::all_kernels(), fresh.context);
    EXPECT_EQ(net->layers.size(), copies + 1);
    EXPECT_EQ(net->layers.back()->kernel, net->layers[1]->kernel);
    return fresh.static_pool->TotalBytes();
  };
  EXPECT_EQ(bytes_of(2), bytes_of(50000));
}

TEST_F(NetFailureTest, CopiesWithAStateAreKernelsOfTheirOwnUpToABound) {
  class Stateful final : public IKernel {
   public:
    std::string GetKernelName() override { return "Stateful"; }
    bool Config(std::shared_ptr<LayerInfo>, std::shared_ptr<InferenceParam>,
                std::shared_ptr<Context>) override {
      return true;
    }
    int ResetState() override { return KERNEL_OK; }
    int CheckInputs(const Tensors&) override { return KERNEL_OK; }
    int CheckOutputs(const Tensors&) override { return KERNEL_OK; }
    int Forward(const Tensors& in, Tensors& out, std::shared_ptr<Context>) override {
      out = in;
      return KERNEL_OK;
    }
  };
  fakes_.kernels.Register(
      "Stateful", [] { return std::make_shared<Stateful>(); }, false);
  const auto with_copies = [&](size_t copies) {
    auto model = ModelBuilder().input("x", "in").layer("s", {"x"}, rectifier(), "Stateful");
    model.info()->squential_ids.insert(model.info()->squential_ids.end(), copies - 1, "s");
    model.info()->squential_types.insert(model.info()->squential_types.end(), copies - 1, 1);
    return create(model);
  };
  const auto net = with_copies(16);
  EXPECT_NE(net->layers[1]->kernel, net->layers[2]->kernel);
  EXPECT_THAT(failure_of([&] { with_copies(100); }),
              HasSubstr("has a kernel with a state and is listed more than 16 times"));
}

// --- a pass ---

TEST_F(NetFailureTest, AFaultInAPassCarriesTheLayerAndKeepsItsText) {
  auto model = ModelBuilder().input("x", "in").layer("p", {"x"}, rectifier(), "GrumblerLater");
  const auto net = create(model);
  const float x = 1.0f;
  const Error failure = error_of([&] {
    net->Forward({{0, counting.device().CreateF32CMainMemory(1, &x)}}, {1}, counting.context,
                 nullptr, nullptr);
  });
  EXPECT_STREQ(failure.what(), "[QRT]: Grumbler: the input is of no use\n");
  EXPECT_EQ(failure.story(),
            "layer 1 \"p\" (Activation), kernel Grumbler: the input is of no use\n"
            "  input 0: expected nothing, found FLOAT32 C [1]");
}

TEST_F(NetFailureTest, ARunTimeErrorOfAKernelGetsAPlaceToo) {
  chain(3);
  kernel(2).run = [](const IKernel::Tensors&, IKernel::Tensors&, DeviceCPU&) -> int {
    throw std::runtime_error("my own words");
  };
  const Error failure = error_of([&] { run({{0, number(1.0f)}}, {2}); });
  EXPECT_STREQ(failure.what(), "my own words");
  EXPECT_EQ(failure.story(),
            "layer 2 (Activation), kernel 2: my own words\n  inputs: found FLOAT32 C [1]");
}

TEST_F(NetFailureTest, OtherExceptionsStayWhatTheyAre) {
  struct Mine : std::runtime_error {
    using std::runtime_error::runtime_error;
  };
  chain(2);
  kernel(1).run = [](const IKernel::Tensors&, IKernel::Tensors&, DeviceCPU&) -> int {
    throw Mine("mine");
  };
  EXPECT_THROW(run({{0, number(1.0f)}}, {1}), Mine);
  kernel(1).run = [](const IKernel::Tensors&, IKernel::Tensors&, DeviceCPU&) -> int {
    throw std::bad_alloc();
  };
  EXPECT_THROW(run({{0, number(1.0f)}}, {1}), std::bad_alloc);
}

TEST_F(NetFailureTest, ConvertersAreNamedByTheirPlace) {
  chain(2);
  const auto converter = fake("converter");
  converter->run = [](const IKernel::Tensors&, IKernel::Tensors&, DeviceCPU&) -> int {
    throw std::runtime_error("can't");
  };
  layers[1]->input_converters[0] = converter;
  const Error failure = error_of([&] { run({{0, number(1.0f)}}, {1}); });
  EXPECT_EQ(failure.layer()->role, "input converter 0");
  EXPECT_EQ(failure.layer()->kernel, "converter");
}

TEST_F(NetFailureTest, AKernelThatIsMissingTellsWhy) {
  auto model = ModelBuilder().input("x", "in").layer("p", {"x"}, rectifier(), "Grumbler");
  const auto net =
      CreateNet(model.info(), model.inference_configuration(), fakes_.kernels, counting.context);
  const float x = 1.0f;
  const Error failure = error_of([&] {
    net->Forward({{0, counting.device().CreateF32CMainMemory(1, &x)}}, {1}, counting.context,
                 nullptr, nullptr);
  });
  EXPECT_THAT(failure.story(),
              AllOf(HasSubstr("kernel Grumbler"), HasSubstr("stride_x: expected 2, found 1")));
}

TEST_F(NetFailureTest, NullArgumentsOfAPassAreNamed) {
  chain(2);
  const auto x = number(1.0f);
  EXPECT_THAT(failure_of([&] {
                net().Forward({{0, x}}, {1}, nullptr, nullptr, nullptr);
              }),
              HasSubstr("a pass needs a context with a CPU device"));
  EXPECT_THAT(failure_of([&] {
                net().Forward({{0, x}}, {1}, std::make_shared<Context>(), nullptr, nullptr);
              }),
              HasSubstr("a pass needs a context with a CPU device"));
  layers[1].reset();
  EXPECT_THAT(failure_of([&] {
                run({{0, x}}, {1});
              }),
              HasSubstr("layer 1 of the network is a null pointer"));
}

// --- many readers ---

double seconds_of(const std::function<void()>& call) {
  const auto start = std::chrono::steady_clock::now();
  call();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Ran for 39 s when every release went through all readers once per input.
TEST_F(NetFailureTest, ALayerOf250000InputsTakesTimeInProportion) {
  input();
  add({0});
  add(std::vector<uint32_t>(250000, 1));
  kernel(2).run = [](const IKernel::Tensors& in, IKernel::Tensors& out, DeviceCPU&) {
    out.push_back(in[0]);
    return 0;
  };
  EXPECT_LT(seconds_of([&] { run({{0, number(1.0f)}}, {2}); }), 2.0);
}

TEST_F(NetFailureTest, AResultWithManyReadersTakesTimeInProportion) {
  input();
  add({0});
  for (int i = 0; i < 40000; ++i) add({1});
  for (auto& layer : layers) {
    static_cast<test::FakeKernel&>(*layer->kernel).run = [](const IKernel::Tensors& in,
                                                            IKernel::Tensors& out, DeviceCPU&) {
      out.push_back(in[0]);
      return 0;
    };
  }
  EXPECT_LT(seconds_of([&] { run({{0, number(1.0f)}}, {40001}); }), 2.0);
}

}  // namespace
}  // namespace marlo::test
