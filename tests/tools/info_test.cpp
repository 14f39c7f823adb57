#include <gmock/gmock.h>

#include "tests/tools/tool_runner.h"

namespace qrt_tool_test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr char kMix[] =
    "network \"net\", layer 1 \"mix\" (Conv2d, kernel "
    "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1): ";

class InfoTest : public ToolTest {
 protected:
  // Writes a model as JSON and shows it.
  Outcome info(marlo::runtime::QRTModel& model, std::initializer_list<std::string> more = {}) {
    model.ToFile(path("m.json").c_str(), "json");
    if (more.size() == 2) return qrt({"info", path("m.json"), *more.begin(), *(more.end() - 1)});
    return qrt({"info", path("m.json")});
  }
};

TEST_F(InfoTest, ShowsLayersShapesWeightsAndMultiplyAdds) {
  const Outcome outcome = info(*toy_model());
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("SDK toy 2.5, core 1.0"), HasSubstr("network   net"),
                                 HasSubstr("inputs    in FLOAT32 CHW 1x2x3"),
                                 HasSubstr("outputs   cut FLOAT32 CHW 2x2x3")));
  EXPECT_THAT(outcome.out,
              HasSubstr("1  mix    Conv2d      Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1  "
                        "2x2x3         4         12\n"));
}

TEST_F(InfoTest, TablesFitTheWidth) {
  auto model = toy_model();
  for (const std::string width : {"100", "60"}) {
    std::istringstream lines(info(*model, {"--width", width}).out);
    for (std::string line; std::getline(lines, line);) {
      if (line.rfind("file", 0) == 0) continue;
      EXPECT_LE(line.size(), std::stoul(width)) << line;
    }
  }
}

TEST_F(InfoTest, NamesAreNotCutInAPipe) {
  auto model = toy_model();
  const std::string id(150, 'n');
  auto& info_of_net = *model->model_arr->infos["net"];
  info_of_net.squential_ids[2] = info_of_net.squential_output_ids[0] = id;
  info_of_net.layers[id] = info_of_net.layers["cut"];
  info_of_net.layers.erase("cut");
  auto& config = *model->config_arr->cfgs["net"]->cpu_sse;
  config.squential_ids[2] = id;
  config.layer_cfgs[id] = config.layer_cfgs["cut"];
  EXPECT_THAT(info(*model).out, HasSubstr("2  " + id + "  Activation  ReLU_Fallback_Float_M1"));
  EXPECT_THAT(info(*model, {"--width", "0"}).out, HasSubstr("2  " + id + "  "));
  EXPECT_THAT(info(*model, {"--width", "90"}).out, Not(HasSubstr("2  " + id)));
}

TEST_F(InfoTest, EveryLayoutHasItsName) {
  recurrent_model()->ToFile(path("m.json").c_str(), "json");
  const Outcome outcome = qrt({"check", path("m.json"), "--input", "3x2"});
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("FLOAT32 SC 3x1"), HasSubstr("FLOAT32 CL 3x2")));
  EXPECT_THAT(qrt({"info", path("m.json"), "--input", "3x2", "--json"}).out,
              AllOf(HasSubstr("\"layout\": \"SC\""), HasSubstr("\"layout_code\": 30")));
}

TEST_F(InfoTest, TakesTheInputSizeFromTheCommandLine) {
  const Outcome outcome = info(*toy_model(), {"--input", "1x4x5"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("cut FLOAT32 CHW 2x4x5"), HasSubstr(" 40\n")));
}

TEST_F(InfoTest, InputThatDoesNotFitNamesTheLayer) {
  const Outcome outcome = info(*toy_model(), {"--input", "3x4x5"});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_THAT(outcome.err, AllOf(HasSubstr("m.json: "), HasSubstr("layer 1 \"mix\""),
                                 HasSubstr("input 0: expected 1 channel, found 3 channels")));
}

