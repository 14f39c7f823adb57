#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <stdexcept>

#include "qrt_core/qrt_core.h"
#include "qrt_toolkit/assign/network.h"
#include "qrt_toolkit/tune/tune.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"

// What keeps tuning within limits: sets of kernels, and whoever ends it.

namespace marlo::toolkit::test {
namespace {

using marlo::test::documented_kernels;
using marlo::test::ModelBuilder;
using marlo::test::plane_convolution;
using marlo::test::ramp;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const std::string kSse = "ReLU_SSE_Float_M1";

using Shapes = std::map<std::string, runtime::TensorShape>;

/// Kernels that need more are faster, and so is the given model.
class GivenIsFastest final : public Meter {
 public:
  std::vector<double> time_work(const std::vector<Work>& rivals) override {
    std::vector<double> times;
    for (const Work& work : rivals) times.push_back(work.set == KernelSet::portable ? 8 : 1);
    return times;
  }

  std::vector<double> time_passes(const std::vector<const runtime::QRTModel*>& models,
                                  const std::string&, const Shapes&) override {
    std::vector<double> times(models.size(), 5);
    times[0] = 1;
    return times;
  }
};

std::shared_ptr<runtime::QRTModel> model_with(const std::string& rectifier) {
  auto info = plane_convolution(8, 8, 3, ramp(576, -0.5f, 0.002f), ramp(8));
  info.padding_l = info.padding_r = info.padding_t = info.padding_b = 1;
  ModelBuilder builder;
  builder.input("x").conv2d("c", "x", info).activation("y", "c", rectifier).outputs({"y"});
  return builder.build();
}

TuneOptions options_for(KernelSet set) {
  TuneOptions options;
  options.assign.set = set;
  options.assign.inputs["x"] =
      runtime::TensorShape({8, 12, 12}, runtime::DataType::FLOAT32, runtime::LayoutType::CHW);
  return options;
}

const runtime::QRModelCfg& config_in(const runtime::QRTModel& model) {
  return config_of(model, "net");
}

TEST(TuneSets, TheGivenModelIsBoundAsWell) {
  if (documented_kernels().Create(kSse) == nullptr) GTEST_SKIP() << "this build has no SSE kernels";
  const auto model = model_with(kSse);
  ASSERT_THAT(kernels_beyond(config_in(*model), KernelSet::portable), SizeIs(1));
  EXPECT_THAT(kernels_beyond(config_in(*model), KernelSet::sse), IsEmpty());
  GivenIsFastest meter;
  TuneOptions options = options_for(KernelSet::portable);
  options.meter = &meter;
  const TunedModel bound = tune_model(*model, documented_kernels(), options);
  EXPECT_THAT(kernels_beyond(config_in(bound.model), KernelSet::portable), IsEmpty());
  EXPECT_NE(bound.report.chosen, "given");
  EXPECT_DOUBLE_EQ(bound.report.before, 1) << "it is told all the same";
  EXPECT_DOUBLE_EQ(bound.report.after, 5);
  EXPECT_LT(bound.report.difference, 1e-5);
  EXPECT_LT(bound.report.assigned.cost, 100) << "what keeps kernels out is no time";
  options.assign.set = KernelSet::sse;
  EXPECT_EQ(tune_model(*model, documented_kernels(), options).report.chosen, "given");
}

TEST(TuneSets, WhatOnlyOneKernelComputesStays) {
  if (documented_kernels().Create(kSse) == nullptr) GTEST_SKIP() << "this build has no SSE kernels";
  runtime::KernelRegistry few;
  for (const std::string& name : documented_kernels().Keys()) {
    if (name.rfind("ReLU_", 0) == 0 && name != kSse) continue;
    few.Register(
        name, [name] { return documented_kernels().Create(name); }, false);
  }
  GivenIsFastest meter;
  TuneOptions options = options_for(KernelSet::portable);
  options.meter = &meter;
  const TunedModel tuned = tune_model(*model_with(kSse), few, options);
  EXPECT_EQ(config_in(tuned.model).layer_cfgs.at("y")->kernel->kernel_type, kSse);
  EXPECT_THAT(tuned.report.assigned.beyond, ::testing::ElementsAre("y"));
  EXPECT_LT(tuned.report.assigned.cost, 100);
  ASSERT_THAT(tuned.report.notes, SizeIs(1));
  EXPECT_THAT(tuned.report.notes[0], HasSubstr("layer \"y\" keeps " + kSse +
                                               ": no kernel up to portable computes the same"));
}

TEST(TuneSets, KernelsThatTheProcessorLacksAreRefused) {
  if (processor_kernels() == KernelSet::avx512) GTEST_SKIP() << "this processor has them all";
  const auto model = model_with("ReLU_AVX512_Float_M1");
  std::string fault;
  try {
    tune_model(*model, documented_kernels(), options_for(KernelSet::portable));
  } catch (const std::invalid_argument& failure) {
    fault = failure.what();
  }
  EXPECT_THAT(fault, HasSubstr("this processor can't run ReLU_AVX512_Float_M1"));
}

TEST(TuneReport, TellsEveryCandidateAndWhyOthersAreNone) {
  GivenIsFastest meter;
  TuneOptions options = options_for(KernelSet::sse);
  options.meter = &meter;
  EXPECT_THAT(tune_model(*model_with("ReLU_Fallback_Float_M1"), documented_kernels(), options)
                  .report.candidates,
              IsEmpty());
  options.with_candidates = true;
  const TunedModel tuned =
      tune_model(*model_with("ReLU_Fallback_Float_M1"), documented_kernels(), options);
  const LayerRivals& rivals = tuned.report.candidates.at("c");
  ASSERT_GT(rivals.candidates.size(), 1u);
  EXPECT_TRUE(rivals.candidates[0].is_chosen);
  for (const ExplainedCandidate& candidate : rivals.candidates) {
    if (!candidate.is_measured) continue;
    EXPECT_DOUBLE_EQ(candidate.ms, candidate.set == KernelSet::portable ? 8 : 1);
  }
  ASSERT_FALSE(rivals.refusals.empty());
  for (const ExplainedRefusal& refusal : rivals.refusals) {
    EXPECT_THAT(refusal.reasons, ::testing::Not(IsEmpty())) << refusal.kernel;
  }
  EXPECT_THAT(tuned.report.candidates.at("x").candidates, IsEmpty());
}

/// Runs by the clock, and is ended after a while.
TunedModel ended_after(double seconds, const runtime::QRTModel& model, KernelSet set) {
  TuneOptions options = options_for(set);
  const auto start = std::chrono::steady_clock::now();
  const auto spent = [&] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  options.go_on = [&](const TuneProgress&) { return spent() < seconds; };
  return tune_model(model, documented_kernels(), options);
}

TEST(TuneInterrupt, WhatIsKnownByThenChooses) {
  const auto model = model_with("ReLU_Fallback_Float_M1");
  const TunedModel at_once = ended_after(0, *model, processor_kernels());
  EXPECT_FALSE(at_once.report.is_complete);
  EXPECT_TRUE(std::isnan(at_once.report.before));
  EXPECT_TRUE(std::isnan(at_once.report.after));
  ASSERT_THAT(at_once.report.ran, SizeIs(2));
  EXPECT_EQ(at_once.report.chosen, "given") << "nothing is known of others";
  for (const double seconds : {0.005, 0.02, 0.06, 0.15}) {
    const TunedModel tuned = ended_after(seconds, *model, processor_kernels());
    EXPECT_FALSE(tuned.report.chosen.empty());
    if (tuned.report.chosen == "given") continue;
    EXPECT_FALSE(tuned.report.difference > 1e-4);
    if (std::isfinite(tuned.report.after)) {
      EXPECT_LT(tuned.report.after, tuned.report.before);
    }
  }
}

/// What ends the measurements in the midst of passes.
class EndsInPasses final : public Meter {
 public:
  std::vector<double> time_work(const std::vector<Work>& rivals) override {
    return GivenIsFastest().time_work(rivals);
  }

