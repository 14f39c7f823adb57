#include <gmock/gmock.h>

#include "tests/tools/tool_runner.h"

// `qrt explain`.

namespace qrt_tool_test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

class ExplainTest : public ToolTest {
 protected:
  Outcome explain(const std::shared_ptr<marlo::runtime::QRTModel>& model,
                  const std::vector<std::string>& more) {
    model->ToFile(path("a.json").c_str(), "json");
    std::vector<std::string> all{"explain",  path("a.json"), "--seconds", "0.001",
                                 "--budget", "0.2",          "--wisdom",  path("w.json")};
    all.insert(all.end(), more.begin(), more.end());
    return qrt(all);
  }
};

TEST_F(ExplainTest, ShowsLayersKindsAndTheMachine) {
  const Outcome outcome = explain(toy_model(), {"--input", "1x2x3"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("0  in "), HasSubstr("1  mix "), HasSubstr("2  cut "),
                    HasSubstr("2x2x3"), HasSubstr("Conv2d"), HasSubstr("engine"),
                    HasSubstr("a pass"), HasSubstr("limits of "), HasSubstr("memory GB/s")));
}

TEST_F(ExplainTest, PrintsJson) {
  const Outcome outcome = explain(toy_model(), {"--input", "1x2x3", "--json"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("\"network\": \"net\""), HasSubstr("\"multiply_adds\": 12"),
                    HasSubstr("\"engine_ms\": "), HasSubstr("\"converters\": []"),
                    HasSubstr("\"kernel\": \"ReLU_Fallback_Float_M1\"")));
}

TEST_F(ExplainTest, ShowsTheCandidatesOfOneLayerAndTheReasonsOfOthers) {
  const Outcome outcome =
      explain(toy_model(), {"--input", "1x2x3", "--layer", "mix", "--isa", "sse"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("mix (Conv2d): "), HasSubstr("chosen"), HasSubstr("not possible"),
                    HasSubstr("window: needs 3 x 3, has 1 x 1")));
  const Outcome unknown = explain(toy_model(), {"--input", "1x2x3", "--layer", "mixed"});
  EXPECT_EQ(unknown.code, 2);
  EXPECT_THAT(unknown.err, HasSubstr("no such layer"));
}

TEST_F(ExplainTest, LooksAtTheChosenKernelsOnly) {
  const Outcome outcome = explain(toy_model(), {"--input", "1x2x3", "--json", "--no-candidates"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("\"candidates\": []"), HasSubstr("\"refusals\": []")));
}

TEST_F(ExplainTest, WritesAPage) {
  const Outcome outcome = explain(
      toy_model(), {"--input", "1x2x3", "--no-candidates", "--html", path("page.html"), "--json"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("\"network\": \"net\""));
  const std::string page = file_text(path("page.html"));
  EXPECT_THAT(page, AllOf(HasSubstr("<!DOCTYPE html>"), HasSubstr("id=\"layer-2\"")));
  const Outcome printed =
      explain(toy_model(), {"--input", "1x2x3", "--no-candidates", "--html", "-"});
  EXPECT_EQ(printed.out.rfind("<!DOCTYPE html>", 0), 0u);
}

TEST_F(ExplainTest, AsksForSizesThatTheModelDoesNotHave) {
  auto model = toy_model();
  auto& header = model->model_arr->infos["net"]->extra_info;
  header.model_base_h = header.model_base_w = 0;
  const Outcome outcome = explain(model, {});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err, HasSubstr("give --input"));
}

TEST_F(ExplainTest, SaysWhatCantRun) {
  auto model = toy_model();
  kernel_of(*model, "cut") = "no_such_kernel";
  const Outcome outcome = explain(model, {"--input", "1x2x3"});
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err, AllOf(HasSubstr("cut"), HasSubstr("no_such_kernel")));
}

}  // namespace
}  // namespace qrt_tool_test
