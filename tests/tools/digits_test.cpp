#include <gmock/gmock.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <sstream>

#include "qrt_core/qrt_core.h"
#include "qrt_core/utility/build_options.h"
#include "tests/support/paths.h"
#include "tests/tools/tool_runner.h"
#include "tools/qrt/picture.h"

// The model that ships, on its samples, against logits that an independent program computed in
// double precision.

namespace qrt_tool_test {
namespace {

// A pass in float32 that sums as the portable convolution does is 2e-6 off at the most.
constexpr double kTolerance = 2e-5;
const std::string kDigits = marlo::test::source_path("models/digits/");

using Logits = std::vector<float>;

std::map<std::string, std::vector<double>> expected_logits() {
  std::map<std::string, std::vector<double>> expected;
  std::ifstream lines(kDigits + "samples/expected_logits.txt");
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream words(line);
    std::string name;
    words >> name;
    for (double logit = 0; words >> logit;) expected[name].push_back(logit);
  }
  return expected;
}

std::map<std::string, int> sample_digits() {
  std::map<std::string, int> digits;
  std::ifstream lines(kDigits + "samples/labels.txt");
  std::string name;
  for (int digit = 0; lines >> name >> digit;) digits[name] = digit;
  return digits;
}

/// A model file, ready to run.
class DigitsModel {
 public:
  explicit DigitsModel(const std::string& path) {
    marlo::utility::create_context(context_, 32);
    marlo::utility::init_register_operators(kernels_, params_);
    EXPECT_EQ(marlo::utility::load_model(path, networks_, context_, kernels_, params_, "qrt", 1, 0),
              0);
  }

  Logits logits(const std::string& sample) {
    const qrt_tool::Picture picture =
        qrt_tool::parse_picture(file_text(kDigits + "samples/" + sample), 1);
    const std::vector<float> pixels = qrt_tool::planes_of(picture);
    auto& network = *networks_.at("digits");
    network.input_tensors[0] =
        context_->cpu->CreateF32CHWMainMem({1, picture.height, picture.width}, pixels.data());
    auto results =
        network.net->Forward(network.input_tensors, network.output_ids, context_, nullptr, nullptr);
    const auto& output = results.at(network.output_ids.at(0)).at(0);
    EXPECT_EQ(output->shape.dims, (std::vector<uint32_t>{10, 1, 1}));
    const auto* numbers = static_cast<const float*>(output->handle.cpu);
    return Logits(numbers, numbers + 10);
  }

 private:
  std::shared_ptr<marlo::runtime::Context> context_;
  marlo::runtime::KernelRegistry kernels_;
  marlo::runtime::InferenceParamRegistry params_;
  std::map<std::string, std::shared_ptr<marlo::utility::_NetworkPackage>> networks_;
};

class DigitsTest : public ToolTest {
 protected:
  void SetUp() override {
#if !QRT_WITH_SSE
    GTEST_SKIP() << "the model's rectifiers are SSE kernels, which this build leaves out";
#endif
    ToolTest::SetUp();
  }
};

TEST_F(DigitsTest, ShippedModelGivesTheExpectedLogits) {
  DigitsModel model(kDigits + "digits.qrtmodel");
  const auto expected = expected_logits();
  EXPECT_GE(expected.size(), 10u);
  for (const auto& [sample, logits] : expected) {
    ASSERT_EQ(logits.size(), 10u) << sample;
    const Logits found = model.logits(sample);
    for (size_t i = 0; i < 10; ++i) EXPECT_NEAR(found[i], logits[i], kTolerance) << sample;
  }
}

TEST_F(DigitsTest, ShippedModelReadsEverySample) {
  DigitsModel model(kDigits + "digits.qrtmodel");
  const auto digits = sample_digits();
  EXPECT_EQ(digits.size(), expected_logits().size());
  for (const auto& [sample, digit] : digits) {
    const Logits logits = model.logits(sample);
    const auto best = std::max_element(logits.begin(), logits.end()) - logits.begin();
    EXPECT_EQ(best, digit) << sample;
  }
}

TEST_F(DigitsTest, ShippedModelIsWhatTheJsonConvertsTo) {
  ASSERT_EQ(qrt({"convert", kDigits + "digits.json", path("d.qrtmodel")}).code, 0);
  const std::string shipped = file_text(kDigits + "digits.qrtmodel");
  EXPECT_EQ(file_text(path("d.qrtmodel")), shipped);
  EXPECT_LT(shipped.size(), size_t{1} << 20);
}

TEST_F(DigitsTest, JsonAndBinaryGiveTheSameBitsAfterOneBinaryRound) {
  ASSERT_EQ(qrt({"convert", kDigits + "digits.json", path("a.qrtmodel")}).code, 0);
  ASSERT_EQ(qrt({"convert", path("a.qrtmodel"), path("b.json")}).code, 0);
  DigitsModel binary(path("a.qrtmodel"));
  DigitsModel json(path("b.json"));
  for (const auto& [sample, digit] : sample_digits()) {
    const Logits a = binary.logits(sample);
    const Logits b = json.logits(sample);
    EXPECT_EQ(std::memcmp(a.data(), b.data(), a.size() * sizeof(float)), 0) << sample;
  }
}

TEST_F(DigitsTest, TheToolNamesTheDigit) {
  const Outcome outcome =
      qrt({"run", kDigits + "digits.qrtmodel", "--input", kDigits + "samples/three-drawn-1.png",
           "--top", "1", "--labels", kDigits + "labels.txt"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, ::testing::StartsWith(" 1. 3  "));
}

// A photograph of 1280 x 960 with one digit in it, wherever the window is put around the digit.
TEST_F(DigitsTest, TheToolReadsAPhotograph) {
  for (const char* const window : {"560x560+540+220", "480x480+580+260", "640x640+500+180"}) {
    const Outcome outcome =
        qrt({"run", kDigits + "digits.qrtmodel", "--input", kDigits + "samples/photo.jpg", "--crop",
             window, "--resize", "model", "--top", "1", "--labels", kDigits + "labels.txt"});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_THAT(outcome.out, ::testing::StartsWith(" 1. 5  ")) << window;
  }
}

}  // namespace
}  // namespace qrt_tool_test
