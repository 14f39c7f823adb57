#include <gmock/gmock.h>

#include "qrt_core/utility/build_options.h"
#include "tests/support/legacy_writer.h"
#include "tests/support/model_builder.h"
#include "tests/support/paths.h"
#include "tests/tools/tool_runner.h"
#include "tools/qrt/npy.h"

// `qrt convert` on networks of the earlier generation.

namespace qrt_tool_test {
namespace {

using marlo::test::LegacyConvolution;
using marlo::test::LegacyWriter;
using marlo::test::ramp;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::FloatNear;
using ::testing::HasSubstr;
using ::testing::Pointwise;

/// A picture of 2 x 3, its convolution of 1x1 to two planes (weights 2 and -1, biases 0.5 and 0),
/// cut at 0.
LegacyWriter toy_network(uint16_t activation = 2) {
  LegacyConvolution mix;
  mix.out = {1, 2};
  mix.weights = {2, -1};
  mix.biases = {0.5f, 0};
  mix.activation = activation;
  return LegacyWriter(10001, 2, 3).input(0).convolution(mix);
}

LegacyWriter one_input(uint16_t channels = 1) {
  return LegacyWriter(10001, 2, 3).input(0, 1, {1, channels});
}

class ConvertOldTest : public ToolTest {
 protected:
  Outcome convert(const LegacyWriter& file, std::initializer_list<std::string> options = {},
                  const std::string& to = "new.qrtmodel") {
    file.save(path("old.qrm"));
    std::vector<std::string> all = {"convert", path("old.qrm"), path(to)};
    all.insert(all.end(), options);
    return qrt(all);
  }

  Outcome convert_with_rules(const LegacyWriter& file, const std::string& rules) {
    write_text(path("rules.txt"), rules);
    return convert(file, {"--config", path("rules.txt")});
  }

  // The kernels of the converted network, in execution order.
  std::vector<std::string> kernels(const std::string& from = "new.qrtmodel") {
    marlo::runtime::QRTModel model;
    model.FromFile(path(from).c_str(), from.find(".json") == std::string::npos ? "bin" : "json");
    std::vector<std::string> names;
    const auto& config = *model.config_arr->cfgs.at("old")->cpu_sse;
    for (const std::string& id : model.model_arr->infos.at("old")->squential_ids) {
      names.push_back(config.layer_cfgs.at(id)->kernel->kernel_type);
    }
    return names;
  }

  // The values of the converted network for one input.
  std::vector<double> run(const std::string& shape, const std::vector<float>& input,
                          const std::string& model = "new.qrtmodel") {
    write_array("x.npy", shape, input);
    const Outcome outcome =
        qrt({"run", path(model), "--input", path("x.npy"), "--output", path("y.npy")});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    const auto values = qrt_tool::parse_npy(file_text(path("y.npy"))).values;
    return {values.begin(), values.end()};
  }
};

TEST_F(ConvertOldTest, MakesAModelThatRuns) {
  const Outcome outcome = convert(toy_network());
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, HasSubstr("new.qrtmodel (model, "));
  EXPECT_THAT(kernels(),
              ElementsAre("Input_Fallback_M1", "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",
                          "ReLU_Fallback_Float_M1"));
  write_text(path("p.pgm"), toy_picture());
  EXPECT_EQ(qrt({"run", path("new.qrtmodel"), "--input", path("p.pgm")}).out,
            "layer-1  FLOAT32 CHW 2x2x3\n0.5 0.899999976 1.29999995 1.70000005 2.0999999 2.5 "
            "0 0 0 0 0 0\n");
  const Outcome info = qrt({"info", path("new.qrtmodel")});
  EXPECT_EQ(info.code, 0);
  EXPECT_THAT(info.out, AllOf(HasSubstr("layer-1!"), HasSubstr("layer-1")));
}

TEST_F(ConvertOldTest, RulesThatMatchNothingAreSaid) {
  const Outcome outcome = convert_with_rules(
      toy_network(), "Activation 2 = ReLU_Fallback_Float_M1\n\nLSTM = LSTM_Fallback_SC_F32_M1\n");
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.err,
              AllOf(HasSubstr("warning: "), HasSubstr("rules.txt: line 3: no layer of "),
                    HasSubstr("\"LSTM\"\n"), ::testing::Not(HasSubstr("line 1"))));
}

