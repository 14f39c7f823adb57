#include <gmock/gmock.h>

#include <limits>

#include "tests/tools/tool_runner.h"
#include "tools/qrt/npy.h"

namespace qrt_tool_test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::FloatEq;
using ::testing::HasSubstr;
using ::testing::Not;

class RunTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    write(*toy_model());
    write_text(path("p.pgm"), toy_picture());
  }

  void write(marlo::runtime::QRTModel& model) { model.ToFile(path("m.qrtmodel").c_str(), "bin"); }

  // Runs the model on one input file.
  Outcome run(const std::string& input, std::initializer_list<std::string> more = {}) {
    const std::string model = path("m.qrtmodel");
    const std::string file = path(input);
    const auto* m = more.begin();
    switch (more.size()) {
      case 0:
        return qrt({"run", model, "--input", file});
      case 1:
        return qrt({"run", model, "--input", file, m[0]});
      case 2:
        return qrt({"run", model, "--input", file, m[0], m[1]});
      case 3:
        return qrt({"run", model, "--input", file, m[0], m[1], m[2]});
      default:
        return qrt({"run", model, "--input", file, m[0], m[1], m[2], m[3]});
    }
  }
};

TEST_F(RunTest, PrintsTheOutputOfAPicture) {
  const Outcome outcome = run("p.pgm");
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, "");
  // Twice the grey level / 255 and a half; the second plane is negative and cut.
  EXPECT_EQ(outcome.out,
            "cut  FLOAT32 CHW 2x2x3\n0.5 0.899999976 1.29999995 1.70000005 2.0999999 2.5 "
            "0 0 0 0 0 0\n");
}

TEST_F(RunTest, TracesTheLastPass) {
  const Outcome outcome = run("p.pgm", {"--trace", path("t.json"), "--repeat", "3"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr("wrote " + path("t.json")));
  const std::string trace = file_text(path("t.json"));
  EXPECT_THAT(trace, AllOf(HasSubstr("\"name\":\"mix\""), HasSubstr("ReLU_Fallback_Float_M1"),
                           HasSubstr("\"name\":\"engine\""), HasSubstr("dynamic pool")));
  // One pass, three layers.
  EXPECT_EQ(trace.find("\"cat\":\"pass\""), trace.rfind("\"cat\":\"pass\""));
  const Outcome refused = run("p.pgm", {"--trace", path("no/such/t.json")});
  EXPECT_EQ(refused.code, 5);
}

TEST_F(RunTest, WritesTheOutputOfAnArray) {
  write_array("x.npy", "(1, 2, 3)", {0, 1, 2, -1, -2, -3});
  const Outcome outcome = run("x.npy", {"--output", path("y.npy")});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, HasSubstr("wrote "));
  const qrt_tool::NumberArray array = qrt_tool::parse_npy(file_text(path("y.npy")));
  EXPECT_THAT(array.sizes, ElementsAre(2u, 2u, 3u));
  EXPECT_THAT(array.values, ElementsAre(0.5f, 2.5f, 4.5f, 0, 0, 0, 0, 0, 0, 1, 2, 3));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 6);
}

TEST_F(RunTest, ArraysOfFourAndTwoDimensionsAreFitted) {
  write_array("four.npy", "(1, 1, 2, 3)", {0, 1, 2, -1, -2, -3});
  write_array("two.npy", "(2, 3)", {0, 1, 2, -1, -2, -3});
  EXPECT_THAT(run("four.npy").out, HasSubstr("CHW 2x2x3\n0.5 2.5 4.5"));
  EXPECT_THAT(run("two.npy").out, HasSubstr("CHW 2x2x3\n0.5 2.5 4.5"));
}

TEST_F(RunTest, ArraysMayHaveAnySizeThatTheLayersTake) {
  write_array("x.npy", "(1, 1, 1)", {3});
  EXPECT_THAT(run("x.npy").out, HasSubstr("CHW 2x1x1\n6.5 0\n"));
}

TEST_F(RunTest, JsonHasTheValues) {
  const Outcome outcome = run("p.pgm", {"--json"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("\"sizes\": [2, 2, 3]"), HasSubstr("\"values\": [0.5, 0.899999976"),
                    HasSubstr("\"passes\": 1")));
}

TEST_F(RunTest, TopShowsLabelsSharesAndBars) {
  write_array("x.npy", "(1, 1, 1)", {0.5});
  write_text(path("labels"), "light\ndark\n");
  const Outcome outcome = run("x.npy", {"--top", "5", "--labels", path("labels")});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  // exp(1.5) against exp(0)
  EXPECT_THAT(outcome.out, AllOf(HasSubstr(" 1. light   81.76 %  \u2588\u2588"),
                                 HasSubstr(" 2. dark    18.24 %  \u2588\u2588")));
  EXPECT_EQ(run("x.npy", {"--top", "1", "--no-softmax"}).out, " 1. 0  1.5\n");
}

