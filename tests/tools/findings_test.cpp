#include <gmock/gmock.h>

#include <algorithm>

#include "tests/tools/tool_runner.h"

// What the tool says of models that load and compute something else than they say.

namespace qrt_tool_test {
namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class FindingsTest : public ToolTest {
 protected:
  Outcome check(marlo::runtime::QRTModel& model, const std::string& option = "",
                const std::string& value = "") {
    model.ToFile(path("m.json").c_str(), "json");
    return check_file(option, value);
  }

  Outcome check_file(const std::string& option = "", const std::string& value = "") {
    std::vector<std::string> arguments{"check", path("m.json")};
    if (!option.empty()) arguments.push_back(option);
    if (!value.empty()) arguments.push_back(value);
    return qrt(arguments);
  }

  // Writes the toy model with a part of its text replaced.
  void write_changed(const std::string& from, const std::string& to) {
    toy_model()->ToFile(path("m.json").c_str(), "json");
    std::string text = file_text(path("m.json"));
    const size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos);
    write_text(path("m.json"), text.replace(at, from.size(), to));
  }

  Outcome run_file() {
    write_array("x.npy", "(1, 2, 3)", {0, 1, 2, 3, 4, 5});
    return qrt({"run", path("m.json"), "--input", path("x.npy")});
  }

  static std::ptrdiff_t lines(const std::string& text) {
    return std::count(text.begin(), text.end(), '\n');
  }
};

// Two channels whose weights are those of a single group.
std::shared_ptr<marlo::runtime::QRTModel> model_with_wrong_groups() {
  auto model = toy_model();
  auto& mix = mix_of(*model);
  mix.in_channels = 2;
  mix.groups = 2;
  mix.weight = blob_of({1, 2, 3, 4});
  return model;
}

TEST_F(FindingsTest, AWrongGroupCountFails) {
  const Outcome outcome = check(*model_with_wrong_groups());
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.out, HasSubstr("yes"));
  EXPECT_THAT(outcome.err,
              AllOf(HasSubstr("m.json: network \"net\", layer 1 \"mix\" (Conv2d), kernel "
                              "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1: weight: expected "
                              "2 numbers"),
                    HasSubstr("found 4 numbers")));
  EXPECT_EQ(lines(outcome.err), 1);
}

TEST_F(FindingsTest, ADroppedBiasFailsWhateverTheSizes) {
  auto model = toy_model();
  mix_of(*model).if_bias = false;
  const Outcome outcome = check(*model);
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err,
              AllOf(HasSubstr("layer 1 \"mix\""),
                    HasSubstr("if_bias: expected true, as \"bias\" holds numbers, found false; "
                              "set \"if_bias\" to true, or empty \"bias\"")));
  EXPECT_EQ(lines(outcome.err), 1);
  EXPECT_EQ(check(*model, "--input", "1x7x9").code, 4);
}

TEST_F(FindingsTest, AMisspeltMemberIsAWarning) {
  write_changed("\"padding_l\"", "\"paddng_l\"");
  const Outcome outcome = check_file();
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.err, AllOf(StartsWith("qrt: warning: "), HasSubstr("layer 1 \"mix\""),
                                 HasSubstr("paddng_l: expected"), HasSubstr("\"padding_l\"")));
  EXPECT_THAT(run_file().err, Not(HasSubstr("qrt check")));
}

TEST_F(FindingsTest, ACutNumberFails) {
  write_changed("\"stride_x\": 1", "\"stride_x\": 65537");
  const Outcome outcome = check_file();
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err, AllOf(HasSubstr("stride_x: expected 0 to 65535, found 65537"),
                                 HasSubstr("it is read as 1")));
}

TEST_F(FindingsTest, AKernelInPlaceOnWhatIsReadTwiceFails) {
  auto model = toy_model();
  kernel_of(*model, "cut") = "ReLU_Inplace_SSE_Float_M1";
  EXPECT_EQ(check(*model).code, 0);
  model->model_arr->infos.at("net")->squential_output_ids = {"mix", "cut"};
  const Outcome outcome = check(*model);
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err,
              AllOf(HasSubstr("layer 2 \"cut\""),
                    HasSubstr("the result of layer 1 \"mix\", which the network returns; name the "
                              "kernel that doesn't work in place")));
}

