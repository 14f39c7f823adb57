#include "qrt_toolkit/explain/explain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "qrt_core/qrt_core.h"
#include "tests/support/model_builder.h"

namespace marlo::toolkit::test {
namespace {

using marlo::test::ModelBuilder;
using marlo::test::plane_convolution;
using marlo::test::ramp;
using ::testing::HasSubstr;

const runtime::KernelRegistry& all_kernels() {
  static const runtime::KernelRegistry kernels = [] {
    runtime::KernelRegistry made;
    runtime::InferenceParamRegistry params;
    utility::init_register_operators(made, params);
    return made;
  }();
  return kernels;
}

MachineLimits made_up_machine() {
  MachineLimits machine;
  machine.gigaflops.fill(1e6);
  machine.levels.resize(1);
  machine.levels[0].name = "memory";
  machine.levels[0].bandwidth.fill({1e6, 1e6});
  return machine;
}

std::shared_ptr<runtime::QRTModel> small_model() {
  auto info = plane_convolution(8, 8, 3, ramp(576, -0.5f, 0.002f), ramp(8));
  info.padding_l = info.padding_r = info.padding_t = info.padding_b = 1;
  return ModelBuilder()
      .input("x")
      .conv2d("c", "x", info)
      .output_converter("0", "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1")
      .activation("r", "c", "ReLU_Fallback_Float_M1")
      .input_converter("0", "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1")
      .straight_through("s", {"r"})
      .outputs({"s"})
      .build();
}

ExplainOptions quick_options(const MachineLimits& machine) {
  ExplainOptions options;
  options.inputs["x"] =
      runtime::TensorShape({8, 12, 10}, runtime::DataType::FLOAT32, runtime::LayoutType::CHW);
  options.passes_ms = 1;
  options.least_passes = 3;
  options.machine = &machine;
  return options;
}

TEST(Explain, EveryLayerAndConverterHasItsTimeAndItsWork) {
  const MachineLimits machine = made_up_machine();
  const Explanation all = explain_model(*small_model(), all_kernels(), quick_options(machine));
  ASSERT_EQ(all.layers.size(), 4u);
  EXPECT_GE(all.passes, 3u);
  EXPECT_TRUE(all.layers[0].is_input);
  EXPECT_TRUE(all.layers[3].is_output);
  const ExplainedLayer& conv = all.layers[1];
  EXPECT_EQ(conv.id, "c");
  EXPECT_EQ(conv.kind, "Conv2d");
  EXPECT_EQ(conv.kernel, "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1");
  EXPECT_EQ(conv.set, KernelSet::portable);
  EXPECT_GT(conv.ms, 0);
  EXPECT_EQ(conv.work.multiply_adds, uint64_t{8 * 8 * 9} * 12 * 10);
  EXPECT_EQ(conv.work.read, uint64_t{8} * 12 * 10 * sizeof(float));
  EXPECT_EQ(conv.work.written, conv.work.read);
  EXPECT_EQ(conv.work.weights, (576u + 8) * sizeof(float));
  EXPECT_GT(conv.roofline.gigaflops, 0);
  ASSERT_EQ(conv.converters.size(), 1u);
  EXPECT_EQ(conv.converters[0].role, "output 0");
  EXPECT_GT(conv.converters[0].ms, 0);
  EXPECT_EQ(all.layers[2].converters.at(0).kernel,
            "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1");
  EXPECT_EQ(all.layers[2].sources, std::vector<std::string>{"c"});
  // What hands its input on touches nothing.
  EXPECT_EQ(all.layers[3].work.read + all.layers[3].work.written, 0u);
  EXPECT_EQ(all.layers[3].roofline.bound, Bound::none);
}

TEST(Explain, TotalsAreTheSumsOfTheirParts) {
  const MachineLimits machine = made_up_machine();
  const Explanation all = explain_model(*small_model(), all_kernels(), quick_options(machine));
  double kernels = 0;
  double converters = 0;
  for (const ExplainedLayer& layer : all.layers) {
    kernels += layer.ms;
    for (const ExplainedConverter& converter : layer.converters) converters += converter.ms;
  }
  EXPECT_NEAR(all.kernels_ms, kernels, 1e-9);
  EXPECT_NEAR(all.converters_ms, converters, 1e-9);
  EXPECT_GT(all.pass_ms, 0);
  EXPECT_GE(all.engine_ms, 0);
  EXPECT_GE(all.engine_ms + kernels + converters, all.pass_ms - 1e-9);
  double kinds = 0;
  double before = 1e300;
  bool has_converters = false;
  for (const ExplainedKind& kind : all.kinds) {
    kinds += kind.ms;
    EXPECT_LE(kind.ms, before);
    before = kind.ms;
    if (kind.kind != "converter") continue;
    has_converters = true;
    EXPECT_EQ(kind.layers, 2u);
    EXPECT_NEAR(kind.ms, converters, 1e-9);
  }
  EXPECT_TRUE(has_converters);
  EXPECT_NEAR(kinds, kernels + converters, 1e-9);
}

TEST(Explain, ANetworkOfAnInputAloneIsExplainedToo) {
  const MachineLimits machine = made_up_machine();
  const auto model = ModelBuilder().input("x").outputs({"x"}).build();
  const Explanation all = explain_model(*model, all_kernels(), quick_options(machine));
  ASSERT_EQ(all.layers.size(), 1u);
  EXPECT_TRUE(all.layers[0].is_input);
  EXPECT_EQ(all.limit_ms, 0);
}

TEST(Explain, LayersThatNobodyNeedsDoNothing) {
  const MachineLimits machine = made_up_machine();
  const auto model = ModelBuilder()
                         .input("x")
                         .activation("r", "x", "ReLU_Fallback_Float_M1")
                         .conv2d("idle", "r", plane_convolution(8, 8, 1, ramp(64), ramp(8)))
                         .outputs({"r"})
                         .build();
  const Explanation all = explain_model(*model, all_kernels(), quick_options(machine));
  EXPECT_EQ(all.layers[2].id, "idle");
  EXPECT_EQ(all.layers[2].ms, 0);
  EXPECT_EQ(all.layers[2].roofline.limit_ms, 0);
}

TEST(Explain, SaysWhatIsMissing) {
  const MachineLimits machine = made_up_machine();
  const auto fault = [&](const runtime::QRTModel& model, const ExplainOptions& options) {
    try {
      explain_model(model, all_kernels(), options);
    } catch (const std::invalid_argument& failure) {
      return std::string(failure.what());
    }
    return std::string("nothing");
  };
  ExplainOptions options = quick_options(machine);
  options.inputs.clear();
  EXPECT_THAT(fault(*small_model(), options), HasSubstr("the shape of input \"x\" isn't known"));
  options = quick_options(machine);
  options.network = "other";
  EXPECT_THAT(fault(*small_model(), options), HasSubstr("other"));
  const auto mute = ModelBuilder().input("x").build();
  EXPECT_THAT(fault(*mute, quick_options(machine)), HasSubstr("returns nothing"));
}

TEST(Explain, EndsWhenItIsTold) {
  const MachineLimits machine = made_up_machine();
  ExplainOptions options = quick_options(machine);
  options.go_on = [](const ExplainProgress& now) { return now.steps < 1; };
  EXPECT_TRUE(explain_model(*small_model(), all_kernels(), options).layers.empty());
}

}  // namespace
}  // namespace marlo::toolkit::test