TEST_F(RunTest, TopNeedsOneValuePerLabel) {
  const Outcome planes = run("p.pgm", {"--top", "1"});
  EXPECT_EQ(planes.code, 5);
  EXPECT_THAT(planes.err, HasSubstr("--top expects one value per label, but output \"cut\" is "
                                    "FLOAT32 CHW 2x2x3"));
  write_array("x.npy", "(1, 1, 1)", {0.5});
  write_text(path("labels"), "a\nb\nc\n");
  const Outcome labels = run("x.npy", {"--top", "1", "--labels", path("labels")});
  EXPECT_EQ(labels.code, 3);
  EXPECT_THAT(labels.err, HasSubstr("expected 2 labels, one per value of \"cut\"; found 3"));
}

TEST_F(RunTest, PreviewStandsBesideTheScores) {
  const Outcome outcome = run("p.pgm", {"--preview", "--repeat", "3"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("\u2584"), HasSubstr("ms (median of 3)")));
}

TEST_F(RunTest, ProfileNamesEveryLayerAndKernel) {
  const Outcome outcome = run("p.pgm", {"--profile", "--repeat", "5"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("0  in "), HasSubstr("Input_Fallback_M1"), HasSubstr("1  mix "),
                    HasSubstr("2  cut "), HasSubstr("between the kernels"), HasSubstr("100.0 %")));
}

TEST_F(RunTest, RepeatedPassesOfAnInPlaceKernelStartFromTheInput) {
  auto model = toy_model();
  auto& info = *model->model_arr->infos["net"];
  info.layers["cut"]->input_ids = {"in"};
  dynamic_cast<marlo::runtime::ActivationInfo&>(*info.layers["cut"]).weight =
      marlo::runtime::Base64Encode(reinterpret_cast<const unsigned char*>("\0\0\0\x3F"), 4);
  kernel_of(*model, "cut") = "PReLU_Fallback_Float_M1";
  write(*model);
  write_array("x.npy", "(1, 1, 2)", {-8, 1});
  EXPECT_THAT(run("x.npy", {"--repeat", "4"}).out, HasSubstr("\n-4 1\n"));
}

TEST_F(RunTest, PictureOfAnotherSizeNamesTheExpectedOne) {
  write_text(path("big.pgm"), std::string("P5 4 4 255\n") + std::string(16, '\x40'));
  const Outcome outcome = run("big.pgm");
  EXPECT_EQ(outcome.code, 3);
  EXPECT_THAT(outcome.err,
              HasSubstr("big.pgm: the picture is 4x4 (width by height); the model expects 3x2"));
  EXPECT_EQ(run("big.pgm", {"--any-size"}).code, 0);
}

TEST_F(RunTest, ArrayThatNoLayerTakesNamesTheLayer) {
  write_array("x.npy", "(2, 2, 2)", {1, 2, 3, 4, 5, 6, 7, 8});
  const Outcome outcome = run("x.npy");
  EXPECT_EQ(outcome.code, 3);
  EXPECT_THAT(outcome.err, AllOf(HasSubstr("x.npy (FLOAT32 CHW 2x2x2; the model expects 1x2x3)"),
                                 HasSubstr("layer 1 \"mix\" (Conv2d, kernel Conv2D_"),
                                 HasSubstr("input 0: expected 1 channel, found 2 channels")));
}

TEST_F(RunTest, InputsThatCannotBeReadAreNamed) {
  write_text(path("empty.png"), "");
  write_text(path("noise.png"), "noise");
  write_text(path("noise.npy"), "noise");
  const auto refusal = [&](const std::string& name) {
    const Outcome outcome = run(name);
    EXPECT_EQ(outcome.code, 3) << name;
    EXPECT_EQ(outcome.out, "") << name;
    EXPECT_THAT(outcome.err, HasSubstr(name + ": "));
    return outcome.err;
  };
  EXPECT_THAT(refusal("absent.png"), HasSubstr("No such file"));
  EXPECT_THAT(refusal("empty.png"), HasSubstr("the file is empty"));
  EXPECT_THAT(refusal("noise.png"), HasSubstr("expected PNG, JPEG, BMP or PGM"));
  EXPECT_THAT(refusal("noise.npy"), HasSubstr("this is not an .npy file"));
}

TEST_F(RunTest, NumberAndNamesOfInputsAreChecked) {
  const Outcome none = qrt({"run", path("m.qrtmodel")});
  EXPECT_EQ(none.code, 2);
  EXPECT_THAT(none.err, HasSubstr("expected 1 input file (--input) for network \"net\", which "
                                  "reads \"in\"; found 0"));
  EXPECT_EQ(qrt({"run", path("m.qrtmodel"), "-i", path("p.pgm"), "-i", path("p.pgm")}).code, 2);
  EXPECT_EQ(qrt({"run", path("m.qrtmodel"), "-i", "in=" + path("p.pgm")}).code, 0);
}