TEST_F(ConvertOldTest, WritesJsonToo) {
  EXPECT_EQ(convert(toy_network(), {}, "new.json").code, 0);
  EXPECT_EQ(kernels("new.json").size(), 3u);
  EXPECT_EQ(run("(1, 2, 3)", {0, 1, 2, -1, -2, -3}, "new.json"),
            (std::vector<double>{0.5, 2.5, 4.5, 0, 0, 0, 0, 0, 0, 1, 2, 3}));
}

TEST_F(ConvertOldTest, TakesFilesOfAnyNameWithAnOption) {
  toy_network().save(path("weights.bin"));
  EXPECT_EQ(qrt({"convert", path("weights.bin"), path("new.qrtmodel")}).code, 2);
  EXPECT_EQ(qrt({"convert", path("weights.bin"), path("new.qrtmodel"), "--isa", "portable"}).code,
            0);
}

// Three kinds of convolution that have an SSE kernel of their own, two that have not.
TEST_F(ConvertOldTest, ChoosesSseKernelsThatGiveEqualResults) {
  if (!QRT_WITH_SSE) {
    EXPECT_THAT(convert(toy_network(), {"--isa", "sse"}).err, HasSubstr("no SSE kernels"));
    GTEST_SKIP() << "no SSE kernels in this build";
  }
  LegacyConvolution point;
  point.out = {1, 4};
  point.weights = ramp(4);
  point.biases = ramp(4);
  point.activation = 6;
  LegacyConvolution window = point;
  window.id = 2;
  window.input = 1;
  window.in = {1, 4};
  window.kernel_x = window.kernel_y = 3;
  window.padding_x = window.padding_y = 1;
  window.weights = ramp(4 * 4 * 9);
  window.activation = 3;
  LegacyConvolution depthwise = window;
  depthwise.code = 3;
  depthwise.id = 3;
  depthwise.input = 2;
  depthwise.weights = ramp(36);
  depthwise.activation = 0;
  LegacyConvolution grouped = window;
  grouped.id = 4;
  grouped.input = 3;
  grouped.groups = 2;
  grouped.weights = ramp(4 * 2 * 9);
  grouped.activation = 0;
  const auto file = one_input()
                        .convolution(point)
                        .convolution(window)
                        .convolution(depthwise)
                        .convolution(grouped)
                        .element_wise(5, {4, 3}, 2, 2)
                        .full_connection(6, 5, 24, 1, 1, ramp(24), {1});
  ASSERT_EQ(convert(file, {"--isa", "sse"}).code, 0);
  EXPECT_THAT(
      kernels(),
      ElementsAre("Input_Fallback_M1", "Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1",
                  "Leaky_SSE_Float_M1", "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1",
                  "TanH_Fallback_Float_M1", "Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1",
                  "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1", "Elementwise_Mul_SSE_Float_M1",
                  "ReLU_SSE_Float_M1", "Reshape_Fallback_To_C_M1",
                  "FullConnection_SSE_C_Float_M1"));
  const std::vector<float> input = ramp(6, -2.5f);
  const std::vector<double> found = run("(1, 2, 3)", input);
  ASSERT_EQ(convert(file).code, 0);
  const std::vector<double> expected = run("(1, 2, 3)", input);
  ASSERT_EQ(expected.size(), 1u);
  EXPECT_NEAR(found[0], expected[0], 1e-5 * std::abs(expected[0]));
}

