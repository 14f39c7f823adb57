#include "qrt_toolkit/tune/tune.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <stdexcept>

#include "qrt_core/qrt_core.h"
#include "qrt_toolkit/tune/wisdom.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/support/temporary_folder.h"

namespace marlo::toolkit::test {
namespace {

using marlo::test::documented_kernels;
using marlo::test::ModelBuilder;
using marlo::test::plane_convolution;
using marlo::test::ramp;
using marlo::test::TemporaryFolder;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::StartsWith;

/// Times that were recorded: always the same, and faster the larger the blocks are.
class RecordedMeter final : public Meter {
 public:
  std::vector<double> time_work(const std::vector<Work>& rivals) override {
    std::vector<double> times;
    for (const Work& work : rivals) {
      const double blocks = runtime::BlockSize(work.inputs[0].layout);
      const double vectors = work.set == KernelSet::portable ? 1 : 4;
      times.push_back(work.info == nullptr ? 0.25 : 16 / blocks / vectors);
      asked.push_back(work.kernel);
    }
    return times;
  }

  std::vector<double> time_passes(const std::vector<const runtime::QRTModel*>& models,
                                  const std::string& network,
                                  const std::map<std::string, runtime::TensorShape>&) override {
    std::vector<double> times;
    for (const runtime::QRTModel* model : models) {
      EXPECT_EQ(model->model_arr->infos.count(network), 1u);
      times.push_back(times.empty() ? given_pass : 5.0 + static_cast<double>(times.size()));
    }
    return times;
  }