TEST_F(RunTest, OutputThatCannotBeWrittenIsNamed) {
  const Outcome absent = run("p.pgm", {"--output", path("absent/y.npy")});
  EXPECT_EQ(absent.code, 5);
  EXPECT_THAT(absent.err, AllOf(HasSubstr("absent/y.npy: can't be written: No such file"),
                                Not(HasSubstr("wrote"))));
  EXPECT_EQ(run("p.pgm", {"--output", "/dev/null.npy/y.npy"}).code, 5);
  EXPECT_EQ(run("p.pgm", {"--output", path("y.txt")}).code, 2);
}

TEST_F(RunTest, RefusedLayerOfAModelIsNamed) {
  auto model = toy_model();
  mix_of(*model).weight.clear();
  write(*model);
  const Outcome outcome = run("p.pgm");
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err,
              AllOf(HasSubstr("m.qrtmodel: network \"net\", layer 1 \"mix\" (Conv2d, kernel "),
                    HasSubstr("weight: expected 1 x 2 x 1 x 1 x 1 numbers, found 0")));
}

TEST_F(RunTest, ConverterThatRefusesIsNamed) {
  auto model = toy_model();
  auto& layer = *model->config_arr->cfgs["net"]->cpu_sse->layer_cfgs["mix"];
  auto converter = std::make_shared<marlo::runtime::KernelCfg>();
  converter->kernel_type = "ReLU_Fallback_Float_M1";
  layer.input_converters->kernel_ids = {"0"};
  layer.input_converters->kernel_cfgs["0"] = converter;
  write(*model);
  const Outcome outcome = run("p.pgm");
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err, HasSubstr("input converter 0 (ReLU_Fallback_Float_M1): "));
}

TEST_F(RunTest, ModelWithoutOutputsFailsTheRun) {
  auto model = toy_model();
  model->model_arr->infos["net"]->squential_output_ids.clear();
  write(*model);
  const Outcome outcome = run("p.pgm");
  EXPECT_EQ(outcome.code, 5);
  EXPECT_THAT(outcome.err, HasSubstr("expected outputs in \"squential_output_ids\", found none"));
}

TEST_F(RunTest, AModelThatAsksForTooMuchMemoryIsRefused) {
  auto model = toy_model();
  auto& mix = mix_of(*model);
  mix.padding_l = mix.padding_r = mix.padding_t = mix.padding_b = 65535;
  write(*model);
  const Outcome outcome = run("p.pgm");
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err, AllOf(HasSubstr("layer 1 \"mix\""), HasSubstr("MiB")));
}

TEST_F(RunTest, AFaultOfTheModelIsNotBlamedOnTheInput) {
  auto model = toy_model();
  mix_of(*model).in_channels = 1;
  auto& info = *model->model_arr->infos["net"];
  auto second = std::make_shared<marlo::runtime::Conv2dInfo>(mix_of(*model));
  second->id = "second";
  second->input_ids = {"mix"};  // two channels, of which it reads one
  info.squential_ids.push_back("second");
  info.squential_types.push_back(2);
  info.layers["second"] = second;
  auto& config = *model->config_arr->cfgs["net"]->cpu_sse;
  config.squential_ids.push_back("second");
  config.layer_cfgs["second"] = config.layer_cfgs["mix"];
  write(*model);
  const Outcome outcome = run("p.pgm");
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(
      outcome.err,
      AllOf(HasSubstr("m.qrtmodel: network \"net\" can't run on the sizes that it asks for: "
                      "layer 3 \"second\""),
            Not(HasSubstr("p.pgm"))));
}

TEST_F(RunTest, ModelsAndArraysComeFromStandardInput) {
  write_array("x.npy", "(1, 2, 3)", {0, 1, 2, -1, -2, -3});
  const Outcome array = qrt({"run", path("m.qrtmodel"), "--input", "-"}, path("x.npy"));
  EXPECT_EQ(array.code, 0) << array.err;
  EXPECT_THAT(array.out, HasSubstr("0.5 2.5 4.5"));
  const Outcome model = qrt({"run", "-", "--input", path("x.npy")}, path("m.qrtmodel"));
  EXPECT_EQ(model.code, 0) << model.err;
  EXPECT_EQ(model.out, array.out);
  toy_model()->ToFile(path("m.json").c_str(), "json");
  EXPECT_THAT(qrt({"info", "-"}, path("m.json")).out,
              AllOf(HasSubstr("file      standard input"), HasSubstr("network   net")));
  const Outcome both = qrt({"run", "-", "--input", "-"});
  EXPECT_EQ(both.code, 2);
  EXPECT_THAT(both.err, HasSubstr("standard input (-) can be read once only"));
  const Outcome empty = qrt({"info", "-"});
  EXPECT_EQ(empty.code, 4);
  EXPECT_THAT(empty.err, HasSubstr("standard input: can't be read: the file is empty"));
}