TEST_F(ConvertOldTest, RulesNameKernelsByTypeActivationAndLayer) {
  const auto file = toy_network(8)
                        .activation(2, 1, 8, 1, 0)
                        .activation(3, 2, 2, 1, 0)
                        .activation(4, 3, 1, 1, 0)
                        .tensor_squeeze(5, 4, 1);
  const Outcome outcome = convert_with_rules(file,
                                             "# an old network\r\n"
                                             "\n"
                                             "Activation = ReLU6_Fallback_Float_M1\n"
                                             "Activation  3=HSwish_Fallback_Float_M1# type 3\n"
                                             "  layer-2 = HSigmoid_Fallback_Float_M1  \n"
                                             "TensorSqueeze = Straight_Through_Fallback_M1\n"
                                             "default = portable");
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(kernels(),
              ElementsAre("Input_Fallback_M1", "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",
                          "HSwish_Fallback_Float_M1", "HSigmoid_Fallback_Float_M1",
                          "ReLU6_Fallback_Float_M1", "ReLU6_Fallback_Float_M1",
                          "Straight_Through_Fallback_M1"));
}

#if QRT_WITH_SSE
TEST_F(ConvertOldTest, TheFirstKernelThatTakesTheLayerIsChosen) {
  LegacyConvolution window;
  window.in = {1, 2};
  window.out = {1, 2};
  window.id = 2;
  window.input = 1;
  window.kernel_x = window.kernel_y = 3;
  window.weights = ramp(36);
  window.biases = ramp(2);
  LegacyConvolution grouped = window;
  grouped.id = 3;
  grouped.input = 2;
  grouped.groups = 2;
  grouped.weights = ramp(18);
  const std::string rules =
      "Conv2d = Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1, "
      "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1\n";
  const auto file = toy_network(0).convolution(window).convolution(grouped);
  EXPECT_EQ(convert_with_rules(file, rules).code, 0);
  EXPECT_THAT(kernels(),
              ElementsAre("Input_Fallback_M1", "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1",
                          "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1",
                          "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1"));
  const Outcome none = convert_with_rules(file, rules.substr(0, rules.find(',')));
  EXPECT_EQ(none.code, 4);
  EXPECT_THAT(none.err, AllOf(HasSubstr("old.qrm: layer \"layer-1\" (Conv2d): "),
                              HasSubstr("rules.txt: line 1: no kernel of this rule takes it: "
                                        "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1: refused")));
}

TEST_F(ConvertOldTest, TheRulesInTheDocumentsWork) {
  const std::string page = file_text(marlo::test::source_path("docs/file-formats.md"));
  const size_t begin = page.find("# the rest of a line is a comment");
  ASSERT_NE(begin, std::string::npos);
  const std::string rules = page.substr(begin, page.find("```", begin) - begin);
  const auto file = toy_network(8).tensor_squeeze(2, 1, 0).activation(12, 2, 3, 1, 0);
  const Outcome outcome = convert_with_rules(file, rules);
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(
      kernels(),
      ElementsAre("Input_Fallback_M1", "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1",
                  "HSwish_SSE_Float_M1", "Straight_Through_Fallback_M1", "TanH_SSE_Float_M1"));
}

TEST_F(ConvertOldTest, TheCommandLineGoesBeforeTheDefaultOfTheRules) {
  write_text(path("rules.txt"), "default = sse\n");
  EXPECT_EQ(convert(toy_network(), {"--config", path("rules.txt")}).code, 0);
  EXPECT_EQ(kernels().back(), "ReLU_SSE_Float_M1");
  EXPECT_EQ(convert(toy_network(), {"--config", path("rules.txt"), "--isa", "portable"}).code, 0);
  EXPECT_EQ(kernels().back(), "ReLU_Fallback_Float_M1");
}
#endif

