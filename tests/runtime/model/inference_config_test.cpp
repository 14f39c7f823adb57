#include "qrt_core/runtime/model/inference_config.h"

#include "qrt_core/qrt_core.h"
#include "tests/runtime/model/classes.h"
#include "tests/runtime/model/file_helpers.h"
#include "tests/support/paths.h"

namespace marlo::test {
namespace {

using runtime::CreateConfigFromJSON;
using runtime::CreateInferenceParam;
using runtime::InferenceParamConv2DQuant;
using runtime::InferenceParamRegistry;
using runtime::KernelCfg;
using runtime::KernelInferenceConfig;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const std::string kKernel = R"({"kernel_type":"k","infer_param_type":""})";

std::string kernel_text(const std::string& name) {
  return R"({"kernel_type":")" + name + R"(","infer_param_type":""})";
}

class Configuration : public ::testing::Test {
 protected:
  Configuration() {
    runtime::KernelRegistry kernels;
    utility::init_register_operators(kernels, params_);
  }

  std::shared_ptr<runtime::InferenceConfig> read(const std::string& text) {
    return CreateConfigFromJSON(text, params_);
  }

  std::string refusal(const std::string& text) {
    return error_of([&] { read(text); });
  }

  InferenceParamRegistry params_;
};

TEST_F(Configuration, OfAnEmptyArrayHasNoEntries) {
  EXPECT_THAT(read(R"({"config":[]})")->layers, IsEmpty());
}

TEST_F(Configuration, WithoutConfigHasNoEntries) { EXPECT_THAT(read("{}")->layers, IsEmpty()); }

TEST_F(Configuration, TakesNullForAbsent) {
  EXPECT_THAT(read(R"({"config":null})")->layers, IsEmpty());
  const auto config = read(R"({"config":[{"input_converters":null,"output_converters":null,)"
                           R"("kernel":)" +
                           kKernel + "}]}");
  ASSERT_EQ(config->layers.size(), 1u);
  EXPECT_THAT(config->layers[0].input_converters, IsEmpty());
  EXPECT_THAT(config->layers[0].output_converters, IsEmpty());
}

TEST_F(Configuration, OfAnEntryWithOnlyAKernelHasTwoEmptyConverterMaps) {
  const auto config = read(R"({"config":[{"kernel":)" + kKernel + "}]}");
  ASSERT_EQ(config->layers.size(), 1u);
  EXPECT_EQ(config->layers[0].name, "");
  EXPECT_EQ(config->layers[0].kernel->kernel_type, "k");
  EXPECT_EQ(config->layers[0].kernel->infer_param, nullptr);
  EXPECT_THAT(config->layers[0].input_converters, IsEmpty());
  EXPECT_THAT(config->layers[0].output_converters, IsEmpty());
}

TEST_F(Configuration, KeepsEntriesInOrderAndConvertersByTheirIndex) {
  const auto config = read(contents(test::test_data_path("models/config.json")));
  ASSERT_EQ(config->layers.size(), 2u);
  EXPECT_EQ(config->layers[0].kernel->kernel_type, "Input_Fallback_M1");
  const runtime::LayerInferenceConfig& layer = config->layers[1];
  EXPECT_EQ(layer.input_converters.at(0)->kernel_type, "Straight_Through_Fallback_M1");
  EXPECT_EQ(layer.output_converters.at(1)->kernel_type, "ReLU_Fallback_Float_M1");
  const auto param =
      std::dynamic_pointer_cast<InferenceParamConv2DQuant>(layer.kernel->infer_param);
  ASSERT_NE(param, nullptr);
  EXPECT_EQ(param->weight_step_size, 7);
  EXPECT_EQ(param->output_step_size, -3);
}

TEST_F(Configuration, WithConverterKeysThatAreNotNumbersPutsThemAt0AndTheLastWins) {
  const auto config = read(R"({"config":[{"kernel":)" + kKernel + R"(,"input_converters":{"abc":)" +
                           kernel_text("first") + R"(,"":)" + kernel_text("second") + R"(,"x1":)" +
                           kernel_text("last") + R"(,"2nd":)" + kernel_text("at two") +
                           R"(,"-3":)" + kernel_text("below") + "}}]}");
  const auto& converters = config->layers[0].input_converters;
  ASSERT_EQ(converters.size(), 3u);
  EXPECT_EQ(converters.at(0)->kernel_type, "last");
  EXPECT_EQ(converters.at(2)->kernel_type, "at two");
  EXPECT_EQ(converters.at(-3)->kernel_type, "below");
}

TEST_F(Configuration, OfABadTextIsRefused) {
  for (const char* const text : {"", "{", "[]", "1", "null", "{} {}"}) {
    EXPECT_THAT(refusal(text), HasSubstr("the configuration text is not a JSON object")) << text;
  }
}

TEST_F(Configuration, OfWrongKindsIsRefusedByName) {
  EXPECT_THAT(refusal(R"({"config":{}})"),
              HasSubstr("\"config\": expected an array, found an object"));
  EXPECT_THAT(refusal(R"({"config":[1]})"),
              HasSubstr("entry 0 of \"config\": expected an object, found a number"));
  EXPECT_THAT(refusal(R"({"config":[{"kernel":)" + kKernel + R"(,"input_converters":[]}]})"),
              HasSubstr("\"input_converters\" of a layer's configuration: expected an object, "
                        "found an array"));
  EXPECT_THAT(refusal(R"({"config":[{"kernel":)" + kKernel + R"(,"output_converters":"x"}]})"),
              HasSubstr("\"output_converters\" of a layer's configuration: expected an object"));
  EXPECT_THAT(refusal(R"({"config":[{"kernel":{"kernel_type":1,"infer_param_type":""}}]})"),
              HasSubstr("\"kernel_type\" in the document: expected a string, found a number"));
}

TEST_F(Configuration, WithoutAKernelNamesTheEntry) {
  EXPECT_THAT(refusal(R"({"config":[{"kernel":)" + kKernel + R"(},{}]})"),
              HasSubstr("\"kernel\" is missing in entry 1 of \"config\""));
}

TEST_F(Configuration, WithoutAKernelsTextsNamesTheMissingKey) {
  EXPECT_THAT(refusal(R"({"config":[{"kernel":{"infer_param_type":""}}]})"),
              HasSubstr("\"kernel_type\" is missing"));
  EXPECT_THAT(refusal(R"({"config":[{"kernel":{"kernel_type":"k"}}]})"),
              HasSubstr("\"infer_param_type\" is missing"));
  EXPECT_THAT(refusal(R"({"config":[{"kernel":1}]})"), HasSubstr("\"kernel_type\" is missing"));
}

TEST_F(Configuration, WithAParameterThatIsNotRegisteredNamesIt) {
  EXPECT_THAT(refusal(R"({"config":[{"kernel":{"kernel_type":"k",
                          "infer_param_type":"InferenceParamActQuant"}}]})"),
              HasSubstr("infer_param_type \"InferenceParamActQuant\" of kernel \"k\" is not "
                        "registered"));
}

