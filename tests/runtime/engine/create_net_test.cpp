#include "qrt_core/runtime/engine/create_net.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

#include "qrt_core/qrt_core.h"
#include "qrt_core/runtime/model/layer_catalogue.h"
#include "tests/support/fake_kernel.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/model_builder.h"

namespace marlo::test {

using namespace runtime;

namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;

/// Whether the configuration is that of a model file or that of an application.
enum class Form { model_file, application };

class CreateNetTest : public ::testing::TestWithParam<Form> {
 protected:
  CreateNetTest() {
    utility::create_context(context_, 16);
    for (const char* name : {"in", "a", "b", "c", "conv1", "conv2"}) fakes_.add(name);
    fakes_.add("refuser", [](test::FakeKernel& kernel) { kernel.refuses = true; });
  }

  std::shared_ptr<Net> create(ModelBuilder& model) {
    if (GetParam() == Form::model_file) {
      return CreateNet(model.info(), model.configuration(), fakes_.kernels, context_);
    }
    return CreateNet(model.info(), model.inference_configuration(), fakes_.kernels, context_);
  }

  std::shared_ptr<Context> context_;
  FakeRegistry fakes_;
  test::LogCapture log_;
};

INSTANTIATE_TEST_SUITE_P(Forms, CreateNetTest,
                         ::testing::Values(Form::model_file, Form::application),
                         [](const auto& form) {
                           return form.param == Form::model_file ? "ModelFile" : "Application";
                         });

std::shared_ptr<LayerInfo> described_by(uint16_t code) {
  auto info = std::make_shared<LayerInfo>();
  info->type = code;
  return info;
}

TEST_P(CreateNetTest, OneInputLayerGivesAOneLayerNetWithOneEntryInItsInputMap) {
  KernelRegistry kernels;
  InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  auto model = ModelBuilder().input("x");
  const auto net =
      GetParam() == Form::model_file
          ? CreateNet(model.info(), model.configuration(), kernels, context_)
          : CreateNet(model.info(), model.inference_configuration(), kernels, context_);
  ASSERT_THAT(net->layers, SizeIs(1));
  EXPECT_EQ(net->layers[0]->name, "Input");
  EXPECT_EQ(net->layers[0]->kernel->GetKernelName(), "Input_Fallback_M1");
  EXPECT_TRUE(net->layers[0]->kernel->IsConfigured());
  EXPECT_THAT(net->input_map, ElementsAre(Pair("x", 0u)));
}

TEST_P(CreateNetTest, NoLayersGiveAnEmptyNet) {
  ModelBuilder model;
  const auto net = create(model);
  EXPECT_THAT(net->layers, IsEmpty());
  EXPECT_THAT(net->input_map, IsEmpty());
}

TEST_P(CreateNetTest, LayersAreInTheOrderOfTheListAndWiredByTheirIds) {
  auto model = ModelBuilder()
                   .input("x", "in")
                   .layer("p", {"x"}, described_by(1), "a")
                   .input("y", "in")
                   .layer("q", {"y", "p", "x"}, described_by(2), "b");
  const auto net = create(model);
  ASSERT_THAT(net->layers, SizeIs(4));
  EXPECT_THAT(net->layers[1]->inputs, ElementsAre(Pair(0u, 0u)));
  EXPECT_THAT(net->layers[3]->inputs, ElementsAre(Pair(2u, 0u), Pair(1u, 0u), Pair(0u, 0u)));
  EXPECT_THAT(net->layers[0]->consumers, ElementsAre(Pair(1u, 0u), Pair(3u, 2u)));
  EXPECT_THAT(net->layers[1]->consumers, ElementsAre(Pair(3u, 1u)));
  EXPECT_THAT(net->layers[2]->consumers, ElementsAre(Pair(3u, 0u)));
  EXPECT_THAT(net->layers[3]->consumers, IsEmpty());
  EXPECT_THAT(net->input_map, ElementsAre(Pair("x", 0u), Pair("y", 2u)));
}

TEST_P(CreateNetTest, TwoInputsThatNameOneSourceGiveTwoEntriesOnBothSides) {
  auto model = ModelBuilder().input("x", "in").layer("sum", {"x", "x"}, described_by(11), "a");
  const auto net = create(model);
  EXPECT_THAT(net->layers[1]->inputs, ElementsAre(Pair(0u, 0u), Pair(0u, 0u)));
  EXPECT_THAT(net->layers[0]->consumers, ElementsAre(Pair(1u, 0u), Pair(1u, 1u)));
}

TEST_P(CreateNetTest, UnknownIdIsWiredToLayer0WithoutAWord) {
  auto model = ModelBuilder().input("x", "in").input("y", "in").layer("p", {"nowhere", "y"},
                                                                      described_by(1), "a");
  const auto net = create(model);
  EXPECT_THAT(net->layers[2]->inputs, ElementsAre(Pair(0u, 0u), Pair(1u, 0u)));
  EXPECT_THAT(net->layers[0]->consumers, ElementsAre(Pair(2u, 0u)));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_P(CreateNetTest, RepeatedIdStandsForItsLastPosition) {
  auto model =
      ModelBuilder().input("x", "in").input("x", "in").layer("p", {"x"}, described_by(1), "a");
  const auto net = create(model);
  ASSERT_THAT(net->layers, SizeIs(3));
  EXPECT_THAT(net->layers[2]->inputs, ElementsAre(Pair(1u, 0u)));
  EXPECT_THAT(net->layers[0]->consumers, IsEmpty());
  EXPECT_THAT(net->layers[1]->consumers, ElementsAre(Pair(2u, 0u)));
  EXPECT_THAT(net->input_map, ElementsAre(Pair("x", 1u)));
}

TEST_P(CreateNetTest, SourceAfterItsConsumerThrowsAndNamesBoth) {
  auto model = ModelBuilder()
                   .input("x", "in")
                   .layer("early", {"late"}, described_by(1), "a")
                   .layer("late", {"x"}, described_by(1), "a");
  EXPECT_THAT(failure_of([&] { create(model); }),
              AllOf(HasSubstr("\"early\""), HasSubstr("\"late\"")));
}

TEST_P(CreateNetTest, LayerThatReadsItselfThrows) {
  auto model = ModelBuilder().input("x", "in").layer("loop", {"loop"}, described_by(1), "a");
  EXPECT_THAT(failure_of([&] { create(model); }), HasSubstr("\"loop\""));
}

TEST_P(CreateNetTest, FirstLayerThatReadsAnUnknownIdThrows) {
  auto model = ModelBuilder().layer("first", {"nowhere"}, described_by(1), "a");
  EXPECT_THAT(failure_of([&] { create(model); }), HasSubstr("\"first\""));
}

TEST_P(CreateNetTest, LayerNamesFollowTheTypeCode) {
  ModelBuilder model;
  for (uint16_t code = 0; code < 300; ++code) {
    model.layer(std::to_string(code), {}, described_by(code), "a");
  }
  model.layer("65535", {}, described_by(65535), "a");
  const auto net = create(model);
  for (uint16_t code = 0; code < 300; ++code) {
    EXPECT_EQ(net->layers[code]->name, LayerTypeName(code)) << code;
  }
  EXPECT_EQ(net->layers[2]->name, "Conv2d");
  EXPECT_EQ(net->layers[300]->name, "UnKnown");
  EXPECT_THAT(net->input_map, ElementsAre(Pair("0", 0u)));
}

TEST_P(CreateNetTest, SoftmaxOfCode32IsNamedUnKnownAndRunsAllTheSame) {
  auto model =
      ModelBuilder().input("x", "in").layer("s", {"x"}, std::make_shared<SoftmaxInfo>(), "a");
  ASSERT_EQ(model.info()->squential_types[1], 32);
  const auto net = create(model);
  EXPECT_EQ(net->layers[1]->name, "UnKnown");
  const float x = 5.0f;
  const auto result = net->Forward({{0, context_->cpu->CreateF32CMainMemory(1, &x)}}, {1}, context_,
                                   nullptr, nullptr);
  EXPECT_EQ(*static_cast<float*>(result.at(1).at(0)->handle.cpu), 5.0f);
}

TEST_P(CreateNetTest, KernelsGetTheirDescriptionAndParameterAndConvertersNeither) {
  const auto info = described_by(2);
  const auto param = std::make_shared<InferenceParamConv2DQuant>();
  auto model = ModelBuilder()
                   .input("x", "in")
                   .layer("p", {"x"}, info, "a")
                   .kernel_param(param)
                   .input_converter("0", "conv1")
                   .output_converter("0", "conv2");
  create(model);
  ASSERT_THAT(called(*fakes_.calls, KernelCall::config), ElementsAre("in", "conv1", "a", "conv2"));
  const auto& calls = *fakes_.calls;
  EXPECT_EQ(calls[1].info, nullptr);
  EXPECT_EQ(calls[1].param, nullptr);
  EXPECT_EQ(calls[2].info, info);
  EXPECT_EQ(calls[2].param, param);
  EXPECT_EQ(calls[3].info, nullptr);
}

TEST_P(CreateNetTest, InputConverter1LeavesPosition0WithoutOne) {
  auto model = ModelBuilder()
                   .input("x", "in")
                   .layer("sum", {"x", "x"}, described_by(11), "a")
                   .input_converter("1", "conv1");
  const auto net = create(model);
  ASSERT_THAT(net->layers[1]->input_converters, SizeIs(1));
  EXPECT_EQ(net->layers[1]->input_converters.at(1)->GetKernelName(), "conv1");
  EXPECT_THAT(net->layers[1]->output_converters, IsEmpty());
}

TEST_P(CreateNetTest, ConvertersOfBothSidesKeepTheirPositions) {
  auto model = ModelBuilder()
                   .input("x", "in")
                   .layer("p", {"x"}, described_by(11), "a")
                   .input_converter("2", "conv1")
                   .input_converter("0", "conv2")
                   .output_converter("3", "b")
                   .output_converter("1", "c");
  const auto net = create(model);
  const Layer& layer = *net->layers[1];
  ASSERT_THAT(layer.input_converters, SizeIs(2));
  EXPECT_EQ(layer.input_converters.at(0)->GetKernelName(), "conv2");
  EXPECT_EQ(layer.input_converters.at(2)->GetKernelName(), "conv1");
  ASSERT_THAT(layer.output_converters, SizeIs(2));
  EXPECT_EQ(layer.output_converters.at(1)->GetKernelName(), "c");
  EXPECT_EQ(layer.output_converters.at(3)->GetKernelName(), "b");
}

TEST_P(CreateNetTest, RefusingConverterLeavesAnEmptyEntryWithoutAWord) {
  auto model = ModelBuilder()
                   .input("x", "in")
                   .layer("p", {"x"}, described_by(1), "a")
                   .input_converter("0", "refuser")
                   .output_converter("4", "refuser");
  const auto net = create(model);
  EXPECT_THAT(net->layers[1]->input_converters, ElementsAre(Pair(0u, nullptr)));
  EXPECT_THAT(net->layers[1]->output_converters, ElementsAre(Pair(4u, nullptr)));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_P(CreateNetTest, MissingKernelThrowsAndNamesTheLayerAndTheKernel) {
  auto model =
      ModelBuilder().input("x", "in").layer("first conv", {"x"}, described_by(2), "NoSuchKernel");
  EXPECT_THAT(failure_of([&] { create(model); }),
              AllOf(HasSubstr("\"first conv\""), HasSubstr("\"NoSuchKernel\""), HasSubstr("Conv2d"),
                    HasSubstr("layer 1")));
}

TEST_P(CreateNetTest, MissingConverterKernelThrowsAndNamesTheLayerAndTheKernel) {
  auto model = ModelBuilder()
                   .input("x", "in")
                   .layer("p", {"x"}, described_by(1), "a")
                   .output_converter("0", "NoSuchConverter");
  EXPECT_THAT(failure_of([&] { create(model); }),
              AllOf(HasSubstr("\"p\""), HasSubstr("\"NoSuchConverter\"")));
}

TEST_P(CreateNetTest, KernelNamesCompareByCase) {
  auto model = ModelBuilder().input("x", "IN");
  EXPECT_THAT(failure_of([&] { create(model); }), HasSubstr("\"IN\""));
}

TEST_P(CreateNetTest, LayerWithoutADescriptionThrowsAndIsNamed) {
  auto model = ModelBuilder().input("x", "in");
  model.info()->layers.clear();
  EXPECT_THAT(failure_of([&] { create(model); }), HasSubstr("\"x\""));
}

TEST_P(CreateNetTest, TraceTextsReachNoSinkWhateverTheMask) {
  utility::SetLogLevel(0xFFFFFFFF);
  auto model = ModelBuilder()
                   .input("x", "in")
                   .layer("p", {"x"}, described_by(1), "a")
                   .input_converter("0", "refuser");
  create(model);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

#if QRT_WITH_EXTENSIONS && QRT_WITH_AVX
TEST_P(CreateNetTest, SaysWhichCallEntersAKernelOfTheSecondSet) {
  KernelRegistry kernels;
  InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  auto model = ModelBuilder().input("x", "Input_Fallback_M1");
  model.activation("r", "x", "ReLU_AVX512_Float_M1");
  const auto create = [&] {
    GetParam() == Form::model_file
        ? CreateNet(model.info(), model.configuration(), kernels, context_)
        : CreateNet(model.info(), model.inference_configuration(), kernels, context_);
  };
  EXPECT_THAT(test::failure_of(create),
              HasSubstr("is not in the registry; init_register_extension_operators"));
  utility::init_register_extension_operators(kernels, params);
  EXPECT_EQ(test::failure_of(create), "");
}
#endif

TEST_P(CreateNetTest, ModelTreeMayGoAwayAfterwards) {
  std::shared_ptr<Net> net;
  {
    auto model = ModelBuilder()
                     .input("x", "Input_Fallback_M1")
                     .conv2d("c", "x", test::plane_convolution(1, 1, 1, {3.0f}, {1.0f}));
    const auto& kernels = test::all_kernels();
    net = GetParam() == Form::model_file
              ? CreateNet(model.info(), model.configuration(), kernels, context_)
              : CreateNet(model.info(), model.inference_configuration(), kernels, context_);
  }
  const float x = 2.0f;
  const auto result = net->Forward({{0, context_->cpu->CreateF32CHWMainMem({1, 1, 1}, &x)}}, {1},
                                   context_, nullptr, nullptr);
  EXPECT_EQ(*static_cast<float*>(result.at(1).at(0)->handle.cpu), 7.0f);
}

TEST_P(CreateNetTest, MemoryOfTheKernelsComesFromTheStaticPool) {
  auto model = ModelBuilder()
                   .input("x", "Input_Fallback_M1")
                   .conv2d("c", "x", test::plane_convolution(1, 1, 1, {3.0f}));
  const auto net = CreateNet(model.info(), model.configuration(), test::all_kernels(), context_);
  EXPECT_GT(context_->cpu->static_pool->TotalBytes(), 0u);
  EXPECT_EQ(context_->cpu->dynamic_pool->TotalBytes(), 0u);
  EXPECT_FALSE(context_->cpu->dynamic_mode);
}

// What only the configuration of a model file does.
class CreateNetFromModelFileTest : public CreateNetTest {};
INSTANTIATE_TEST_SUITE_P(Form, CreateNetFromModelFileTest, ::testing::Values(Form::model_file));

TEST_P(CreateNetFromModelFileTest, ConverterIdThatIsNoNumberLandsAtKey0) {
  auto model = ModelBuilder()
                   .input("x", "in")
                   .layer("p", {"x"}, described_by(1), "a")
                   .input_converter("abc", "conv1")
                   .output_converter("7seven", "conv2");
  const auto net = create(model);
  EXPECT_EQ(net->layers[1]->input_converters.at(0)->GetKernelName(), "conv1");
  EXPECT_EQ(net->layers[1]->output_converters.at(7)->GetKernelName(), "conv2");
}

TEST_P(CreateNetFromModelFileTest, LaterConverterReplacesAnEarlierOneOfTheSameKey) {
  auto model = ModelBuilder()
                   .input("x", "in")
                   .layer("p", {"x"}, described_by(1), "a")
                   .input_converter("zero", "conv1")
                   .input_converter("00", "conv2");
  const auto net = create(model);
  ASSERT_THAT(net->layers[1]->input_converters, SizeIs(1));
  EXPECT_EQ(net->layers[1]->input_converters.at(0)->GetKernelName(), "conv2");
}

TEST_P(CreateNetFromModelFileTest, ConverterIdWithoutAnEntryThrowsAndIsNamed) {
  auto model = ModelBuilder().input("x", "in").layer("p", {"x"}, described_by(1), "a");
  model.configuration()->layer_cfgs["p"]->input_converters->kernel_ids = {"3"};
  EXPECT_THAT(failure_of([&] { create(model); }), AllOf(HasSubstr("\"p\""), HasSubstr("\"3\"")));
}

TEST_P(CreateNetFromModelFileTest, RefusingKernelThrowsAnExceptionThatHoldsOnlyTheTag) {
  auto model = ModelBuilder().input("x", "in").layer("p", {"x"}, described_by(1), "refuser");
  EXPECT_EQ(failure_of([&] { create(model); }), "[QRT]: ");
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_P(CreateNetFromModelFileTest, ConfigurationIsLookedUpByIdAndNotByPosition) {
  auto model = ModelBuilder().input("x", "in").layer("p", {"x"}, described_by(1), "a");
  model.configuration()->squential_ids = {"p", "x"};
  const auto net = create(model);
  EXPECT_EQ(net->layers[1]->kernel->GetKernelName(), "a");
}

TEST_P(CreateNetFromModelFileTest, LayerThatTheConfigurationLacksThrowsAndIsNamed) {
  auto model = ModelBuilder().input("x", "in").layer("p", {"x"}, described_by(1), "a");
  model.configuration()->layer_cfgs.erase("p");
  EXPECT_THAT(failure_of([&] { create(model); }), HasSubstr("\"p\""));
}

TEST_P(CreateNetFromModelFileTest, NullModelOrConfigurationThrows) {
  ModelBuilder model;
  EXPECT_NE(
      failure_of([&] { CreateNet(nullptr, model.configuration(), fakes_.kernels, context_); }), "");
  EXPECT_NE(failure_of([&] {
              CreateNet(model.info(), std::shared_ptr<QRModelCfg>(), fakes_.kernels, context_);
            }),
            "");
}

// What only the configuration of an application does.
class CreateNetFromApplicationTest : public CreateNetTest {};
INSTANTIATE_TEST_SUITE_P(Form, CreateNetFromApplicationTest, ::testing::Values(Form::application));

TEST_P(CreateNetFromApplicationTest, RefusingKernelLeavesTheLayerWithoutOneUntilAPassReachesIt) {
  auto model = ModelBuilder().input("x", "in").layer("p", {"x"}, described_by(1), "refuser");
  const auto net = create(model);
  EXPECT_EQ(net->layers[1]->kernel, nullptr);
  const float x = 1.0f;
  const auto tensor = context_->cpu->CreateF32CMainMemory(1, &x);
  EXPECT_THAT(net->Forward({{0, tensor}}, {0}, context_, nullptr, nullptr), SizeIs(1));
  EXPECT_THAT(failure_of([&] {
                net->Forward({{0, tensor}}, {1}, context_, nullptr, nullptr);
              }),
              AllOf(HasSubstr("layer 1"), HasSubstr("Activation")));
}

TEST_P(CreateNetFromApplicationTest, EntryAtPositionPBelongsToLayerP) {
  auto model = ModelBuilder().input("x", "in").layer("p", {"x"}, described_by(1), "a");
  auto config = model.inference_configuration();
  std::swap(config->layers[0], config->layers[1]);
  const auto net = CreateNet(model.info(), config, fakes_.kernels, context_);
  EXPECT_EQ(net->layers[0]->kernel->GetKernelName(), "a");
  EXPECT_EQ(net->layers[1]->kernel->GetKernelName(), "in");
}

TEST_P(CreateNetFromApplicationTest, ConverterKeysAreUsedAsTheyStand) {
  auto model = ModelBuilder().input("x", "in").layer("p", {"x"}, described_by(1), "a");
  auto config = model.inference_configuration();
  auto kernel = std::make_shared<KernelInferenceConfig>(nullptr);
  kernel->kernel_type = "conv1";
  config->layers[1].input_converters = {{5, kernel}, {-1, kernel}};
  const auto net = CreateNet(model.info(), config, fakes_.kernels, context_);
  EXPECT_EQ(net->layers[1]->input_converters.count(5), 1u);
  EXPECT_EQ(net->layers[1]->input_converters.count(0xFFFFFFFF), 1u);
}

TEST_P(CreateNetFromApplicationTest, TooFewEntriesThrow) {
  auto model = ModelBuilder().input("x", "in").layer("p", {"x"}, described_by(1), "a");
  auto config = model.inference_configuration();
  config->layers.pop_back();
  EXPECT_THAT(failure_of([&] { CreateNet(model.info(), config, fakes_.kernels, context_); }),
              AllOf(HasSubstr("1 entries"), HasSubstr("2 layers")));
}

TEST_P(CreateNetFromApplicationTest, EntryWithoutAKernelThrowsAndNamesTheLayer) {
  auto model = ModelBuilder().input("x", "in");
  auto config = model.inference_configuration();
  config->layers[0].kernel = nullptr;
  EXPECT_THAT(failure_of([&] { CreateNet(model.info(), config, fakes_.kernels, context_); }),
              HasSubstr("\"x\""));
}

TEST_P(CreateNetFromApplicationTest, TextOfAnApplicationRuns) {
  InferenceParamRegistry params;
  const auto config = CreateConfigFromJSON(
      R"({"config": [
        {"kernel": {"kernel_type": "in", "infer_param_type": ""}},
        {"kernel": {"kernel_type": "a", "infer_param_type": ""},
         "input_converters": {"0": {"kernel_type": "conv1", "infer_param_type": ""}}}]})",
      params);
  auto model = ModelBuilder().input("x", "unused").layer("p", {"x"}, described_by(1), "unused");
  const auto net = CreateNet(model.info(), config, fakes_.kernels, context_);
  const float x = 1.0f;
  net->Forward({{0, context_->cpu->CreateF32CMainMemory(1, &x)}}, {1}, context_, nullptr, nullptr);
  EXPECT_THAT(called(*fakes_.calls, KernelCall::forward), ElementsAre("in", "conv1", "a"));
}

}  // namespace
}  // namespace marlo::test
