#include <gmock/gmock.h>

#include <algorithm>

#include "tests/tools/tool_runner.h"

namespace qrt_tool_test {
namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class CheckTest : public ToolTest {
 protected:
  Outcome check(marlo::runtime::QRTModel& model, const std::string& input = "") {
    model.ToFile(path("m.json").c_str(), "json");
    if (input.empty()) return qrt({"check", path("m.json")});
    return qrt({"check", path("m.json"), "--input", input});
  }
};

TEST_F(CheckTest, ShowsThatEveryLayerFits) {
  const Outcome outcome = check(*toy_model());
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("FLOAT32 CHW 1x2x3"), HasSubstr("FLOAT32 CHW 2x2x3"),
                                 HasSubstr("yes"), Not(HasSubstr("NO"))));
}

TEST_F(CheckTest, TakesSizesWithALeadingOne) {
  const Outcome outcome = check(*toy_model(), "1x1x4x5");
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.out, HasSubstr("FLOAT32 CHW 2x4x5"));
}

TEST_F(CheckTest, NamesTheLayerThatDoesNotFitAndCountsThoseAfterIt) {
  const Outcome outcome = check(*toy_model(), "3x4x5");
  EXPECT_EQ(outcome.code, 3);
  EXPECT_THAT(outcome.out, HasSubstr("NO"));
  EXPECT_THAT(
      outcome.err,
      AllOf(
          HasSubstr("layer 1 \"mix\""),
          HasSubstr("refuses FLOAT32 CHW [3, 4, 5]: input 0: expected 1 channel, found 3 channels"),
          HasSubstr("(1 layer after it can't be judged)\n"), Not(HasSubstr("layer 2 \"cut\""))));
  EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1);
}

TEST_F(CheckTest, PrintsJson) {
  toy_model()->ToFile(path("m.json").c_str(), "json");
  const Outcome outcome = qrt({"check", path("m.json"), "--input", "3x4x5", "--json"});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("\"fits\": false"), HasSubstr("\"fault\": "),
                    HasSubstr("\"judged\": false"), HasSubstr("\"network\": \"net\""),
                    HasSubstr("\"sizes\": [3, 4, 5]"), HasSubstr("\"layout\": \"CHW\"")));
  EXPECT_THAT(outcome.err,
              AllOf(StartsWith("{\"level\": \"error\", \"message\": \""),
                    HasSubstr("layer 1 \\\"mix\\\""), EndsWith(", \"exit_code\": 3}\n")));
}

TEST_F(CheckTest, AModelWithoutOutputsFails) {
  auto model = toy_model();
  model->model_arr->infos.at("net")->squential_output_ids.clear();
  const Outcome outcome = check(*model);
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err, HasSubstr("expected outputs in \"squential_output_ids\", found none"));
}

TEST_F(CheckTest, AModelThatDoesNotFitItsOwnSizesIsAtFault) {
  auto model = toy_model();
  mix_of(*model).kernel_x = 9;
  mix_of(*model).weight = blob_of(std::vector<float>(18));
  EXPECT_EQ(check(*model).code, 4);
  EXPECT_EQ(check(*model, "1x2x3").code, 4);
  EXPECT_EQ(check(*model, "1x2x4").code, 3);
  EXPECT_EQ(check(*model, "1x2x9").code, 0);
}

TEST_F(CheckTest, AsksForSizesThatTheFileDoesNotHold) {
  auto model = toy_model();
  model->model_arr->infos.at("net")->extra_info.model_base_h = 0;
  const Outcome outcome = check(*model);
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err, HasSubstr("give --input"));
}

TEST_F(CheckTest, CountsInputs) {
  toy_model()->ToFile(path("m.json").c_str(), "json");
  const Outcome outcome = qrt({"check", path("m.json"), "--input", "1x2x3", "--input", "1x2x3"});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err, HasSubstr("has 1 input; found 2 --input"));
}

TEST_F(CheckTest, RefusesABrokenModel) {
  write_text(path("m.json"), "{");
  EXPECT_EQ(qrt({"check", path("m.json")}).code, 4);
}

}  // namespace
}  // namespace qrt_tool_test
