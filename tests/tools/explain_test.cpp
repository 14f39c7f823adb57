#include <gmock/gmock.h>

#include <filesystem>

#include "tests/support/pace.h"
#include "tests/tools/tool_runner.h"

// `qrt explain`. Each run measures the machine, so there are few of them where everything is slow.

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
  if (marlo::test::runs_slowly()) GTEST_SKIP() << "another run for the same numbers";
  const Outcome outcome = explain(toy_model(), {"--input", "1x2x3"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("0  in "), HasSubstr("1  mix "), HasSubstr("2  cut "),
                    HasSubstr("2x2x3"), HasSubstr("Conv2d"), HasSubstr("engine"),
                    HasSubstr("a pass"), HasSubstr("limits of "), HasSubstr("memory GB/s")));
}

TEST_F(ExplainTest, PrintsJsonAndWritesAPage) {
  const Outcome outcome =
      explain(toy_model(), {"--input", "1x2x3", "--json", "--html", path("page.html")});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("\"network\": \"net\""), HasSubstr("\"multiply_adds\": 12"),
                    HasSubstr("\"engine_ms\": "), HasSubstr("\"converters\": []"),
                    HasSubstr("\"notes\": []"), HasSubstr("\"chosen\": true"),
                    HasSubstr("\"kernel\": \"ReLU_Fallback_Float_M1\"")));
  const std::string page = file_text(path("page.html"));
  EXPECT_THAT(page, AllOf(HasSubstr("<!DOCTYPE html>"), HasSubstr("id=\"layer-2\"")));
}

TEST_F(ExplainTest, MeasuresNothingForAPageThatCannotBeWritten) {
  const Outcome outcome =
      explain(toy_model(), {"--input", "1x2x3", "--html", path("none/page.html")});
  EXPECT_EQ(outcome.code, 5);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, HasSubstr("none/page.html: can't be written"));
  EXPECT_FALSE(std::filesystem::exists(path("w.json")));
}

TEST_F(ExplainTest, RefusesWhatGoesNotTogether) {
  const auto fault = [&](const std::vector<std::string>& more) {
    const Outcome outcome = explain(toy_model(), more);
    EXPECT_EQ(outcome.code, 2);
    EXPECT_EQ(outcome.out, "");
    return outcome.err;
  };
  EXPECT_THAT(fault({"--html", "-", "--json"}), HasSubstr("--html - leaves no room"));
  EXPECT_THAT(fault({"--html", "-", "--layer", "mix"}), HasSubstr("--html - leaves no room"));
  EXPECT_THAT(fault({"--json", "--layer", "mix"}), HasSubstr("without --layer"));
  EXPECT_THAT(fault({"--no-candidates", "--layer", "mix"}), HasSubstr("without --no-candidates"));
}

TEST_F(ExplainTest, ShowsTheCandidatesOfOneLayerAndTheReasonsOfOthers) {
  const Outcome unknown = explain(toy_model(), {"--input", "1x2x3", "--layer", "mixed"});
  EXPECT_EQ(unknown.code, 2);
  EXPECT_THAT(unknown.err, HasSubstr("no such layer"));
  if (marlo::test::runs_slowly()) GTEST_SKIP() << "another run for the same numbers";
  const Outcome outcome =
      explain(toy_model(), {"--input", "1x2x3", "--layer", "mix", "--isa", "sse"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("mix (Conv2d): "), HasSubstr("chosen"), HasSubstr("not possible"),
                    HasSubstr("window: needs 3 x 3, has 1 x 1")));
}

TEST_F(ExplainTest, LooksAtTheChosenKernelsOnlyAndPrintsAPage) {
  if (marlo::test::runs_slowly()) GTEST_SKIP() << "another run for the same numbers";
  const Outcome outcome =
      explain(toy_model(), {"--input", "1x2x3", "--no-candidates", "--html", "-"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(outcome.out.rfind("<!DOCTYPE html>", 0), 0u);
  EXPECT_THAT(outcome.out, HasSubstr("No other kernel was looked for."));
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