  std::vector<double> time_passes(const std::vector<const runtime::QRTModel*>& models,
                                  const std::string&, const Shapes&) override {
    has_ended = true;
    std::vector<double> times(models.size(), HUGE_VAL);
    if (knows_all) times.assign(models.size(), 3);
    if (knows_all) times.back() = 2;
    return times;
  }

  bool knows_all = false;
  bool has_ended = false;
};

TEST(TuneInterrupt, PassesThatAreKnownChoose) {
  if (documented_kernels().Create(kSse) == nullptr) GTEST_SKIP() << "this build has no SSE kernels";
  const auto model = model_with("ReLU_Fallback_Float_M1");
  for (const bool knows_all : {false, true}) {
    EndsInPasses meter;
    meter.knows_all = knows_all;
    TuneOptions options = options_for(KernelSet::sse);
    options.meter = &meter;
    options.go_on = [&](const TuneProgress&) { return !meter.has_ended; };
    const TunedModel tuned = tune_model(*model, documented_kernels(), options);
    EXPECT_FALSE(tuned.report.is_complete);
    EXPECT_NE(tuned.report.chosen, "given");
    EXPECT_EQ(std::isfinite(tuned.report.after), knows_all);
    EXPECT_EQ(tuned.report.changes_kept, 0u);
    EXPECT_THAT(kernels_beyond(config_in(tuned.model), KernelSet::portable), Not(IsEmpty()));
  }
}

}  // namespace
}  // namespace marlo::toolkit::test