  double given_pass = 10;
  std::vector<std::string> asked;
};

std::shared_ptr<runtime::QRTModel> small_model() {
  auto info = plane_convolution(8, 8, 3, ramp(576, -0.5f, 0.002f), ramp(8));
  info.padding_l = info.padding_r = info.padding_t = info.padding_b = 1;
  ModelBuilder builder;
  builder.input("x")
      .conv2d("c", "x", info)
      .activation("r", "c", "ReLU_Fallback_Float_M1")
      .conv2d("y", "r", info)
      .outputs({"y"});
  builder.configuration()->summary = "a text of the owner's";
  return builder.build();
}

TuneOptions options_with(Meter& meter) {
  TuneOptions options;
  options.assign.set = KernelSet::sse;
  options.assign.inputs["x"] =
      runtime::TensorShape({8, 12, 12}, runtime::DataType::FLOAT32, runtime::LayoutType::CHW);
  options.processor = "a processor";
  options.date = "2024-05-01";
  options.meter = &meter;
  return options;
}

std::string bytes_of(runtime::QRTModel& model) {
  const TemporaryFolder folder;
  model.ToFile(folder.file("m.json").c_str(), "json");
  std::ifstream file(folder.file("m.json"), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string summary_of(const runtime::QRTModel& model) {
  return model.config_arr->cfgs.at("net")->cpu_sse->summary;
}

TEST(Tune, RecordedTimesGiveTheSameBytesEveryTime) {
  const auto model = small_model();
  std::vector<std::string> results;
  for (int run = 0; run < 2; ++run) {
    RecordedMeter meter;
    TunedModel tuned = tune_model(*model, documented_kernels(), options_with(meter));
    EXPECT_EQ(tuned.report.chosen, "measured");
    EXPECT_TRUE(tuned.report.is_complete);
    EXPECT_LT(tuned.report.difference, 1e-5);
    EXPECT_DOUBLE_EQ(tuned.report.before, 10);
    EXPECT_DOUBLE_EQ(tuned.report.after, 6);
    results.push_back(bytes_of(tuned.model));
  }
  EXPECT_EQ(results[0], results[1]);
  EXPECT_NE(results[0], bytes_of(*model));
}

/// Times of passes that have little to do with those of single layers: one kernel makes them shorter.
class PassMeter final : public Meter {
 public:
  explicit PassMeter(std::string kernel, double gain)
      : last_gain(gain), kernel_(std::move(kernel)), gain_(gain) {}

  std::vector<double> time_work(const std::vector<Work>& rivals) override {
    return work_.time_work(rivals);
  }

  std::vector<double> time_passes(const std::vector<const runtime::QRTModel*>& models,
                                  const std::string& network,
                                  const std::map<std::string, runtime::TensorShape>&) override {
    std::vector<double> times;
    ++calls;
    for (const runtime::QRTModel* model : models) {
      const auto& layers = model->config_arr->cfgs.at(network)->cpu_sse->layer_cfgs;
      const bool is_given =
          layers.at("c")->kernel->kernel_type.find("Fallback") != std::string::npos;
      const bool is_shorter = layers.at("r")->kernel->kernel_type == kernel_;
      const bool is_last = calls > 1 && models.size() == 3;
      times.push_back(is_given ? given_pass : 8 - (is_shorter ? is_last ? last_gain : gain_ : 0));
    }
    if (calls > 1) given_pass = later_given_pass;
    return times;
  }

  double given_pass = 10;
  double later_given_pass = 10;
  double last_gain;  // when the given model, that before changes and that behind them are compared
  size_t calls = 0;

 private:
  RecordedMeter work_;
  std::string kernel_;
  double gain_;
};

TEST(Tune, CloseKernelsAreExchangedWherePassesGetFaster) {
  // Both rectifiers take equally long alone, and the one in place is chosen first.
  const std::string other = "ReLU_SSE_Float_M1";
  if (documented_kernels().Create(other) == nullptr)
    GTEST_SKIP() << "this build has no SSE kernels";
  const auto kernel_in = [](const TunedModel& tuned) {
    return tuned.model.config_arr->cfgs.at("net")->cpu_sse->layer_cfgs.at("r")->kernel->kernel_type;
  };
  PassMeter faster(other, 1);
  const TunedModel exchanged =
      tune_model(*small_model(), documented_kernels(), options_with(faster));
  EXPECT_EQ(kernel_in(exchanged), other);
  EXPECT_EQ(exchanged.report.changes_kept, 1u);
  EXPECT_DOUBLE_EQ(exchanged.report.after, 7);
  EXPECT_EQ(exchanged.report.chosen, "exchanged");
  EXPECT_EQ(exchanged.report.ran.back().name, "exchanged");
  EXPECT_DOUBLE_EQ(exchanged.report.ran.back().milliseconds, 7);
  EXPECT_LT(exchanged.report.difference, 1e-5);
  PassMeter hardly(other, 0.01);
  const TunedModel kept = tune_model(*small_model(), documented_kernels(), options_with(hardly));
  EXPECT_NE(kernel_in(kept), other);
  EXPECT_GT(kept.report.changes_tried, 0u);
  EXPECT_EQ(kept.report.changes_kept, 0u);
  EXPECT_DOUBLE_EQ(kept.report.after, 8);
}

TEST(Tune, ChangesAreTriedWhereTheGivenModelIsAsFast) {
  const std::string other = "ReLU_SSE_Float_M1";
  if (documented_kernels().Create(other) == nullptr)
    GTEST_SKIP() << "this build has no SSE kernels";
  const auto tuned_beside = [&](double given, double gain) {
    PassMeter meter(other, gain);
    meter.given_pass = meter.later_given_pass = given;
    return tune_model(*small_model(), documented_kernels(), options_with(meter));
  };
  const TunedModel exchanged = tuned_beside(7.9, 1);
  EXPECT_EQ(exchanged.report.chosen, "exchanged");
  EXPECT_DOUBLE_EQ(exchanged.report.after, 7);
  const TunedModel alike = tuned_beside(7.9, 0.01);
  EXPECT_GT(alike.report.changes_tried, 0u);
  EXPECT_EQ(alike.report.chosen, "given");
  EXPECT_DOUBLE_EQ(alike.report.after, 7.9);
  EXPECT_EQ(tuned_beside(6, 1).report.changes_tried, 0u);
}

TEST(Tune, WhatTheLastPassesSayHolds) {
  const std::string other = "ReLU_SSE_Float_M1";
  if (documented_kernels().Create(other) == nullptr)
    GTEST_SKIP() << "this build has no SSE kernels";
  PassMeter meter(other, 1);
  meter.later_given_pass = 6;
  const auto model = small_model();
  const TunedModel tuned = tune_model(*model, documented_kernels(), options_with(meter));
  EXPECT_EQ(tuned.report.changes_kept, 0u);
  EXPECT_GT(tuned.report.changes_tried, 0u);
  EXPECT_EQ(tuned.report.chosen, "given");
  EXPECT_DOUBLE_EQ(tuned.report.after, 6);
  EXPECT_EQ(tuned.model.model_arr->infos.at("net"), model->model_arr->infos.at("net"));
  // Without its changes the winner is still faster than the given model.
  PassMeter worse(other, 1);
  worse.later_given_pass = 8.5;
  worse.last_gain = -1;
  const TunedModel unchanged = tune_model(*model, documented_kernels(), options_with(worse));
  EXPECT_EQ(unchanged.report.chosen, "measured");
  EXPECT_DOUBLE_EQ(unchanged.report.before, 8.5);
  EXPECT_DOUBLE_EQ(unchanged.report.after, 8);
  EXPECT_EQ(unchanged.report.changes_kept, 0u);
  EXPECT_DOUBLE_EQ(unchanged.report.ran.back().milliseconds, 9);
  // What ran before is told as it was beside the changed one, in the same passes.
  const std::vector<TunedConfiguration>& all = unchanged.report.ran;
  EXPECT_DOUBLE_EQ(all.front().milliseconds, 8.5);
  EXPECT_DOUBLE_EQ(all.front().of_given, 1);
  EXPECT_DOUBLE_EQ(all.back().of_given, 9 / 8.5);
  EXPECT_EQ(
      std::count_if(all.begin(), all.end(), [](const auto& one) { return one.name == "measured"; }),
      1);
  const auto& layers = unchanged.model.config_arr->cfgs.at("net")->cpu_sse->layer_cfgs;
  EXPECT_NE(layers.at("r")->kernel->kernel_type, other);
  EXPECT_EQ(layers.at("c")->kernel->kernel_type.find("Fallback"), std::string::npos);
}

/// Passes are so much faster with channels in whole blocks.
class BlocksMeter final : public Meter {
 public:
  explicit BlocksMeter(double factor) : factor_(factor) {}

  std::vector<double> time_work(const std::vector<Work>& rivals) override {
    return work_.time_work(rivals);
  }

  std::vector<double> time_passes(const std::vector<const runtime::QRTModel*>& models,
                                  const std::string& network,
                                  const std::map<std::string, runtime::TensorShape>&) override {
    std::vector<double> times;
    for (const runtime::QRTModel* model : models) {
      const auto& layers = model->model_arr->infos.at(network)->layers;
      const auto& convolution = dynamic_cast<const runtime::Conv2dInfo&>(*layers.at("c"));
      const bool is_given =
          model->config_arr->cfgs.at(network)->cpu_sse->layer_cfgs.at("r")->kernel->kernel_type ==
          "ReLU_Fallback_Float_M1";
      times.push_back((convolution.out_channels == 16 ? factor_ : 1) * (is_given ? 10 : 8));
    }
    return times;
  }

 private:
  RecordedMeter work_;
  double factor_;
};

TEST(Tune, ChannelsInWholeBlocksRunBesideTheNetworkAsItIs) {
  if (documented_kernels().Create("ReLU_SSE_Float_M1") == nullptr)
    GTEST_SKIP() << "this build has no SSE kernels";
  auto first = plane_convolution(8, 12, 3, ramp(864, -0.5f, 0.001f), ramp(12));
  auto second = plane_convolution(12, 8, 3, ramp(864, -0.5f, 0.001f), ramp(8));
  for (auto* info : {&first, &second}) {
    info->padding_l = info->padding_r = info->padding_t = info->padding_b = 1;
  }
  ModelBuilder builder;
  builder.input("x")
      .conv2d("c", "x", first)
      .activation("r", "c", "ReLU_Fallback_Float_M1")
      .conv2d("y", "r", second)
      .outputs({"y"});
  const auto model = builder.build();
  const auto tuned_with = [&](double factor) {
    BlocksMeter meter(factor);
    return tune_model(*model, documented_kernels(), options_with(meter));
  };
  const TunedModel faster = tuned_with(0.5);
  EXPECT_EQ(faster.report.chosen, "whole blocks");
  EXPECT_DOUBLE_EQ(faster.report.after, 4);
  EXPECT_THAT(faster.report.padded, ElementsAre(Pair("c", 16u), Pair("r", 16u)));
  EXPECT_LT(faster.report.difference, 1e-5);
  EXPECT_EQ(faster.report.assigned.layers.size(), 4u);
  const TunedModel slower = tuned_with(2);
  EXPECT_EQ(slower.report.chosen, "measured");
  EXPECT_THAT(slower.report.padded, IsEmpty());
  const auto ran = std::count_if(slower.report.ran.begin(), slower.report.ran.end(),
                                 [](const TunedConfiguration& one) {
                                   return one.name == "whole blocks" && one.milliseconds == 16;
                                 });
  EXPECT_EQ(ran, 1) << "it ran, and was slower";
}

TEST(Tune, EachWorkIsTimedOnce) {
  RecordedMeter meter;
  const TunedModel tuned = tune_model(*small_model(), documented_kernels(), options_with(meter));
  // Both convolutions are alike.
  const std::string portable = "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1";
  EXPECT_LE(std::count(meter.asked.begin(), meter.asked.end(), portable), 1);
  EXPECT_EQ(tuned.report.measured, meter.asked.size());
}

TEST(Tune, TheGivenModelComesBackWhereNothingIsFaster) {
  const auto model = small_model();
  RecordedMeter meter;
  meter.given_pass = 1;
  const TunedModel tuned = tune_model(*model, documented_kernels(), options_with(meter));
  EXPECT_EQ(tuned.report.chosen, "given");
  EXPECT_DOUBLE_EQ(tuned.report.after, 1);
  EXPECT_EQ(tuned.model.model_arr->infos.at("net"), model->model_arr->infos.at("net"));
  EXPECT_EQ(tuned.model.config_arr->cfgs.at("net")->cpu_sse->layer_cfgs,
            model->config_arr->cfgs.at("net")->cpu_sse->layer_cfgs);
}

TEST(Tune, TheConfigurationSaysWhatItWasMadeFor) {
  const auto model = small_model();
  RecordedMeter meter;
  TuneOptions options = options_with(meter);
  const TunedModel once = tune_model(*model, documented_kernels(), options);
  EXPECT_THAT(summary_of(once.model), StartsWith("a text of the owner's\n{\"qrt_tuned\":1,"));
  EXPECT_EQ(tuned_processor(summary_of(once.model)), "a processor");
  EXPECT_THAT(summary_of(once.model), HasSubstr("\"x\":\"FLOAT32 CHW [8, 12, 12]\""));
  EXPECT_THAT(summary_of(once.model), HasSubstr("\"date\":\"2024-05-01\""));
  EXPECT_EQ(summary_of(*model), "a text of the owner's");
  const auto tuned = tuned_for(summary_of(once.model));
  ASSERT_TRUE(tuned);
  EXPECT_EQ(tuned->kernels, "sse");
  EXPECT_EQ(tuned->date, "2024-05-01");
  EXPECT_THAT(tuned->library, StartsWith("qrt_core "));
  EXPECT_THAT(tuned->inputs, ElementsAre(Pair("x", "FLOAT32 CHW [8, 12, 12]")));
  EXPECT_FALSE(tuned_for("a text of the owner's"));
  options.processor = "another";
  const TunedModel twice = tune_model(once.model, documented_kernels(), options);
  EXPECT_EQ(tuned_processor(summary_of(twice.model)), "another");
  EXPECT_EQ(summary_of(twice.model).find("a processor"), std::string::npos);
  EXPECT_EQ(tuned_processor("no such line"), "");
  EXPECT_EQ(tuned_processor("{\"qrt_tuned\":1,"), "");
}

TEST(Tune, WithoutTimeLeftTheEstimateIsWhatThereIs) {
  RecordedMeter meter;
  TuneOptions options = options_with(meter);
  options.budget = 0;
  const TunedModel tuned = tune_model(*small_model(), documented_kernels(), options);
  EXPECT_FALSE(tuned.report.is_complete);
  EXPECT_THAT(meter.asked, IsEmpty());
  EXPECT_LT(tuned.report.difference, 1e-5);
}

TEST(Tune, ProgressNamesTheLayers) {
  RecordedMeter meter;
  TuneOptions options = options_with(meter);
  std::vector<size_t> layers;
  options.go_on = [&](const TuneProgress& now) {
    EXPECT_EQ(now.of_layers, 4u);
    layers.push_back(now.layers);
    return true;
  };
  tune_model(*small_model(), documented_kernels(), options);
  ASSERT_FALSE(layers.empty());
  EXPECT_TRUE(std::is_sorted(layers.begin(), layers.end()));
}

runtime::TensorShape picture_shape(uint32_t channels, uint32_t size) {
  return runtime::TensorShape({channels, size, size}, runtime::DataType::FLOAT32,
                              runtime::LayoutType::CHW);
}

/// The portable kernel is faster on small pictures and slower on large ones; a pass of the given model
/// takes 10 a size, of others less.
class SizedMeter final : public Meter {
 public:
  std::vector<double> time_work(const std::vector<Work>& rivals) override {
    std::vector<double> times;
    for (const Work& work : rivals) {
      const bool is_large = work.inputs[0].dims[1] > 16;
      const double portable = is_large ? 10 : 1;
      const bool is_plain = work.use == runtime::InputUse::reads;
      const bool is_planes = work.inputs[0].layout == runtime::LayoutType::CHW;
      if (work.info == nullptr || !is_plain || !is_planes) {
        times.push_back(1000);
      } else {
        times.push_back(work.set == KernelSet::portable ? portable : 4);
      }
    }
    return times;
  }

  std::vector<double> time_passes(
      const std::vector<const runtime::QRTModel*>& models, const std::string&,
      const std::map<std::string, runtime::TensorShape>& inputs) override {
    const double size = inputs.at("x").dims[1];
    std::vector<double> times(models.size(), size / 2);
    times[0] = size;
    return times;
  }
};

std::shared_ptr<runtime::QRTModel> rectifiers() {
  ModelBuilder builder;
  builder.input("x")
      .activation("r", "x", "ReLU_Fallback_Float_M1")
      .activation("y", "r", "ReLU_Fallback_Float_M1")
      .outputs({"y"});
  return builder.build();
}

TEST(Tune, SizesCountByTheirWeights) {
  const std::string sse = "ReLU_SSE_Float_M1";
  if (documented_kernels().Create(sse) == nullptr) GTEST_SKIP() << "this build has no SSE kernels";
  const auto tuned_on = [&](const std::vector<TuneSize>& sizes) {
    SizedMeter meter;
    TuneOptions options = options_with(meter);
    options.assign.inputs = sizes[0].inputs;
    options.weight = sizes[0].weight;
    options.further.assign(sizes.begin() + 1, sizes.end());
    return tune_model(*rectifiers(), documented_kernels(), options);
  };
  const auto kernel_of = [](const TunedModel& tuned) {
    return tuned.model.config_arr->cfgs.at("net")->cpu_sse->layer_cfgs.at("r")->kernel->kernel_type;
  };
  const TuneSize small{{{"x", picture_shape(8, 12)}}, 1};
  TuneSize large{{{"x", picture_shape(8, 40)}}, 1};
  EXPECT_EQ(kernel_of(tuned_on({small})), "ReLU_Fallback_Float_M1");
  EXPECT_EQ(kernel_of(tuned_on({large})), sse);
  const TunedModel both = tuned_on({small, large});
  EXPECT_EQ(kernel_of(both), sse) << "4 + 4 are less than 1 + 10";
  EXPECT_DOUBLE_EQ(both.report.before, 52);
  EXPECT_DOUBLE_EQ(both.report.after, 26);
  large.weight = 0.25;
  const TunedModel seldom = tuned_on({small, large});
  EXPECT_EQ(kernel_of(seldom), "ReLU_Fallback_Float_M1") << "1 + 2.5 are less than 4 + 1";
  ASSERT_EQ(seldom.report.sizes.size(), 2u);
  EXPECT_DOUBLE_EQ(seldom.report.sizes[1].size.weight, 0.25);
  EXPECT_DOUBLE_EQ(seldom.report.sizes[1].before, 40);
  EXPECT_DOUBLE_EQ(seldom.report.before, 22);
  const auto mark = tuned_for(summary_of(both.model));
  ASSERT_TRUE(mark);
  EXPECT_THAT(mark->inputs, ElementsAre(Pair("x", "FLOAT32 CHW [8, 12, 12]")));
  EXPECT_THAT(mark->further, ElementsAre(ElementsAre(Pair("x", "FLOAT32 CHW [8, 40, 40]"))));
}

TEST(Tune, WhatIsChosenRunsOnAllSizes) {
  // Blocks of eight channels are the fastest, and six channels don't fill them.
  RecordedMeter meter;
  TuneOptions options = options_with(meter);
  const auto alone = tune_model(*rectifiers(), documented_kernels(), options);
  if (alone.report.assigned.converters.empty()) GTEST_SKIP() << "this build has no blocks";
  options.further.push_back({{{"x", picture_shape(6, 20)}}, 1});
  const auto both = tune_model(*rectifiers(), documented_kernels(), options);
  EXPECT_NE(both.report.chosen, "given");
  EXPECT_THAT(both.report.assigned.converters, IsEmpty());
  for (const TunedSize& size : both.report.sizes) EXPECT_LT(size.difference, 1e-6);
}

TEST(Tune, WeightsAreAboveZero) {
  RecordedMeter meter;
  TuneOptions options = options_with(meter);
  for (const double weight : {0.0, -1.0, std::nan(""), HUGE_VAL}) {
    options.further = {{{{"x", picture_shape(8, 20)}}, weight}};
    EXPECT_THROW(tune_model(*rectifiers(), documented_kernels(), options), std::invalid_argument);
  }
  // A size that a network can't run on is named.
  options.further = {{{}, 1}};
  EXPECT_THROW(tune_model(*rectifiers(), documented_kernels(), options), std::invalid_argument);
}

TEST(Tune, ProgressCountsTheLayersOfAllSizes) {
  RecordedMeter meter;
  TuneOptions options = options_with(meter);
  options.further = {{{{"x", picture_shape(8, 20)}}, 1}};
  size_t most = 0;
  options.go_on = [&](const TuneProgress& now) {
    EXPECT_EQ(now.of_layers, 6u);
    most = std::max(most, now.layers);
    return true;
  };
  tune_model(*rectifiers(), documented_kernels(), options);
  EXPECT_GT(most, 2u);
  EXPECT_LE(most, 6u);
}

TEST(Tune, TheClockFindsSomethingThatIsNoSlower) {
  TuneOptions options;
  options.assign.set = processor_kernels();
  options.assign.inputs["x"] =
      runtime::TensorShape({8, 12, 12}, runtime::DataType::FLOAT32, runtime::LayoutType::CHW);
  options.budget = 2;
  const TunedModel tuned = tune_model(*small_model(), documented_kernels(), options);
  EXPECT_LE(tuned.report.after, tuned.report.before);
  EXPECT_GT(tuned.report.after, 0);
  EXPECT_LT(tuned.report.difference, 1e-5);
}

TEST(Tune, ASecondRunRemembersTheFirst) {
  const TemporaryFolder folder;
  RecordedMeter first;
  TuneOptions options = options_with(first);
  options.wisdom = folder.file("cache/wisdom.json");
  TunedModel before = tune_model(*small_model(), documented_kernels(), options);
  EXPECT_GT(before.report.measured, 0u);
  RecordedMeter second;
  options.meter = &second;
  TunedModel after = tune_model(*small_model(), documented_kernels(), options);
  EXPECT_THAT(second.asked, IsEmpty());
  EXPECT_EQ(after.report.remembered, before.report.measured);
  EXPECT_EQ(bytes_of(after.model), bytes_of(before.model));
  RecordedMeter elsewhere;
  options.meter = &elsewhere;
  options.processor = "another";
  tune_model(*small_model(), documented_kernels(), options);
  EXPECT_EQ(elsewhere.asked, first.asked);
}

TEST(Wisdom, KeepsWhatOthersWroteInTheMeantime) {
  const TemporaryFolder folder;
  const std::string path = folder.file("wisdom.json");
  Wisdom one(path, "m");
  Wisdom other(path, "m");
  one.add("a", 1.5);
  other.add("b", 2.5);
  EXPECT_EQ(one.save(), "");
  EXPECT_EQ(other.save(), "");
  const Wisdom both(path, "m");
  EXPECT_EQ(both.time("a"), 1.5);
  EXPECT_EQ(both.time("b"), 2.5);
  EXPECT_EQ(Wisdom(path, "n").time("a"), std::nullopt);
}

TEST(Wisdom, ADamagedFileIsPassedOverAndReplaced) {
  const TemporaryFolder folder;
  const std::string path = folder.file("wisdom.json");
  for (const std::string text :
       {"{\"qrt_wisdom\": 1, \"times\": {", "[]", "{\"qrt_wisdom\": 2, \"times\": {}}", ""}) {
    std::ofstream(path) << text;
    Wisdom wisdom(path, "m");
    EXPECT_THAT(wisdom.fault(), HasSubstr("it is passed over")) << text;
    wisdom.add("a", 1);
    EXPECT_EQ(wisdom.save(), "");
    EXPECT_EQ(Wisdom(path, "m").fault(), "");
  }
  std::ofstream(path) << R"({"qrt_wisdom": 1, "times": {"m": {"a": "fast", "b": -1, "c": 2}}})";
  const Wisdom odd(path, "m");
  EXPECT_EQ(odd.time("a"), std::nullopt);
  EXPECT_EQ(odd.time("b"), std::nullopt);
  EXPECT_EQ(odd.time("c"), 2);
}

TEST(Wisdom, SaysWhereItCantBeWritten) {
  Wisdom wisdom("/proc/none/wisdom.json", "m");
  wisdom.add("a", 1);
  EXPECT_THAT(wisdom.save(), HasSubstr("can't be written"));
  EXPECT_EQ(Wisdom("", "m").save(), "");
}

TEST(Tolerance, HasWords) {
  EXPECT_EQ(tolerance_of("same"), 0.0);
  EXPECT_EQ(tolerance_of("bounded"), 1e-4);
  EXPECT_EQ(tolerance_of("fast"), 0.05);
  EXPECT_EQ(tolerance_of("loose"), std::nullopt);
}

TEST(Processor, HasAName) { EXPECT_FALSE(processor_name().empty()); }

}  // namespace
}  // namespace marlo::toolkit::test
