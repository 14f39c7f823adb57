#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "qrt_core/qrt_core.h"
#include "qrt_core/runtime/engine/kernel_copy.h"
#include "qrt_core/runtime/tensor/weight_pool.h"
#include "tests/support/fake_kernel.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/support/recurrent_case.h"
#include "tests/support/sanitizer.h"
#include "tests/support/temporary_folder.h"

namespace marlo::test {

using namespace utility;

namespace {

using ::testing::HasSubstr;

std::vector<float> numbers_of(const Results& results) {
  const auto numbers = results[0].elements();
  return {numbers.begin(), numbers.end()};
}

class ModelCloneTest : public ::testing::Test {
 protected:
  Model opened(const test::ModelBuilder& model, const ModelOptions& options = {}) {
    return Model(model.save(folder_.file("m.json")), options);
  }

  test::TemporaryFolder folder_;
};

// 256 x 256 windows: 256 KiB of weights.
test::ModelBuilder heavy_model() {
  test::ModelBuilder model;
  const std::vector<float> weights = test::ramp(256 * 256, -0.5f, 1e-5f);
  model.input("x").conv2d("y", "x", test::plane_convolution(256, 256, 1, weights, {}));
  return model.outputs({"y"});
}

test::RecurrentCase recurrent_case() {
  test::RecurrentCase layer;
  layer.network = test::Network::lstm;
  layer.ins = 3;
  layer.hidden = 4;
  layer.layers = 2;
  layer.fill(1);
  return layer;
}

test::ModelBuilder recurrent_model(const std::string& kernel) {
  test::ModelBuilder model;
  model.input("steps").layer("lstm", {"steps"}, test::sequence_description(recurrent_case()),
                             kernel);
  return model.outputs({"lstm"});
}

TEST_F(ModelCloneTest, ComputesTheSameWithoutWeightsOfItsOwn) {
  Model model = opened(heavy_model());
  Model clone = model.clone();
  const std::vector<float> x = test::ramp(256, -1.0f, 0.01f);
  EXPECT_EQ(clone.ids(), model.ids());
  EXPECT_EQ(numbers_of(clone.run({{256, 1, 1}, x})), numbers_of(model.run({{256, 1, 1}, x})));
  const auto& first = model.at(size_t{0});
  const auto& second = clone.at(size_t{0});
  EXPECT_NE(first.context(), second.context());
  EXPECT_NE(first.net(), second.net());
  EXPECT_NE(first.net()->layers[1]->kernel, second.net()->layers[1]->kernel);
  for (const auto* network : {&first, &second}) {
    EXPECT_LT(network->context()->cpu->static_pool->TotalBytes(), 64u << 10);
  }
}

TEST_F(ModelCloneTest, OutlivesTheOriginalAndItsOtherClones) {
  std::optional<Model> model = opened(heavy_model());
  const std::vector<float> x = test::ramp(256, -1.0f, 0.01f);
  const std::vector<float> expected = numbers_of(model->run({{256, 1, 1}, x}));
  std::optional<Model> first = model->clone();
  std::optional<Model> second = first->clone();
  model.reset();
  EXPECT_EQ(numbers_of(first->run({{256, 1, 1}, x})), expected);
  first.reset();
  const Results results = second->run({{256, 1, 1}, x});
  second.reset();
  EXPECT_EQ(numbers_of(results), expected);
}

TEST_F(ModelCloneTest, HasStatesOfItsOwnThatBeginAnew) {
  const test::RecurrentCase layer = recurrent_case();
  const std::vector<float> x = test::ramp(size_t{layer.steps} * layer.ins, -0.5f, 0.1f);
  const Input input({{layer.steps, layer.ins}, runtime::DataType::FLOAT32, runtime::LayoutType::SC},
                    x.data());
  for (const char* kernel : {"LSTM_Fallback_SC_F32_M1", "LSTM_FMA_SC_F32_M1"}) {
    if (!test::why_not_here(kernel).empty()) continue;
    SCOPED_TRACE(kernel);
    Model model = opened(recurrent_model(kernel));
    const std::vector<float> first = numbers_of(model.run(input));
    Model clone = model.clone();
    EXPECT_EQ(numbers_of(clone.run(input)), first);
    const std::vector<float> second = numbers_of(model.run(input));
    EXPECT_NE(second, first);
    EXPECT_EQ(numbers_of(clone.run(input)), second);
    clone.reset();
    EXPECT_EQ(numbers_of(clone.run(input)), first);
    EXPECT_NE(numbers_of(model.run(input)), first);
  }
}

TEST_F(ModelCloneTest, CopiesOfALayerGoOnSharingAKernel) {
  test::ModelBuilder builder = heavy_model();
  std::shared_ptr<runtime::Context> context;
  create_context(context, 32);
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  init_register_operators(kernels, params);
  const auto net = runtime::CreateNet(builder.info(), builder.configuration(), kernels, context);
  net->layers.push_back(std::make_shared<runtime::Layer>(*net->layers[1]));
  const auto clone = net->clone(context);
  EXPECT_EQ(clone->layers[1]->kernel, clone->layers[2]->kernel);
  EXPECT_NE(clone->layers[1]->kernel, net->layers[1]->kernel);
  EXPECT_THROW((void)net->clone(nullptr), Error);
}

TEST_F(ModelCloneTest, AKernelOfTheApplicationThatCantBeCopiedIsNamed) {
  runtime::KernelRegistry own;
  const auto calls = std::make_shared<test::KernelCalls>();
  own.Register(
      "ReLU_Fallback_Float_M1",
      [calls] { return std::make_shared<test::FakeKernel>("Own", calls); }, true);
  test::ModelBuilder builder;
  builder.input("x").activation("y", "x", "ReLU_Fallback_Float_M1").outputs({"y"});
  ModelOptions options;
  options.kernels = &own;
  const Model model = opened(builder, options);
  try {
    (void)model.clone();
    FAIL() << "nothing was thrown";
  } catch (const Error& failure) {
    ASSERT_NE(failure.layer(), nullptr);
    EXPECT_EQ(failure.layer()->id, "y");
    EXPECT_THAT(failure.story(), HasSubstr("can't be copied: it doesn't implement IKernelCopy"));
  }
}

TEST(WeightPoolTest, GivesEveryBlockBackAtOnce) {
  runtime::WeightPool pool(64);
  EXPECT_EQ(pool.TotalBytes(), 0u);
  void* const block = pool.Allocate(1000);
  void* const nothing = pool.Allocate(0);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 64, 0u);
  EXPECT_NE(nothing, nullptr);
  EXPECT_GE(pool.TotalBytes(), 1000u);
  pool.Free(block);
  pool.Free(nothing);
  pool.Free(nullptr);
  EXPECT_EQ(pool.TotalBytes(), 0u);
  for (const size_t alignment : {size_t{64}, size_t{1} << 16}) {
    runtime::WeightPool of_pages(alignment);
    auto* const large = static_cast<char*>(of_pages.Allocate(1000001));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(large) % alignment, 0u);
    large[0] = large[1000000] = 1;
    EXPECT_GE(of_pages.TotalBytes(), 1000001u);
    of_pages.Free(large);
    EXPECT_EQ(of_pages.TotalBytes(), 0u);
#ifndef QRT_UNDER_SANITIZER  // whose allocator ends the process
    EXPECT_THROW((void)of_pages.Allocate(uint64_t{1} << 60), std::bad_alloc);
#endif
  }
  EXPECT_THROW((void)pool.Allocate(~uint64_t{0}), std::bad_alloc);
  EXPECT_THROW(runtime::WeightPool(48), std::runtime_error);
}