TEST_F(RunTest, ArraysGoToStandardOutput) {
  write_array("x.npy", "(1, 1, 2)", {3, -1});
  const Outcome outcome = run("x.npy", {"--output", "-"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(qrt_tool::parse_npy(outcome.out).values, ElementsAre(6.5f, 0, 0, 1));
  EXPECT_EQ(run("x.npy", {"--output", "-", "--json"}).code, 2);
}

TEST_F(RunTest, NumbersThatAreNoneAreSaid) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  write_array("x.npy", "(1, 1, 3)", {nan, 1, std::numeric_limits<float>::infinity()});
  const Outcome outcome = run("x.npy");
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.err, AllOf(HasSubstr("qrt: warning: "),
                                 HasSubstr("x.npy: 1 of 3 numbers is NaN, 1 is infinite\n"),
                                 HasSubstr("warning: output \"cut\": "), HasSubstr("infinite\n")));
}

TEST_F(RunTest, FourSizesMeanTheSameInArraysAndOnTheCommandLine) {
  auto model = toy_model();
  auto& info = *model->model_arr->infos["net"];
  info.layers["cut"]->input_ids = {"in"};  // nothing demands channels
  info.squential_ids = {"in", "cut"};
  info.squential_types = {0, 1};
  write(*model);
  write_array("x.npy", "(1, 2, 1, 3)", {1, 2, 3, 4, 5, 6});
  EXPECT_THAT(run("x.npy").out, HasSubstr("cut  FLOAT32 CHW 2x1x3\n"));
  EXPECT_THAT(run("x.npy", {"--keep-batch"}).out, HasSubstr("cut  FLOAT32 FLEXIABLE 1x2x1x3\n"));
  for (const std::string command : {"info", "check"}) {
    EXPECT_THAT(qrt({command, path("m.qrtmodel"), "--input", "1x2x1x3"}).out,
                AllOf(HasSubstr(" 2x1x3"), Not(HasSubstr("1x2x1x3"))));
    EXPECT_THAT(qrt({command, path("m.qrtmodel"), "--input", "1x2x1x3", "--keep-batch"}).out,
                HasSubstr("FLEXIABLE 1x2x1x3"));
  }
}

TEST_F(RunTest, EveryPassBeginsWithTheStateReset) {
  write(*recurrent_model());
  write_array("x.npy", "(3, 2)", {0.5, -1, 2, 1, 0.25, -0.5});
  const std::string once = run("x.npy").out;
  EXPECT_THAT(once, HasSubstr("FLOAT32 SC 3x1\n"));
  const std::string thrice = run("x.npy", {"--repeat", "3"}).out;
  EXPECT_EQ(thrice.substr(thrice.find('\n') + 1), once);
  const std::string kept = run("x.npy", {"--repeat", "3", "--keep-state"}).out;
  EXPECT_NE(kept.substr(kept.find('\n') + 1), once);
}

TEST_F(RunTest, RecurrentLayersAreCounted) {
  recurrent_model()->ToFile(path("m.json").c_str(), "json");
  // Three steps of 4 gates, each of 2 inputs and 1 hidden number.
  EXPECT_THAT(qrt({"info", path("m.json"), "--input", "3x2"}).out, HasSubstr("36\n"));
}

TEST_F(RunTest, SeveralOutputsGetTheirLayersNames) {
  auto model = toy_model();
  model->model_arr->infos["net"]->squential_output_ids = {"cut", "mix"};
  write(*model);
  EXPECT_EQ(run("p.pgm", {"--output", path("y.npy")}).code, 0);
  EXPECT_TRUE(fs::exists(path("y-cut.npy")));
  EXPECT_TRUE(fs::exists(path("y-mix.npy")));
}

TEST_F(RunTest, SeveralNetworksNeedAChoice) {
  auto model = toy_model();
  model->model_arr->squential_ids.push_back("other");
  model->model_arr->infos["other"] = model->model_arr->infos["net"];
  model->config_arr->squential_ids.push_back("other");
  model->config_arr->cfgs["other"] = model->config_arr->cfgs["net"];
  write(*model);
  EXPECT_EQ(run("p.pgm").code, 2);
  EXPECT_EQ(run("p.pgm", {"--network", "other"}).code, 0);
}

}  // namespace
}  // namespace qrt_tool_test
