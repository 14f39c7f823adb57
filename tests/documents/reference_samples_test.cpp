// The samples of docs/file-formats.md and of the public headers' comments, as they stand there.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qrt_core/qrt_core.h>

#include <cmath>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "qrt_core/kernel/basic/activation.h"
#include "tests/documents/working_folder.h"
#include "tests/support/paths.h"
#include "tests/support/temporary_folder.h"

namespace marlo::test {
namespace {

using ::testing::ElementsAre;

#if QRT_WITH_SSE
TEST(FileFormats, TheSmallestModelRuns) {
  const TemporaryFolder temporary;
  const WorkingFolder folder(temporary.file(""));
  write_text("net.json",
#include "samples/smallest_model.inc"
  );
  std::shared_ptr<runtime::Context> context;
  utility::create_context(context, 32);
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
  ASSERT_EQ(utility::load_model("net.json", nets, context, kernels, params, "qrt", 1, 0), 0);
  auto& net = *nets.at("net");
  const float numbers[] = {-1, 2};
  net.input_tensors[0] = context->cpu->CreateF32CMainMemory(2, numbers);
  const auto results =
      net.net->Forward(net.input_tensors, net.output_ids, context, nullptr, nullptr);
  const auto* values = static_cast<const float*>(results.at(1).at(0)->handle.cpu);
  EXPECT_THAT(std::vector<float>(values, values + 2), ElementsAre(0, 2));
}
#endif

// The bytes of a listing: an offset, pairs of hexadecimal digits, and behind two blanks what they
// mean. Other lines are headings.
std::string bytes_of_listing(const std::string& listing) {
  std::string bytes;
  std::istringstream lines(listing);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    size_t offset = 0;
    if (!(words >> offset)) continue;
    EXPECT_EQ(offset, bytes.size()) << line;
    const size_t first =
        line.find_first_not_of(' ', line.find_first_of(' ', line.find_first_not_of(' ')));
    std::istringstream pairs(line.substr(first, line.find("  ", first) - first));
    for (std::string pair; pairs >> pair;) {
      bytes += static_cast<char>(std::stoi(pair, nullptr, 16));
    }
  }
  return bytes;
}

TEST(FileFormats, TheSmallestModelHasTheListedBytes) {
  const TemporaryFolder folder;
  runtime::QRTModel model;
  model.FromJsonString(
#include "samples/smallest_model.inc"
  );
  ASSERT_TRUE(model.ToFile(folder.file("net.qrtmodel").c_str(), "bin"));
  std::ifstream file(folder.file("net.qrtmodel"), std::ios::binary);
  const std::string written{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const std::string listed = bytes_of_listing(
#include "samples/smallest_model_bytes.inc"
  );
  EXPECT_EQ(listed.size(), 645u);
  EXPECT_TRUE(listed == written);
}

void expect_input_and_relu(const std::string& text) {
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  const auto config = runtime::CreateConfigFromJSON(text, params);
  ASSERT_EQ(config->layers.size(), 2u);
  EXPECT_EQ(config->layers[0].kernel->kernel_type, "Input_Fallback_M1");
  EXPECT_EQ(config->layers[1].kernel->kernel_type, "ReLU_SSE_Float_M1");
}

TEST(FileFormats, TheConfigurationTextIsRead) {
  const std::string text =
#include "samples/configuration_text.inc"
      ;
  expect_input_and_relu(text);
  runtime::InferenceParamRegistry params;
  const auto config = runtime::CreateConfigFromJSON(text, params);
  EXPECT_EQ(config->layers[1].output_converters.at(0)->kernel_type, "Straight_Through_Fallback_M1");
}

TEST(FileFormats, TheConvertersOfAModelAreRead) {
  runtime::LayerCfg layer;
  layer.FromJsonString(
#include "samples/converters_in_a_model.inc"
  );
  const auto& converters = layer.input_converters->kernel_cfgs;
  ASSERT_EQ(converters.count("0"), 1u);
  EXPECT_EQ(converters.at("0")->kernel_type,
            "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1");
  EXPECT_TRUE(layer.output_converters->kernel_cfgs.empty());
}

TEST(Headers, TheConfigurationTextOfInferenceConfigIsRead) {
  expect_input_and_relu(
#include "samples/inference_config_h.inc"
  );
}

// Offsets and bytes as the table gives them.
TEST(FileFormats, ATimeInfoHasTheseBytes) {
  const TemporaryFolder folder;
  runtime::TimeInfo time;
  time.year = 2026;
  time.moon = 11;
  time.day = 21;
  time.hour = 7;
  time.min = 30;
  time.sec = 59;
  ASSERT_TRUE(time.ToFile(folder.file("time").c_str(), "bin"));
  std::ifstream file(folder.file("time"), std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const auto number = [](unsigned char low, unsigned char high) {
    return std::string{static_cast<char>(low), static_cast<char>(high), 0, 0};
  };
  const std::string length{8, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(bytes, number(0x2F, 0x4E) + length + "TimeInfo" + number(0xEA, 7) + number(11, 0) +
                       number(21, 0) + number(7, 0) + number(30, 0) + number(59, 0));
  EXPECT_EQ(bytes.size(), 44u);
}

TEST(Headers, TheSampleOfSerializableWritesAPoint) {
  using runtime::Serializable;
  using runtime::Visitor;
  const TemporaryFolder temporary;
  const WorkingFolder folder(temporary.file(""));
#include "samples/serializable_h.inc"
  Point copy;
  copy.x = 5;
  copy.FromFile("point.json", "json");
  EXPECT_EQ(copy.x, 0);
}

TEST(Headers, TheSampleOfClassRegistryMakesAKernel) {
  using namespace runtime;
  using Mine = kernel::ReLU_Fallback_Float_M1;
#include "samples/class_registry_h.inc"
  ASSERT_NE(kernel, nullptr);
  EXPECT_EQ(kernel->GetKernelName(), "ReLU_Fallback_Float_M1");
}

#if QRT_WITH_SSE
TEST(Headers, TheSampleOfTheUmbrellaReadsADigit) {
  const WorkingFolder folder(test::source_path("models/digits"));
  const std::vector<float> white(28 * 28, 1.0f);
  const float* pixels = white.data();
#include "samples/qrt_core_h.inc"
  const auto* logits = static_cast<const float*>(outputs.at(package.output_ids[0])[0]->handle.cpu);
  for (int digit = 0; digit < 10; ++digit) EXPECT_TRUE(std::isfinite(logits[digit])) << digit;
}

TEST(Headers, TheSampleOfModelReadsADigit) {
  const WorkingFolder folder(test::source_path("models/digits"));
  const std::vector<float> pixels(28 * 28, 1.0f);
#include "samples/model_h.inc"
  EXPECT_EQ(results[0].elements().size(), 10u);
}

TEST(Headers, TheSampleOfCheckModelNamesAMissingFile) {
  using utility::check_model;
  using utility::finding_text;
  ::testing::internal::CaptureStderr();
#include "samples/check_model_h.inc"
  EXPECT_NE(::testing::internal::GetCapturedStderr().find("net.json"), std::string::npos);
}

// Whether a pass may run, as an application asks.
std::string refusal(utility::_NetworkPackage& package,
                    const std::shared_ptr<runtime::Tensor>& image,
                    const std::shared_ptr<runtime::Context>& context) {
  using utility::check_shapes;
  const auto refuse = [](const std::string& fault) { return fault; };
#include "samples/check_shapes_h.inc"
  return "";
}

TEST(Headers, TheSampleOfCheckShapesRefusesAnotherSize) {
  const WorkingFolder folder(test::source_path("models/digits"));
  std::shared_ptr<runtime::Context> context;
  utility::create_context(context, 32);
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
  ASSERT_EQ(utility::load_model("digits.qrtmodel", nets, context, kernels, params, "qrt", 1, 0), 0);
  auto& package = *nets.at("digits");
  EXPECT_EQ(refusal(package, context->cpu->CreateF32CHWMainMem({1, 28, 28}, nullptr), context), "");
  EXPECT_NE(refusal(package, context->cpu->CreateF32CHWMainMem({2, 28, 28}, nullptr), context), "");
}
#endif

TEST(Headers, TheSampleOfYuvImageMakesPlanes) {
  using namespace kernel;
  std::shared_ptr<runtime::Context> context;
  utility::create_context(context, 32);
  std::vector<unsigned char> bytes(yuv420_bytes(480, 640), 128);
  unsigned char* frame = bytes.data();
#include "samples/yuv_image_h.inc"
  const auto* values = static_cast<const unsigned char*>(planes->RawPointer());
  EXPECT_THAT(std::vector<int>(values, values + 2), ElementsAre(128, 128));
}

TEST(Headers, TheSampleOfErrorsTellsTheStory) {
  using utility::load_model;
  const TemporaryFolder temporary;
  const WorkingFolder folder(temporary.file(""));
  std::shared_ptr<runtime::Context> context;
  utility::create_context(context, 32);
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
  // No kernel is registered.
  write_text("net.json",
#include "samples/smallest_model.inc"
  );
  const std::string path = "net.json";
  testing::internal::CaptureStderr();
#include "samples/errors_h.inc"
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("Input_Fallback_M1"));
}

TEST(Headers, TheSampleOfElementsReadsNumbers) {
  using runtime::elements;
  std::shared_ptr<runtime::Context> context;
  utility::create_context(context, 32);
  const float logits[] = {0, 1};
  const unsigned int output = 7;
  const std::map<unsigned int, std::vector<std::shared_ptr<runtime::Tensor>>> results{
      {output, {context->cpu->CreateF32CMainMemory(2, logits)}}};
  float sum = 0;
#include "samples/elements_h.inc"
  EXPECT_FLOAT_EQ(sum, 1 + std::exp(1.0f));
}

TEST(Headers, TheSampleOfTimeMetricsMeasures) {
  using utility::TimeMetrics;
  int calls = 0;
  const auto work = [&calls] { ++calls; };
#include "samples/time_metrics_h.inc"
  EXPECT_EQ(calls, 1);
  EXPECT_GE(timer.avg(), 0);
}

}  // namespace
}  // namespace marlo::test
