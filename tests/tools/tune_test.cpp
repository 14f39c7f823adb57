#include <gmock/gmock.h>

#include <csignal>

#include "qrt_toolkit/tune/tune.h"
#include "tests/support/model_builder.h"
#include "tests/tools/tool_runner.h"
#include "tools/qrt/choice_options.h"
#include "tools/qrt/network.h"

// `qrt tune`.

namespace qrt_tool_test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

class TuneTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    toy_model()->ToFile(path("a.json").c_str(), "json");
  }

  Outcome tune(const std::vector<std::string>& more) {
    std::vector<std::string> all{
        "tune", path("a.json"), path("b.json"), "--wisdom", path("w.json"), "--budget", "1"};
    all.insert(all.end(), more.begin(), more.end());
    return qrt(all);
  }
};

TEST_F(TuneTest, WritesAModelThatComputesTheSame) {
  const Outcome outcome = tune({"--input", "1x1x3", "--report", path("r.json")});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("given"), HasSubstr("chosen")));
  write_array("x.npy", "(1, 1, 3)", {1, 2, -4});
  EXPECT_EQ(
      qrt({"compare", path("a.json"), path("b.json"), "--input", path("x.npy"), "--bound", "1e-5"})
          .code,
      0);
}

TEST_F(TuneTest, TheModelSaysWhatItWasTunedFor) {
  ASSERT_EQ(tune({"--input", "1x1x3", "--isa", "sse"}).code, 0);
  const std::string processor = marlo::toolkit::processor_name();
  EXPECT_THAT(qrt({"info", path("b.json")}).out,
              HasSubstr("tuned for " + processor + ", kernels up to sse, qrt_core "));
  EXPECT_THAT(qrt({"info", path("b.json"), "--json"}).out,
              AllOf(HasSubstr("\"tuned_for\": {"), HasSubstr("FLOAT32 CHW [1, 1, 3]")));
  EXPECT_EQ(qrt({"info", path("a.json")}).out.find("tuned for"), std::string::npos);
}

TEST_F(TuneTest, AnotherProcessorIsToldOfOnce) {
  write_array("x.npy", "(1, 1, 3)", {1, 2, -4});
  ASSERT_EQ(tune({"--input", "1x1x3"}).code, 0);
  const auto warnings_of = [&](const std::string& model) {
    const Outcome outcome = qrt({"run", model, "--input", path("x.npy"), "--repeat", "3"});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    const size_t first = outcome.err.find("was tuned for");
    const bool is_there = first != std::string::npos;
    EXPECT_EQ(outcome.err.find("was tuned for", is_there ? first + 1 : 0), std::string::npos);
    return is_there ? outcome.err : "";
  };
  EXPECT_EQ(warnings_of(path("a.json")), "");
  EXPECT_EQ(warnings_of(path("b.json")), "");
  marlo::runtime::QRTModel model;
  model.FromFile(path("b.json").c_str(), "json");
  model.config_arr->cfgs.begin()->second->cpu_sse->summary =
      "{\"qrt_tuned\":1,\"processor\":\"Another One 3\"}";
  model.ToFile(path("c.json").c_str(), "json");
  EXPECT_THAT(warnings_of(path("c.json")),
              AllOf(HasSubstr("was tuned for Another One 3, and this is "), HasSubstr("qrt tune")));
}