TEST(WeightPoolTest, KeepsAFreeBlockWhileWeightsAreMade) {
  constexpr size_t kLarge = size_t{1} << 20;
  runtime::WeightPool pool(64);
  pool.KeepFreeBlock();
  pool.Free(pool.Allocate(kLarge));
  EXPECT_EQ(pool.TotalBytes(), 0u);
#ifndef QRT_UNDER_SANITIZER  // where blocks come from the allocator that it watches
  auto* const half = static_cast<char*>(pool.Allocate(kLarge / 2));
  half[kLarge - 1] = 1;
  EXPECT_EQ(pool.TotalBytes(), kLarge) << "all of a block that is larger";
  pool.ReleaseFreeBlocks();
  EXPECT_EQ(pool.TotalBytes(), kLarge / 2);
  half[kLarge / 2 - 1] = 1;
  pool.Free(half);
#endif
  EXPECT_EQ(pool.TotalBytes(), 0u);
  pool.KeepFreeBlock();
  pool.Free(pool.Allocate(8 * kLarge));
  void* const small = pool.Allocate(kLarge);
  EXPECT_LT(pool.TotalBytes(), 2 * kLarge) << "one that is far too large waits";
  pool.Free(small);
  EXPECT_EQ(pool.TotalBytes(), 0u);
}

}  // namespace
}  // namespace marlo::test