// x * scale / sqrt(variance + eps) + shift - mean * (the same factor), per channel.
TEST_F(ConvertOldTest, BatchNormalizationBecomesAConvolution) {
  const auto file =
      one_input(2).batch_normalization(1, 0, 2, {0.5f, 3, 1, -2, 4, 0.25f, 7, 0.125f});
  ASSERT_EQ(convert(file, {}, "new.json").code, 0);
  EXPECT_THAT(kernels("new.json"),
              ElementsAre("Input_Fallback_M1", "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1"));
  const std::vector<float> input = ramp(12, -5);
  std::vector<double> expected;
  for (size_t i = 0; i < 12; ++i) {
    const bool first = i < 6;
    const double x = input[i] - (first ? 7 : 0.125);
    const double deviation = std::sqrt((first ? 4 : 0.25) + double{1e-5f});
    expected.push_back(first ? x * 0.5 / deviation + 1 : x * 3 / deviation - 2);
  }
  EXPECT_THAT(run("(2, 2, 3)", input, "new.json"), Pointwise(FloatNear(1e-5f), expected));
  // The binary form cuts the two factors and offsets to halves.
  ASSERT_EQ(convert(file).code, 0);
  EXPECT_THAT(run("(2, 2, 3)", input), Pointwise(FloatNear(0.1f), expected));

  const auto tiny = one_input(1).batch_normalization(1, 0, 1, {60000, 0, 0, 0});
  const Outcome outcome = convert(tiny);
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err, HasSubstr("expected numbers of at most 65504"));
}

// All kernels of transposed convolutions compute the same of an old layer, though they read
// descriptions differently.
TEST_F(ConvertOldTest, TransposedConvolutionsAreFittedToTheirKernel) {
  LegacyConvolution layer;
  layer.code = 2;
  layer.in = {1, 2};
  layer.out = {1, 3};
  layer.kernel_x = layer.kernel_y = 3;
  layer.stride_x = layer.stride_y = 2;
  layer.padding_x = 1;
  layer.padding_y = 0;
  layer.weights = ramp(3 * 9 * 2, -20);
  layer.biases = ramp(3);
  const std::vector<float> input = ramp(12, -4);
  // Each input adds the filter times itself to the full result, of which columns are cut off.
  const int height = 5;
  const int width = 5;
  std::vector<double> expected;
  for (int o = 0; o < 3; ++o) {
    std::vector<double> full(static_cast<size_t>(height * 7), o + 1.0);
    for (int i = 0; i < 2; ++i) {
      for (int y = 0; y < 2; ++y) {
        for (int x = 0; x < 3; ++x) {
          for (int tap = 0; tap < 9; ++tap) {
            const int row = 2 * y + tap / 3;
            const int column = 2 * x + tap % 3;
            full[static_cast<size_t>(row * 7 + column)] +=
                double{input[static_cast<size_t>((i * 2 + y) * 3 + x)]} *
                layer.weights[static_cast<size_t>((o * 9 + tap) * 2 + i)];
          }
        }
      }
    }
    for (int y = 0; y < height; ++y) {
      const auto row = full.begin() + y * 7 + 1;
      expected.insert(expected.end(), row, row + width);
    }
  }
  for (const std::string set : {"portable", "sse"}) {
    if (set == "sse" && !QRT_WITH_SSE) continue;
    ASSERT_EQ(convert(one_input(2).convolution(layer), {"--isa", set}).code, 0);
    EXPECT_EQ(kernels().back(), set == "sse"
                                    ? "ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1"
                                    : "ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1");
    EXPECT_EQ(run("(2, 2, 3)", input), expected) << set;
  }
}