TEST_F(InfoTest, SizesThatAreNoneAreAUsageError) {
  for (const std::string sizes : {"1x", "x", "0x2x3", "axb", "1x2x3x4x5x6x7x8x9", "-1"}) {
    EXPECT_EQ(info(*toy_model(), {"--input", sizes}).code, 2) << sizes;
  }
}

TEST_F(InfoTest, WithoutAKnownInputSizeShapesAreOpen) {
  auto model = toy_model();
  model->model_arr->infos["net"]->extra_info.model_base_h = 0;
  const Outcome outcome = info(*model);
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.out, HasSubstr("inputs    in (1 channel of any height and width)"));
}

TEST_F(InfoTest, JsonHasTheSameFacts) {
  toy_model()->ToFile(path("m.qrtmodel").c_str(), "bin");
  const Outcome outcome = qrt({"info", path("m.qrtmodel"), "--json"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.out, AllOf(StartsWith("{"), HasSubstr("\"sdk_type\": \"toy\""),
                                 HasSubstr("\"id\": \"mix\""), HasSubstr("\"sizes\": [2, 2, 3]"),
                                 HasSubstr("\"multiply_adds\": 12")));
}

TEST_F(InfoTest, SeveralNetworksAreShownOrOneChosen) {
  auto model = toy_model();
  model->model_arr->squential_ids.push_back("other");
  model->model_arr->infos["other"] = model->model_arr->infos["net"];
  model->config_arr->squential_ids.push_back("other");
  model->config_arr->cfgs["other"] = model->config_arr->cfgs["net"];
  EXPECT_THAT(info(*model).out, AllOf(HasSubstr("networks  2"), HasSubstr("network   other")));
  EXPECT_THAT(info(*model, {"--network", "other"}).out, Not(HasSubstr("network   net")));
  const Outcome outcome = info(*model, {"--network", "third"});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err, HasSubstr("no network \"third\"; expected \"net\", \"other\""));
}

TEST_F(InfoTest, UnregisteredKernelIsMarkedAndNamed) {
  auto model = toy_model();
  kernel_of(*model, "cut") = "ReLU_Imaginary";
  const Outcome outcome = info(*model);
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.out, HasSubstr("! ReLU_Imaginary"));
  EXPECT_THAT(outcome.err, HasSubstr("m.json: network \"net\", layer 2 \"cut\" (Activation, kernel "
                                     "ReLU_Imaginary): expected a registered kernel"));
}

TEST_F(InfoTest, TooFewWeightsAreCounted) {
  auto model = toy_model();
  mix_of(*model).weight =
      marlo::runtime::Base64Encode(reinterpret_cast<const unsigned char*>("1234"), 4);
  const Outcome outcome = info(*model);
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err, HasSubstr(kMix + std::string("the kernel refuses it: weight: expected "
                                                        "1 x 2 x 1 x 1 x 1 numbers, found 1")));
}

TEST_F(InfoTest, SettingsOfZeroAreNamed) {
  auto model = toy_model();
  mix_of(*model).groups = 0;
  EXPECT_THAT(info(*model).err, HasSubstr(kMix + std::string("the kernel refuses it: groups: "
                                                             "expected at least 1, found 0")));
}

TEST_F(InfoTest, MissingKeyIsNamedWithItsObject) {
  toy_model()->ToFile(path("m.json").c_str(), "json");
  std::string text = file_text(path("m.json"));
  const size_t at = text.find("\"bias\"");
  ASSERT_NE(at, std::string::npos);
  write_text(path("m.json"), text.replace(at, 6, "\"bios\""));
  const Outcome outcome = qrt({"info", path("m.json")});
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err, HasSubstr("m.json: \"bias\" is missing in model_arr.net.mix"));
}

TEST_F(InfoTest, BrokenJsonIsLocated) {
  write_text(path("m.json"), "{\n  \"sdk_type\": ,\n}");
  const Outcome outcome = qrt({"info", path("m.json")});
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err, HasSubstr("m.json: line 2, column 15: "));
}

