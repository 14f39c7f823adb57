#include "qrt_toolkit/explain/explain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "qrt_core/qrt_core.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/support/temporary_folder.h"

#if QRT_WITH_SSE

namespace marlo::toolkit::test {
namespace {

using marlo::test::documented_kernels;
using marlo::test::ModelBuilder;
using marlo::test::plane_convolution;
using marlo::test::ramp;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

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
  options.with_candidates = false;
  return options;
}

/// Times by what kernels need and the layout that they read, always the same.
class RecordedMeter final : public Meter {
 public:
  std::vector<double> time_work(const std::vector<Work>& rivals) override {
    std::vector<double> times;
    for (const Work& work : rivals) {
      const double vectors = work.set == KernelSet::portable ? 1 : 4;
      times.push_back(
          work.info == nullptr ? 0.25 : 8 / vectors / runtime::BlockSize(work.inputs[0].layout));
      asked.push_back(work.kernel);
    }
    return times;
  }
  std::vector<double> time_passes(const std::vector<const runtime::QRTModel*>& models,
                                  const std::string&,
                                  const std::map<std::string, runtime::TensorShape>&) override {
    return std::vector<double>(models.size(), 1);
  }

  std::vector<std::string> asked;
};

ExplainedLayer explained_convolution(ExplainOptions options, Meter& meter) {
  options.with_candidates = true;
  options.meter = &meter;
  return explain_model(*small_model(), documented_kernels(), options).layers.at(1);
}

const ExplainedRefusal* refusal_of(const ExplainedLayer& layer, const std::string& kernel) {
  for (const ExplainedRefusal& refusal : layer.refusals) {
    if (refusal.kernel == kernel) return &refusal;
  }
  return nullptr;
}

TEST(Explain, EveryLayerAndConverterHasItsTimeAndItsWork) {
  const MachineLimits machine = made_up_machine();
  const Explanation all =
      explain_model(*small_model(), documented_kernels(), quick_options(machine));
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
  EXPECT_GE(conv.converters[0].ms, 0) << "what a stopwatch costs may be all of it";
  EXPECT_EQ(all.layers[2].converters.at(0).kernel,
            "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1");
  EXPECT_EQ(all.layers[2].sources, std::vector<std::string>{"c"});
  // What hands its input on touches nothing.
  EXPECT_EQ(all.layers[3].work.read + all.layers[3].work.written, 0u);
  EXPECT_EQ(all.layers[3].roofline.bound, Bound::none);
}

TEST(Explain, TotalsAreTheSumsOfTheirParts) {
  const MachineLimits machine = made_up_machine();
  const Explanation all =
      explain_model(*small_model(), documented_kernels(), quick_options(machine));
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
  const Explanation all = explain_model(*model, documented_kernels(), quick_options(machine));
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
  const Explanation all = explain_model(*model, documented_kernels(), quick_options(machine));
  EXPECT_EQ(all.layers[2].id, "idle");
  EXPECT_EQ(all.layers[2].ms, 0);
  EXPECT_EQ(all.layers[2].roofline.limit_ms, 0);
}

TEST(Explain, CandidatesAreComparedWithTheChosenKernel) {
  const MachineLimits machine = made_up_machine();
  RecordedMeter meter;
  const ExplainedLayer conv = explained_convolution(quick_options(machine), meter);
  ASSERT_NE(chosen_of(conv), nullptr);
  EXPECT_EQ(chosen_of(conv)->kernel, conv.kernel);
  EXPECT_EQ(chosen_of(conv)->ms, 8);
  EXPECT_TRUE(chosen_of(conv)->is_measured);
  // The engine's own converter behind it.
  EXPECT_EQ(chosen_of(conv)->converters_ms, 0.25);
  const ExplainedCandidate* second = second_of(conv);
  ASSERT_NE(second, nullptr);
  EXPECT_FALSE(second->is_chosen);
  EXPECT_LT(second->whole_ms(), 8);
  EXPECT_LT(second->difference, 1e-4);
  double before = 0;
  bool has_converted = false;
  for (const ExplainedCandidate& candidate : conv.candidates) {
    EXPECT_GE(candidate.whole_ms(), before);
    before = candidate.whole_ms();
    EXPECT_EQ(refusal_of(conv, candidate.kernel), nullptr) << candidate.kernel;
    EXPECT_LE(candidate.set, KernelSet::sse);
    if (candidate.inputs.at(0).layout == runtime::LayoutType::CHW) continue;
    // A converter of the input. The result is handed on in blocks of 8 channels.
    const bool is_handed_on = candidate.output.layout == runtime::LayoutType::C8HW8;
    EXPECT_EQ(candidate.converters_ms, is_handed_on ? 0.25 : 0.5) << candidate.kernel;
    has_converted = true;
  }
  EXPECT_TRUE(has_converted);
}

TEST(Explain, ConvertersAreCountedFromWhatIsHandedOn) {
  const MachineLimits machine = made_up_machine();
  RecordedMeter meter;
  ExplainOptions options = quick_options(machine);
  options.with_candidates = true;
  options.meter = &meter;
  const ExplainedLayer r =
      explain_model(*small_model(), documented_kernels(), options).layers.at(2);
  // It gets blocks of 8 channels and gives planes, by one converter before or behind it.
  ASSERT_NE(chosen_of(r), nullptr);
  EXPECT_EQ(chosen_of(r)->kernel, r.kernel);
  EXPECT_GT(r.candidates.size(), 1u);
  EXPECT_EQ(chosen_of(r)->converters_ms, 0.25);
  for (const ExplainedCandidate& candidate : r.candidates) {
    const bool is_other = candidate.output.layout == runtime::LayoutType::C4HW4;
    EXPECT_EQ(candidate.converters_ms, is_other ? 0.5 : 0.25) << candidate.kernel;
  }
}

TEST(Explain, TheChosenKernelIsThereThoughItsConverterMayNotBeChosen) {
  const MachineLimits machine = made_up_machine();
  RecordedMeter meter;
  ExplainOptions options = quick_options(machine);
  options.with_candidates = true;
  options.meter = &meter;
  options.set = KernelSet::portable;
  const auto model =
      ModelBuilder()
          .input("x")
          .conv2d("c", "x", plane_convolution(8, 8, 1, ramp(64), ramp(8)))
          .output_converter("0", "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1")
          .outputs({"c"})
          .build();
  const ExplainedLayer conv = explain_model(*model, documented_kernels(), options).layers.at(1);
  ASSERT_NE(chosen_of(conv), nullptr);
  EXPECT_EQ(chosen_of(conv)->kernel, conv.kernel);
  // Its converter can't be measured here, but it has run within passes.
  EXPECT_EQ(chosen_of(conv)->converters_ms, conv.converters.at(0).ms);
  EXPECT_EQ(refusal_of(conv, conv.kernel), nullptr);
  EXPECT_EQ(std::count_if(conv.candidates.begin(), conv.candidates.end(),
                          [](const ExplainedCandidate& c) { return c.is_chosen; }),
            1);
}

TEST(Explain, PassesThatCantBeFollowedHaveTheirTimesAllTheSame) {
  const MachineLimits machine = made_up_machine();
  ExplainOptions options = quick_options(machine);
  options.with_candidates = true;
  const auto model = ModelBuilder()
                         .input("x")
                         .activation("r", "x", "ReLU_Fallback_Float_M1")
                         .conv2d("idle", "r", plane_convolution(16, 8, 1, ramp(128), ramp(8)))
                         .outputs({"r"})
                         .build();
  const Explanation all = explain_model(*model, documented_kernels(), options);
  EXPECT_EQ(all.layers.size(), 3u);
  EXPECT_GT(all.pass_ms, 0);
  EXPECT_FALSE(all.is_complete);
  EXPECT_THAT(all.notes, ElementsAre(HasSubstr("no candidates: layer \"idle\"")));
}

TEST(Explain, AConverterThatRefusedItsPlaceIsAFailureOfThePass) {
  const MachineLimits machine = made_up_machine();
  const auto model = ModelBuilder()
                         .input("x")
                         .activation("r", "x", "ReLU_Fallback_Float_M1")
                         .input_converter("0", "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1")
                         .outputs({"r"})
                         .build();
  EXPECT_THROW(explain_model(*model, documented_kernels(), quick_options(machine)), utility::Error);
}

#if QRT_WITH_EXTENSIONS && QRT_WITH_AVX
TEST(Explain, KernelsThatApplyWhatTheLayerBehindDoesSayThatBothWouldHaveToChange) {
  const std::string fused = "Conv2d_K3x3_S1x1_D1x1_G1_FMA_C8HW8_FLOAT_ReLU_M1";
  QRT_SKIP_WHERE_MISSING(fused);
  const MachineLimits machine = made_up_machine();
  RecordedMeter meter;
  ExplainOptions options = quick_options(machine);
  options.with_candidates = true;
  options.meter = &meter;
  options.set = KernelSet::fma;
  auto info = plane_convolution(8, 8, 3, ramp(576, -0.5f, 0.002f), ramp(8, -1.0f, 0.25f));
  info.padding_l = info.padding_r = info.padding_t = info.padding_b = 1;
  const std::string both = ": both would have to change; `qrt tune` weighs such pairs";
  const auto reasons = [](const ExplainedLayer& layer, const std::string& kernel) {
    const ExplainedRefusal* refusal = refusal_of(layer, kernel);
    return refusal == nullptr ? std::vector<std::string>{} : refusal->reasons;
  };
  const auto model = ModelBuilder()
                         .input("x")
                         .conv2d("c", "x", info)
                         .activation("r", "c", "ReLU_Fallback_Float_M1")
                         .outputs({"r"})
                         .build();
  Explanation all = explain_model(*model, marlo::test::all_kernels(), options);
  EXPECT_THAT(reasons(all.layers.at(1), fused),
              ElementsAre("applies ReLU, which the layer behind does" + both));
  EXPECT_THAT(reasons(all.layers.at(2), "Straight_Through_Fallback_M1"),
              ElementsAre("leaves out ReLU, which the layer before doesn't apply" + both));
  const auto pair =
      ModelBuilder()
          .input("x")
          .conv2d("c", "x", info, fused)
          .input_converter("0", "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1")
          .activation("r", "c", "Straight_Through_Fallback_M1")
          .outputs({"r"})
          .build();
  all = explain_model(*pair, marlo::test::all_kernels(), options);
  EXPECT_EQ(chosen_of(all.layers.at(1))->converters_ms, 0.25);
  EXPECT_THAT(reasons(all.layers.at(1), "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1"),
              ElementsAre("leaves out ReLU, which the layer behind doesn't apply" + both));
  EXPECT_THAT(reasons(all.layers.at(2), "ReLU_Fallback_Float_M1"),
              ElementsAre("applies ReLU, which the layer before does" + both));
}
#endif

TEST(Explain, KernelsThatAreNotPossibleSayWhy) {
  const MachineLimits machine = made_up_machine();
  RecordedMeter meter;
  const ExplainedLayer conv = explained_convolution(quick_options(machine), meter);
  const auto reasons = [&](const std::string& kernel) {
    const ExplainedRefusal* refusal = refusal_of(conv, kernel);
    return refusal == nullptr ? std::vector<std::string>{} : refusal->reasons;
  };
  EXPECT_THAT(reasons("Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1"),
              ElementsAre("stride: needs 2 x 2, has 1 x 1"));
  EXPECT_THAT(reasons("Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1"),
              ElementsAre("groups: needs 8, one for each channel, has 1"));
  EXPECT_EQ(refusal_of(conv, "ReLU_Fallback_Float_M1"), nullptr) << "a kernel of other layers";
  size_t of_instructions = 0;
  for (const ExplainedRefusal& refusal : conv.refusals) {
    EXPECT_FALSE(refusal.reasons.empty()) << refusal.kernel;
    for (const std::string& reason : refusal.reasons) {
      if (reason.rfind("instructions: needs ", 0) == 0) ++of_instructions;
    }
  }
#if QRT_WITH_AVX
  EXPECT_GT(of_instructions, 0u);
#endif
}

TEST(Explain, ToleranceKeepsOtherResultsOut) {
  const MachineLimits machine = made_up_machine();
  RecordedMeter meter;
  ExplainOptions options = quick_options(machine);
  options.tolerance = 0;
  const ExplainedLayer conv = explained_convolution(options, meter);
  for (const ExplainedCandidate& candidate : conv.candidates) EXPECT_EQ(candidate.difference, 0);
  size_t differing = 0;
  for (const ExplainedRefusal& refusal : conv.refusals) {
    if (refusal.reasons[0].rfind("results: differ by ", 0) == 0) ++differing;
  }
  EXPECT_GT(differing, 0u);
}

TEST(Explain, MeasurementsAreRememberedAndEnd) {
  const MachineLimits machine = made_up_machine();
  const marlo::test::TemporaryFolder folder;
  ExplainOptions options = quick_options(machine);
  options.wisdom = folder.file("w.json");
  RecordedMeter first;
  explained_convolution(options, first);
  EXPECT_FALSE(first.asked.empty());
  RecordedMeter second;
  EXPECT_TRUE(chosen_of(explained_convolution(options, second))->is_measured);
  EXPECT_TRUE(second.asked.empty());
  options.wisdom.clear();
  options.budget = 0;
  RecordedMeter none;
  const ExplainedLayer estimated = explained_convolution(options, none);
  EXPECT_FALSE(second_of(estimated)->is_measured);
  // The chosen kernel has run within the passes.
  EXPECT_EQ(chosen_of(estimated)->ms, estimated.ms);
  EXPECT_TRUE(none.asked.empty());
}

TEST(Explain, SaysWhatIsMissing) {
  const MachineLimits machine = made_up_machine();
  const auto fault = [&](const runtime::QRTModel& model, const ExplainOptions& options) {
    try {
      explain_model(model, documented_kernels(), options);
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
  options = quick_options(machine);
  options.inputs["x"].dims = {1u << 15, 1u << 10, 1u << 5};  // in 32 bits: 0 bytes
  EXPECT_THAT(fault(*small_model(), options), HasSubstr("expected a shape below 4 GiB"));
  const auto mute = ModelBuilder().input("x").build();
  EXPECT_THAT(fault(*mute, quick_options(machine)), HasSubstr("returns nothing"));
}

TEST(Explain, EndsWhenItIsTold) {
  const MachineLimits machine = made_up_machine();
  ExplainOptions options = quick_options(machine);
  options.go_on = [](const ExplainProgress& now) { return now.steps < 1; };
  const Explanation nothing = explain_model(*small_model(), documented_kernels(), options);
  EXPECT_TRUE(nothing.layers.empty());
  EXPECT_FALSE(nothing.is_complete);
  options.with_candidates = true;
  options.go_on = [](const ExplainProgress& now) { return now.steps < 2; };
  const Explanation passes = explain_model(*small_model(), documented_kernels(), options);
  EXPECT_EQ(passes.layers.size(), 4u);
  EXPECT_TRUE(passes.layers.at(1).candidates.empty());
  EXPECT_FALSE(passes.is_complete);
}

TEST(Explain, EndsBetweenPasses) {
  const MachineLimits machine = made_up_machine();
  ExplainOptions options = quick_options(machine);
  options.passes_ms = 60000;
  options.most_passes = size_t{1} << 30;
  size_t asked = 0;
  options.go_on = [&](const ExplainProgress& now) { return now.steps < 1 || ++asked < 3; };
  const Explanation all = explain_model(*small_model(), documented_kernels(), options);
  EXPECT_EQ(all.passes, 0u);
  EXPECT_TRUE(all.layers.empty());
  EXPECT_FALSE(all.is_complete);
  EXPECT_EQ(asked, 3u);
}

TEST(Explain, ProgressEndsWithTheLastStep) {
  const MachineLimits machine = made_up_machine();
  for (const bool with_candidates : {false, true}) {
    RecordedMeter meter;
    ExplainOptions options = quick_options(machine);
    options.with_candidates = with_candidates;
    options.meter = &meter;
    std::vector<size_t> steps;
    size_t of_steps = 0;
    options.go_on = [&](const ExplainProgress& now) {
      steps.push_back(now.steps);
      of_steps = now.of_steps;
      return true;
    };
    EXPECT_TRUE(explain_model(*small_model(), documented_kernels(), options).is_complete);
    EXPECT_TRUE(std::is_sorted(steps.begin(), steps.end()));
    EXPECT_EQ(steps.back(), of_steps);
    EXPECT_EQ(of_steps, with_candidates ? 6u : 2u);
  }
}

}  // namespace
}  // namespace marlo::toolkit::test

#endif  // QRT_WITH_SSE