TEST_F(Configuration, MakesAParameterWithDefaultsWhenItsObjectIsAbsent) {
  const auto config = read(R"({"config":[{"kernel":{"kernel_type":"k",
                               "infer_param_type":"InferenceParamUpsampling2DQuant"}}]})");
  EXPECT_NE(config->layers[0].kernel->infer_param, nullptr);
}

TEST_F(Configuration, ReadsAKernelOfItsOwnVersion) {
  EXPECT_THAT(refusal(R"({"config":[{"kernel":{"serialization_protocol_version":20016,
                          "kernel_type":"k","infer_param_type":""}}]})"),
              HasSubstr("_serialization_protocol_version > __SERIALIZATION_PROTOCOL_VERSION__."));
}

TEST_F(Configuration, KernelIsWrittenAndReadInBothForms) {
  KernelInferenceConfig kernel(&params_);
  kernel.kernel_type = "k";
  kernel.infer_param_type = "InferenceParamConv2DQuant";
  auto param = std::make_shared<InferenceParamConv2DQuant>();
  param->weight_step_size = 3;
  kernel.infer_param = param;
  const std::string body =
      counted("k") + counted("InferenceParamConv2DQuant") + le(3, 2) + le(0, 2);
  EXPECT_EQ(written(kernel, "bin"), binary_file(body));
  EXPECT_EQ(written(kernel, "json").find("serializable_type"), std::string::npos);
  KernelInferenceConfig other(&params_);
  ASSERT_TRUE(read_bytes(other, binary_file(body)));
  EXPECT_EQ(written(other, "bin"), binary_file(body));
  EXPECT_EQ(other.GetClassTypeName(), "KernelInferenceConfig");
}