TEST_F(TuneTest, NamesOutOfASummaryAreMadeWellFormed) {
  ASSERT_EQ(tune({"--input", "1x1x3", "--isa", "sse"}).code, 0);
  marlo::runtime::QRTModel model;
  model.FromFile(path("b.json").c_str(), "json");
  model.config_arr->cfgs.begin()->second->cpu_sse->summary =
      "{\"qrt_tuned\":1,\"processor\":\"P\",\"inputs\":{\"a\xff\":\"FLOAT32\"}}";
  model.ToFile(path("c.json").c_str(), "json");
  const Outcome outcome = qrt({"info", path("c.json"), "--json"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("\"a?\": \"FLOAT32\""));
}

TEST_F(TuneTest, WhatCantBeWrittenIsToldBeforeAnythingIsMeasured) {
  for (const std::vector<std::string>& more :
       {std::vector<std::string>{path("none/b.json")},
        std::vector<std::string>{path("b.json"), "--report", path("none/r.json")}}) {
    std::vector<std::string> words{"tune", path("a.json")};
    words.insert(words.end(), more.begin(), more.end());
    const Outcome outcome = qrt(words);  // without --input, which would be the next fault
    EXPECT_EQ(outcome.code, 5);
    EXPECT_THAT(outcome.err,
                AllOf(HasSubstr("none/"), HasSubstr("can't be written: No such file")));
  }
  EXPECT_THAT(qrt({"tune", path("a.json"), "/dev/full"}).err,
              HasSubstr("/dev/full: can't be written: it is not a regular file"));
  EXPECT_THAT(qrt({"info", path("")}).err, HasSubstr("it is a folder; expected a file"));
}

TEST_F(TuneTest, WritesToStandardOutput) {
  const Outcome outcome = qrt({"tune", path("a.json"), "-", "--no-wisdom", "--input", "1x1x3"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  write_text(path("out.json"), outcome.out);
  EXPECT_THAT(qrt({"info", path("out.json")}).out, HasSubstr("tuned for "));
}

TEST_F(TuneTest, AFolderIsNoWisdom) {
  const Outcome outcome = qrt({"tune", path("a.json"), path("b.json"), "--input", "1x1x3",
                               "--wisdom", fs::path(path("a.json")).parent_path().string()});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.err,
              AllOf(HasSubstr("it is a folder; it is passed over"), HasSubstr("can't be written")));
}

TEST_F(TuneTest, ReportsAsJson) {
  const Outcome outcome = tune({"--input", "1x1x3", "--json", "--isa", "sse"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("\"kernels\": \"sse\""), HasSubstr("\"after_ms\": "),
                                 HasSubstr("\"complete\": "), HasSubstr("\"layers\": [")));
}

TEST_F(TuneTest, TheReportTellsEveryCandidate) {
  const Outcome outcome = tune({"--input", "1x1x3", "--report", path("r.json"), "--isa", "sse"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const std::string report = file_text(path("r.json"));
  EXPECT_THAT(report, AllOf(HasSubstr("\"candidates\": {"), HasSubstr("\"mix\": {"),
                            HasSubstr("\"measured\": true"), HasSubstr("\"refusals\": ["),
                            HasSubstr("\"reasons\": [")));
}

TEST_F(TuneTest, TheGivenModelIsBoundByTheSet) {
  if (qrt_tool::Library().kernels.Create("ReLU_SSE_Float_M1") == nullptr) {
    GTEST_SKIP() << "this build has no SSE kernels";
  }
  auto model = toy_model();
  kernel_of(*model, "cut") = "ReLU_SSE_Float_M1";
  model->ToFile(path("a.json").c_str(), "json");
  ASSERT_EQ(tune({"--input", "1x1x3", "--isa", "portable"}).code, 0);
  marlo::runtime::QRTModel bound;
  bound.FromFile(path("b.json").c_str(), "json");
  EXPECT_THAT(kernel_of(bound, "cut"), HasSubstr("Fallback"));
}

TEST_F(TuneTest, TakesSeveralSizes) {
  const Outcome outcome = tune({"--input", "1x1x3", "--input", "1x2x5", "--weights", "3,0.5"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("weighted ms"), HasSubstr("1x2x5"), HasSubstr("0.5")));
  EXPECT_THAT(qrt({"info", path("b.json")}).out,
              AllOf(HasSubstr("FLOAT32 CHW [1, 1, 3]; "), HasSubstr("FLOAT32 CHW [1, 2, 5]")));
  EXPECT_THAT(qrt({"info", path("b.json"), "--json"}).out, HasSubstr("\"further_inputs\": ["));
  const Outcome json = tune({"--input", "1x1x3", "--input", "1x2x5", "--json"});
  EXPECT_THAT(json.out, AllOf(HasSubstr("\"sizes\": ["), HasSubstr("\"FLOAT32 CHW 1x2x5\""),
                              HasSubstr("\"weight\": 1")));
}

TEST_F(TuneTest, InputsMayBeNamedInEachSize) {
  marlo::test::ModelBuilder builder;
  builder.input("a").input("b").layer("y", {"a", "b"},
                                      std::make_shared<marlo::runtime::ElementWiseOperatorInfo>(),
                                      "Elementwise_Fallback_Float_M1");
  builder.outputs({"y"}).build()->ToFile(path("a.json").c_str(), "json");
  const std::vector<std::string> first{"--input", "b=1x4x5", "--input", "a=1x4x5"};
  std::vector<std::string> both = first;
  both.insert(both.end(), {"--input", "1x2x2", "--input", "a=1x2x2", "--json"});
  const Outcome outcome = tune(both);
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("\"a\": \"FLOAT32 CHW 1x4x5\""),
                                 HasSubstr("\"b\": \"FLOAT32 CHW 1x2x2\"")));
  EXPECT_EQ(qrt({"info", path("a.json"), first[0], first[1], first[2], first[3]}).code, 0);
  EXPECT_EQ(qrt({"check", path("a.json"), first[0], first[1], first[2], first[3]}).code, 0);
  const Outcome twice = tune({"--input", "a=1x4x5", "--input", "a=1x4x5"});
  EXPECT_EQ(twice.code, 2);
  EXPECT_THAT(twice.err, HasSubstr("--input names \"a\" twice"));
  const Outcome unknown = tune({"--input", "a=1x4x5", "--input", "c=1x4x5"});
  EXPECT_EQ(unknown.code, 2);
  EXPECT_THAT(
      unknown.err,
      HasSubstr("--input c=1x4x5: network \"net\" has no input \"c\"; there is \"a\", \"b\""));
}

TEST_F(TuneTest, SaysWhatIsWrongWithTheCommandLine) {
  const auto fault = [&](const std::vector<std::string>& more) {
    const Outcome outcome = tune(more);
    EXPECT_EQ(outcome.code, 2);
    return outcome.err;
  };
  EXPECT_THAT(fault({"--isa", "neon"}), HasSubstr("expected portable, sse, avx, fma, avx2 or"));
  EXPECT_THAT(fault({"--numerics", "loose"}), HasSubstr("expected same, bounded or fast"));
  EXPECT_THAT(fault({"--numerics", "same", "--tolerance", "1"}),
              HasSubstr("leaves no --tolerance"));
  EXPECT_THAT(fault({"--input", "1x1x3", "--weights", "1,2"}),
              HasSubstr("--weights \"1,2\": expected 1 number between commas; found 2"));
  EXPECT_THAT(fault({"--input", "1x1x3", "--input", "1x1x5", "--weights", "1,0"}),
              HasSubstr("--weights 1,0: expected numbers above 0"));
}

TEST(Interrupts, TheFirstEndsMeasurementsAndTheSecondTheTool) {
  const auto before = std::signal(SIGINT, SIG_IGN);
  {
    const qrt_tool::Interrupts interrupts;
    EXPECT_FALSE(qrt_tool::Interrupts::came());
    std::raise(SIGINT);
    EXPECT_TRUE(qrt_tool::Interrupts::came());
    const auto next = std::signal(SIGINT, SIG_IGN);
    EXPECT_EQ(next, SIG_DFL);
  }
  EXPECT_EQ(std::signal(SIGINT, before), SIG_IGN);
}

}  // namespace
}  // namespace qrt_tool_test