TEST_F(FindingsTest, ARightModelSaysNothing) {
  const Outcome outcome = check(*toy_model());
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(qrt({"info", path("m.json")}).err, "");
  const Outcome run = run_file();
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(run.err, "");
}

TEST_F(FindingsTest, JsonHoldsThemAsMembers) {
  auto model = toy_model();
  mix_of(*model).if_bias = false;
  const Outcome outcome = check(*model, "--json");
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("\"fits\": true"), HasSubstr("\"faults\": []"),
                    HasSubstr("\"findings\": ["), HasSubstr("\"code\": \"unused-bias\""),
                    HasSubstr("\"severity\": \"error\""), HasSubstr("\"layer\": 1"),
                    HasSubstr("\"id\": \"mix\""), HasSubstr("\"member\": \"if_bias\""),
                    HasSubstr("\"found\": \"false\""), HasSubstr("\"change\": \"set ")));
  EXPECT_THAT(outcome.err, EndsWith(", \"exit_code\": 4}\n"));
  EXPECT_THAT(check(*toy_model(), "--json").out, HasSubstr("\"findings\": []"));
}

TEST_F(FindingsTest, AFaultOfShapesIsSaidOnceWithWhatToChange) {
  const Outcome outcome = check(*toy_model(), "--input", "3x4x5");
  EXPECT_EQ(outcome.code, 3);
  EXPECT_EQ(lines(outcome.err), 1);
  EXPECT_THAT(outcome.err, HasSubstr("found 3 channels; name a kernel or a converter"));
}

TEST_F(FindingsTest, EveryLayerThatCanNotBeBuiltIsNamed) {
  auto model = toy_model();
  kernel_of(*model, "mix") = "Conv2D_Nothing";
  kernel_of(*model, "cut") = "ReLU_Fallback_Flaot_M1";
  const Outcome outcome = check(*model, "--json");
  EXPECT_EQ(outcome.code, 4);
  EXPECT_EQ(lines(outcome.err), 2);
  EXPECT_THAT(outcome.err, AllOf(HasSubstr("layer 1 \\\"mix\\\""),
                                 HasSubstr("did you mean \\\"ReLU_Fallback_Float_M1\\\"?")));
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("\"fits\": false"), HasSubstr("\"layers\": []"),
                                 HasSubstr("\"code\": \"unknown-kernel\"")));
}

TEST_F(FindingsTest, ErrorsNeedNoSizes) {
  auto model = toy_model();
  model->model_arr->infos.at("net")->extra_info.model_base_h = 0;
  mix_of(*model).if_bias = false;
  const Outcome outcome = check(*model);
  EXPECT_EQ(outcome.code, 4);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, HasSubstr("if_bias: expected true"));
}

TEST_F(FindingsTest, AModelOnStandardInputIsJudgedToo) {
  auto model = toy_model();
  mix_of(*model).if_bias = false;
  model->ToFile(path("m.json").c_str(), "json");
  const Outcome outcome = qrt({"check", "-"}, path("m.json"));
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err, HasSubstr("standard input: network \"net\", layer 1 \"mix\""));
}

TEST_F(FindingsTest, OtherCommandsWarnOnceAndGoOn) {
  auto model = toy_model();
  mix_of(*model).if_bias = false;
  model->ToFile(path("m.json").c_str(), "json");
  const std::string warning = "qrt: warning: " + path("m.json") +
                              ": 1 layer computes something else than its description says; `qrt "
                              "check " +
                              path("m.json") + "` names it\n";
  const Outcome run = run_file();
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(run.err, warning);
  const Outcome info = qrt({"info", path("m.json")});
  EXPECT_EQ(info.code, 0);
  EXPECT_EQ(info.err, warning);
}

}  // namespace
}  // namespace qrt_tool_test