TEST_F(InfoTest, FilesThatAreNoneAreRefused) {
  write_text(path("empty.qrtmodel"), "");
  write_text(path("noise.qrtmodel"), std::string(1000, '\xEE'));
  write_text(path("m.txt"), "{}");
  fs::create_directories(path("folder.json"));
  const auto refusal = [&](const std::string& name) {
    const Outcome outcome = qrt({"info", path(name)});
    EXPECT_EQ(outcome.code, 4) << name;
    EXPECT_EQ(outcome.out, "") << name;
    EXPECT_THAT(outcome.err, HasSubstr(name)) << name;
    return outcome.err;
  };
  EXPECT_THAT(refusal("empty.qrtmodel"), HasSubstr("the file is empty"));
  EXPECT_THAT(refusal("absent.qrtmodel"), HasSubstr("No such file"));
  EXPECT_THAT(refusal("m.txt"), HasSubstr("expected it to end in .json, .qrtmodel"));
  EXPECT_THAT(refusal("folder.json"), HasSubstr("it is a folder"));
  refusal("noise.qrtmodel");
}

TEST_F(InfoTest, TruncatedModelNamesTheLayer) {
  toy_model()->ToFile(path("m.qrtmodel").c_str(), "bin");
  const std::string whole = file_text(path("m.qrtmodel"));
  const size_t in_mix = whole.find("Conv2dInfo") + 20;
  write_text(path("m.qrtmodel"), whole.substr(0, in_mix));
  const Outcome outcome = qrt({"info", path("m.qrtmodel")});
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err, HasSubstr("m.qrtmodel: network \"net\", layer 1 \"mix\" (Conv2d): "));
}

TEST_F(InfoTest, EveryTruncationEndsWithAMessage) {
  toy_model()->ToFile(path("m.qrtmodel").c_str(), "bin");
  const std::string whole = file_text(path("m.qrtmodel"));
  for (size_t size = 1; size < whole.size(); size += 29) {
    write_text(path("m.qrtmodel"), whole.substr(0, size));
    const Outcome outcome = qrt({"info", path("m.qrtmodel")});
    EXPECT_EQ(outcome.code, 4) << size << " bytes";
    EXPECT_THAT(outcome.err, StartsWith("qrt: ")) << size << " bytes";
  }
}

TEST_F(InfoTest, DemandedSdkIsCompared) {
  EXPECT_EQ(info(*toy_model(), {"--sdk", "toy:2.5"}).code, 0);
  const Outcome outcome = info(*toy_model(), {"--sdk", "toy:2.6"});
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err, HasSubstr("sdk version required by model: 2.5"));
  EXPECT_EQ(info(*toy_model(), {"--sdk", "toy"}).code, 2);
}

TEST_F(InfoTest, NamesCannotSteerATerminal) {
  auto model = toy_model();
  model->model_arr->infos["net"]->extra_info.summary = "red \x1B[31m";
  EXPECT_THAT(info(*model).out, AllOf(HasSubstr("red ?[31m"), Not(HasSubstr("\x1B"))));
}

TEST_F(InfoTest, ShowsSingleObjects) {
  auto model = toy_model();
  model->model_arr->infos["net"]->ToFile(path("n.qrmod").c_str(), "bin");
  model->model_arr->ToFile(path("n.qrmods").c_str(), "bin");
  model->config_arr->ToFile(path("c.json").c_str(), "json");
  model->config_arr->cfgs["net"]->cpu_sse->ToFile(path("c.qrcfg").c_str(), "bin");
  for (const std::string name : {"n.qrmod", "n.qrmods"}) {
    const Outcome outcome = qrt({"info", path(name)});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("1  mix    Conv2d"));
  }
  for (const std::string name : {"c.json", "c.qrcfg"}) {
    const Outcome outcome = qrt({"info", path(name)});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("2  cut    kernel  ReLU_Fallback_Float_M1"));
  }
}

}  // namespace
}  // namespace qrt_tool_test