TEST_F(Configuration, KernelWithAnEmptyTypeVisitsNothingMore) {
  KernelInferenceConfig kernel(&params_);
  kernel.infer_param = std::make_shared<InferenceParamConv2DQuant>();
  EXPECT_EQ(written(kernel, "bin"), binary_file(counted("") + counted("")));
}

TEST(KernelCfg, OfTheConvolutionsParameterReads4BytesOfItInTheBinaryForm) {
  KernelCfg kernel;
  ASSERT_TRUE(read_bytes(kernel, binary_file(counted("k") + counted("InferenceParamConv2DQuant") +
                                             le(0xFFFF, 2) + le(5, 2))));
  const auto param = std::dynamic_pointer_cast<InferenceParamConv2DQuant>(kernel.infer_param);
  ASSERT_NE(param, nullptr);
  EXPECT_EQ(param->weight_step_size, -1);
  EXPECT_EQ(param->output_step_size, 5);
}

TEST(KernelCfg, OfAnUnknownParameterHasNoneAndVisitsNothingMore) {
  KernelCfg kernel;
  const LogCapture log;
  ASSERT_TRUE(read_bytes(kernel, binary_file(counted("k") + counted("Unknown"))));
  EXPECT_EQ(kernel.infer_param, nullptr);
  EXPECT_EQ(kernel.infer_param_type, "Unknown");
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(written(kernel, "bin"), binary_file(counted("k") + counted("Unknown")));
}

TEST(KernelCfg, VisitsTheParameterThatItHoldsWhateverItsTypeSays) {
  KernelCfg kernel;
  kernel.infer_param_type = "Unknown";
  auto param = std::make_shared<InferenceParamConv2DQuant>();
  param->output_step_size = 2;
  kernel.infer_param = param;
  const TemporaryFolder folder;
  const std::string path = folder.file("walked");
  std::FILE* const file = std::fopen(path.c_str(), "wb");
  kernel.VisitAttr(std::make_shared<runtime::FILEWriter>(file, true));
  std::fclose(file);
  EXPECT_EQ(contents(path), binary_file(counted("") + counted("Unknown") + le(0, 2) + le(2, 2)));
}

TEST(QRModelMultiBackendCfgs, OfVersion20007HasNoArmv82AndKeepsIt) {
  runtime::QRModelMultiBackendCfgs cfgs;
  const auto as_made = cfgs.cpu_armv82;
  as_made->summary = "as made";
  std::string body;
  for (const char* const name : {"sse", "avx", "v7", "v8", "gl", "metal", "cuda"}) {
    body += counted(name) + le(0, 8);
  }
  ASSERT_TRUE(read_bytes(cfgs, binary_file(body, 20007)));
  EXPECT_EQ(cfgs.cpu_armv82, as_made);
  EXPECT_EQ(cfgs.cpu_armv82->summary, "as made");
  EXPECT_EQ(cfgs.cpu_sse->summary, "sse");
  EXPECT_EQ(cfgs.cpu_avx->summary, "avx");
  EXPECT_EQ(cfgs.cpu_armv7->summary, "v7");
  EXPECT_EQ(cfgs.cpu_armv8->summary, "v8");
  EXPECT_EQ(cfgs.gpu_opengl->summary, "gl");
  EXPECT_EQ(cfgs.gpu_metal->summary, "metal");
  EXPECT_EQ(cfgs.gpu_cuda->summary, "cuda");
  ASSERT_TRUE(read_bytes(cfgs, binary_file(body + counted("v82") + le(0, 8), 20008)));
  EXPECT_EQ(cfgs.cpu_armv82->summary, "v82");
}

