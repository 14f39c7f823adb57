#include <gmock/gmock.h>

#include "tests/tools/tool_runner.h"

namespace qrt_tool_test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

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

TEST_F(CheckTest, NamesEveryLayerThatDoesNotFit) {
  const Outcome outcome = check(*toy_model(), "3x4x5");
  EXPECT_EQ(outcome.code, 3);
  EXPECT_THAT(outcome.out, HasSubstr("NO"));
  EXPECT_THAT(outcome.err,
              AllOf(HasSubstr("layer 1 \"mix\""), HasSubstr("refuses FLOAT32 CHW [3, 4, 5]"),
                    HasSubstr("layer 2 \"cut\""), HasSubstr("it reads layer 1")));
}

TEST_F(CheckTest, PrintsJson) {
  toy_model()->ToFile(path("m.json").c_str(), "json");
  const Outcome outcome = qrt({"check", path("m.json"), "--input", "3x4x5", "--json"});
  EXPECT_EQ(outcome.code, 3);
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("\"fits\": false"), HasSubstr("\"fault\": "),
                                 HasSubstr("\"network\": \"net\"")));
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