TEST_F(ConvertOldTest, ConcatenationJoinsTheAxisThatTheOldFileMeans) {
  const std::vector<float> input = {0, 1, 2, 3, 4, 5};
  const std::vector<std::vector<double>> expected = {{0, 1, 2, 3, 4, 5, 0, 1, 2, 3, 4, 5},
                                                     {0, 1, 2, 3, 4, 5, 0, 1, 2, 3, 4, 5},
                                                     {0, 1, 2, 0, 1, 2, 3, 4, 5, 3, 4, 5}};
  const char* const shapes[] = {"CHW 2x2x3", "CHW 1x4x3", "CHW 1x2x6"};
  for (uint16_t axis = 0; axis < 3; ++axis) {
    // A convolution in front says that the input is one plane.
    LegacyConvolution same;
    same.id = 9;
    same.weights = {1};
    same.biases = {0};
    ASSERT_EQ(convert(one_input().convolution(same).concatenate(1, {9, 9}, axis)).code, 0);
    EXPECT_EQ(run("(1, 2, 3)", input), expected[axis]);
    EXPECT_THAT(qrt({"run", path("new.qrtmodel"), "--input", path("x.npy")}).out,
                HasSubstr(shapes[axis]));
  }
}

TEST_F(ConvertOldTest, ReshapesGoByTheirNumberOfSizes) {
  const auto file = one_input()
                        .tensor_reshape(1, 0, {1, 0xFFFF})
                        .tensor_reshape(2, 0, {1, 2, 3})
                        .tensor_reshape(3, 0, {2, 1, 3})
                        .tensor_reshape(4, 0, {1, 3, 2, 1});
  ASSERT_EQ(convert(file).code, 0);
  EXPECT_THAT(
      kernels(),
      ElementsAre("Input_Fallback_M1", "Reshape_Fallback_To_C_M1", "Reshape_Fallback_To_SC_M1",
                  "Transform_MainMemory_Reshape_Fallback", "Reshape_Fallback_To_CHW_M1"));
}

TEST_F(ConvertOldTest, FullConnectionsBehindOneAnotherReadRowsDirectly) {
  const auto file = one_input()
                        .full_connection(1, 0, 6, 2, 0, ramp(12), {0, 0})
                        .activation(2, 1, 2, 1, 0)
                        .full_connection(3, 2, 2, 1, 1, {1, -1}, {10});
  ASSERT_EQ(convert(file).code, 0);
  EXPECT_THAT(kernels(), ElementsAre("Input_Fallback_M1", "Reshape_Fallback_To_C_M1",
                                     "FullConnection_Fallback_C_Float_M1", "ReLU_Fallback_Float_M1",
                                     "FullConnection_Fallback_C_Float_M1"));
  // 1 to 6 on 1 to 6 is 91, and on 7 to 12 it is 217.
  EXPECT_THAT(run("(1, 2, 3)", ramp(6)), ElementsAre(91 - 217 + 10));
}

TEST_F(ConvertOldTest, RefusesLayersThatNoKernelRuns) {
  const std::pair<LegacyWriter, std::string> cases[] = {
      {one_input().activation(1, 0, 8, 1, 0),
       "layer \"layer-1\" (Activation): files don't say which function an activation of type 3 is; "
       "expected a rule such as \"Activation 3 = "},
      {one_input().tensor_squeeze(1, 0, 1),
       "layer \"layer-1\" (TensorSqueeze): no kernel knows it; expected a rule such as "
       "\"TensorSqueeze = Straight_Through_Fallback_M1\""},
      {one_input().element_wise(1, {0, 0, 0}, 0), "it has 3 inputs; expected 2"},
      {one_input().concatenate(1, {0}, 1), "it joins 1 input; expected at least 2"},
      {one_input().upsampling(1, 0, 2, 2, 0, 2), "Upsampling2D_Fallback_CHW_Float_M1"},
      {one_input().tensor_reshape(1, 0, {3}), "it has 1 size; expected at least 2"},
      {LegacyWriter().activation(1, 0, 2, 1, 0).input(0),
       "layer \"layer-1\" (Activation): it reads \"layer-0\", which stands behind it in the file"},
      {LegacyWriter(), "the network has no layers"},
      {one_input().record(6).bytes(40), "a layer, or the value of one of its fields, has no "},
      {one_input().activation(1, 7, 2, 1, 0), "it is no whole network of the earlier generation"},
      {one_input(2).convolution([] {
         LegacyConvolution layer;
         layer.code = 3;
         layer.in = {1, 2};
         layer.weights = {1};
         layer.biases = {1};
         return layer;
       }()),
       "a depthwise convolution has unequal numbers of input and output channels"}};
  for (const auto& [file, text] : cases) {
    write_text(path("new.qrtmodel"), "precious");
    const Outcome outcome = convert(file);
    EXPECT_EQ(outcome.code, 4) << text;
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("old.qrm: "), HasSubstr(text)));
    EXPECT_EQ(file_text(path("new.qrtmodel")), "precious");
  }
}