TEST(QRModelCfg, MakesADefaultObjectForAnIdWithoutMember) {
  runtime::QRModelCfg cfg;
  cfg.FromJsonString(R"({"summary":"s","squential_ids":["a"]})");
  ASSERT_EQ(cfg.layer_cfgs.count("a"), 1u);
  const runtime::LayerCfg& layer = *cfg.layer_cfgs["a"];
  EXPECT_EQ(layer.kernel->kernel_type, "");
  EXPECT_NE(layer.input_converters, nullptr);
  EXPECT_NE(layer.output_converters, nullptr);
}

TEST(QRModelCfg, KeepsConvertersByTheirIds) {
  runtime::LayerCfg layer;
  layer.FromJsonString((R"({"summary":"","input_converters":{"kernel_ids":["1","0"],"1":)" +
                        kernel_text("one") + R"(,"0":)" + kernel_text("zero") + R"(},"kernel":)" +
                        kKernel + "}")
                           .c_str());
  EXPECT_THAT(layer.input_converters->kernel_ids, ElementsAre("1", "0"));
  EXPECT_EQ(layer.input_converters->kernel_cfgs["1"]->kernel_type, "one");
  EXPECT_EQ(layer.input_converters->kernel_cfgs["0"]->kernel_type, "zero");
}

TEST(InferenceParamMetalComputeFusedActivation, DefaultHasActivationNone) {
  EXPECT_EQ(runtime::InferenceParamMetalComputeFusedActivation().activation, "none");
}

TEST(CreateInferenceParam, KnowsIts22Names) {
  const std::vector<const char*> names = {
      "InferenceParamActQuant",
      "InferenceParamFullConnectionQuant",
      "InferenceParamUpsampling2DQuant",
      "InferenceParamConv2DQuant",
      "InferenceParamOpenGLCompute",
      "InferenceParamConv2DOpenGLCompute",
      "InferenceParamElementwiseOpenGLCompute",
      "InferenceParamConcatOpenGLCompute",
      "InferenceParamPixelShuffleOpenGLCompute",
      "InferenceParamPooling2DOpenGLCompute",
      "InferenceParamFullConnectionOpenGLCompute",
      "InferenceParamTensorReshapeOpenGLCompute",
      "InferenceParamTensorExpandOpenGLCompute",
      "InferenceParamBroadcastOpenGLCompute",
      "InferenceParamActivationOpenGLCompute",
      "InferenceParamUpsampling2DOpenGLCompute",
      "InferenceParamLuaCustomMetalCompute",
      "InferenceParamMetalComputeFusedActivation",
      "InferenceParamConv2dMetalCompute",
      "InferenceParamElementwiseMetalCompute",
      "InferenceParamConcatenateMetalCompute",
      "InferenceParamMetalComputeCommon",
  };
  ASSERT_EQ(names.size(), 22u);
  for (const char* const name : names) {
    const auto param = CreateInferenceParam(name);
    ASSERT_NE(param, nullptr) << name;
    EXPECT_EQ(param->GetClassTypeName(), name);
  }
}

TEST(CreateInferenceParam, GivesNullForAnyOtherName) {
  for (const char* const name : {"", "InferenceParam", "ActQuant", "inferenceparamactquant",
                                 "InferenceParamActQuant ", "InferenceParamOpenGLActivation"}) {
    EXPECT_EQ(CreateInferenceParam(name), nullptr) << name;
    EXPECT_EQ(CreateInferenceParam(nullptr), nullptr);
  }
}

}  // namespace
}  // namespace marlo::test