TEST_F(ConvertOldTest, RefusesRulesThatMakeNoSense) {
  const std::pair<std::string, std::string> cases[] = {
    {"Conv2d", "line 1: expected TYPE = KERNEL, found \"Conv2d\""},
    {"\n# x\nconv2d = Input_Fallback_M1", "line 3: \"conv2d\" is no layer; expected default"},
    {"Activation x = Input_Fallback_M1", "line 1: \"Activation x\" is no layer"},
    {"= Input_Fallback_M1", "line 1: \"\" is no layer"},
    {"default = avx", "expected portable or sse as the default, found \"avx\""},
    {"default = portable\ndefault = portable", "line 2: a second default"},
    {"LSTM = A\nLSTM = A", "line 2: a second rule for \"LSTM\""},
    {"Activation 2 = A\nActivation   2 = A", "line 2: a second rule for \"Activation 2\""},
    {"Conv2d =  # none", "line 1: expected the name of a kernel behind the \"=\""},
    {"Conv2d = A, , B", "expected the name of a kernel before and behind each comma"},
    {"Conv2d = ReLU", "line 1: this build has no kernel \"ReLU\"; `qrt kernels` lists"},
    {"layer-9 = Input_Fallback_M1", "old.qrm has no layer \"layer-9\""},
#if QRT_WITH_SSE
    {"Conv2d = Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1",
     "works on blocks of channels; expected a kernel over planes"},
#endif
    {"", "the file is empty"}
  };
  for (const auto& [rules, text] : cases) {
    const Outcome outcome = convert_with_rules(toy_network(), rules);
    EXPECT_EQ(outcome.code, 3) << text;
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("rules.txt: "), HasSubstr(text)));
  }
  EXPECT_EQ(convert(toy_network(), {"--config", path("absent")}).code, 3);
  EXPECT_FALSE(fs::exists(path("new.qrtmodel")));
}

TEST_F(ConvertOldTest, RefusesCommandLinesThatMakeNoSense) {
  const Outcome isa = convert(toy_network(), {"--isa", "avx"});
  EXPECT_EQ(isa.code, 2);
  EXPECT_THAT(isa.err, HasSubstr("--isa avx: expected portable or sse"));
  for (const std::string to : {"new.qrmod", "new.qrcfg"}) {
    const Outcome outcome = convert(toy_network(), {}, to);
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.err, HasSubstr("expected OUT to end in .qrtmodel or .json"));
  }
  EXPECT_EQ(convert(toy_network(), {"--kind", "config"}, "new.json").code, 2);
  EXPECT_EQ(convert(toy_network(), {}, "new.txt").code, 2);
  const Outcome absent = qrt({"convert", path("absent.qrm"), path("new.qrtmodel")});
  EXPECT_EQ(absent.code, 4);
  EXPECT_THAT(absent.err, HasSubstr("absent.qrm: can't be read: No such file"));
  const Outcome unwritable = convert(toy_network(), {}, "absent/new.qrtmodel");
  EXPECT_EQ(unwritable.code, 5);
  toy_network().save(path("same.json"));
  EXPECT_EQ(qrt({"convert", path("same.json"), path("same.json"), "--isa", "portable"}).code, 2);
}

}  // namespace
}  // namespace qrt_tool_test
