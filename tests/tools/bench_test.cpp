#include "qrt_toolkit/bench/bench.h"

#include <gmock/gmock.h>
#include <rapidjson/document.h>

#include <cstdlib>
#include <filesystem>

#include "tests/tools/tool_runner.h"
#include "tools/qrt/bench_output.h"

namespace qrt_tool_test {
namespace {

using marlo::toolkit::BenchResult;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

BenchResult recorded() {
  BenchResult result;
  for (const char* const name : {"a/net.qrtmodel", "b/net.json"}) {
    marlo::toolkit::BenchedNetwork network;
    network.name = name;
    network.network = "n";
    network.passes = {{2.0, 1.0}, {4.0, 3.0}, {3.0, 2.0}};
    network.latency = marlo::toolkit::summarise({2, 4, 3});
    network.passes_a_second = 333.25;
    network.is_steady = true;
    network.warm_ms = 12.5;
    network.allocations_a_pass = 7;
    result.networks.push_back(network);
  }
  result.networks[1].is_steady = false;
  result.ratios = {{0, 1, {0.9, 0.85, 0.95}}};
  return result;
}

TEST(BenchOutput, IsATableAndAVerdict) {
  const std::string text = qrt_tool::bench_text(recorded(), {});
  EXPECT_THAT(
      text, AllOf(HasSubstr("a/net.qrtmodel"), HasSubstr("2.0000"), HasSubstr("3.0000"),
                  HasSubstr("333.2"), HasSubstr("12.5000"), HasSubstr("never"), HasSubstr("7.0")));
  EXPECT_THAT(text, HasSubstr("b/net.json takes 0.9000 of the time of a/net.qrtmodel (95 % "
                              "confidence: 0.8500 to 0.9500): faster\n"));
  BenchResult other = recorded();
  other.ratios[0].time = {1.0, 0.99, 1.01};
  EXPECT_THAT(qrt_tool::bench_text(other, {}), HasSubstr("could be told from chance"));
  other.ratios[0].time = {1.2, 1.19, 1.21};
  EXPECT_THAT(qrt_tool::bench_text(other, {}), HasSubstr(": slower\n"));
}

TEST(BenchOutput, JsonHoldsPassesAsGoogleBenchmarkDoes) {
  rapidjson::Document json;
  json.Parse(qrt_tool::bench_json(recorded(), {}).c_str());
  ASSERT_FALSE(json.HasParseError());
  const auto& entries = json["benchmarks"];
  ASSERT_EQ(entries.Size(), 6u);
  EXPECT_STREQ(entries[0]["name"].GetString(), "net/n");
  EXPECT_STREQ(entries[3]["name"].GetString(), "net/n#2");
  for (const auto& entry : entries.GetArray()) {
    EXPECT_STREQ(entry["run_type"].GetString(), "iteration");
    EXPECT_STREQ(entry["time_unit"].GetString(), "us");
    EXPECT_EQ(entry["repetitions"].GetUint(), 3u);
    EXPECT_EQ(entry["iterations"].GetUint(), 1u);
  }
  EXPECT_EQ(entries[1]["real_time"].GetDouble(), 4000.0);
  EXPECT_EQ(entries[1]["cpu_time"].GetDouble(), 3000.0);
  const auto& context = json["context"];
  EXPECT_TRUE(context["date"].IsString());
  EXPECT_EQ(context["networks"].Size(), 2u);
  EXPECT_EQ(context["networks"][0]["median_ms"].GetDouble(), 3.0);
  EXPECT_FALSE(context["networks"][1]["steady"].GetBool());
  EXPECT_NEAR(context["ratios"][0]["second_over_first"]["high"].GetDouble(), 0.95, 1e-6);
}

TEST(BenchOutput, ManyPassesAreGroupedSoThatTheirMeanStays) {
  BenchResult result = recorded();
  result.networks.resize(1);
  result.ratios.clear();
  result.networks[0].passes.assign(2500, {1.0, 1.0});
  result.networks[0].passes[0] = {4.0, 4.0};
  rapidjson::Document json;
  json.Parse(qrt_tool::bench_json(result, {}).c_str());
  const auto& entries = json["benchmarks"];
  ASSERT_EQ(entries.Size(), 834u);
  EXPECT_EQ(entries[0]["iterations"].GetUint(), 3u);
  EXPECT_EQ(entries[0]["real_time"].GetDouble(), 2000.0);
  EXPECT_EQ(entries[833]["iterations"].GetUint(), 1u);
}

class BenchTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    toy_model()->ToFile(path("m.qrtmodel").c_str(), "bin");
    toy_model()->ToFile(path("m.json").c_str(), "json");
  }
};

// Where Debian's libbenchmark-tools and what it needs are there.
TEST_F(BenchTest, TheScriptOfGoogleBenchmarkComparesTwoFiles) {
  const std::string script = "/usr/share/benchmark/compare.py";
  const std::string needs = "/usr/bin/python3 -c 'import scipy' 2>/dev/null";
  if (!std::filesystem::exists(script) || std::system(needs.c_str()) != 0) {
    GTEST_SKIP() << "there is no libbenchmark-tools with python3-scipy";
  }
  write_text(path("one.json"), qrt_tool::bench_json(recorded(), {}));
  const std::string command = "/usr/bin/python3 " + script + " --no-color benchmarks '" +
                              path("one.json") + "' '" + path("one.json") + "' >'" + path("out") +
                              "'";
  ASSERT_EQ(std::system(command.c_str()), 0);
  EXPECT_THAT(file_text(path("out")),
              AllOf(HasSubstr("net/n  "), HasSubstr("net/n#2  "), HasSubstr("OVERALL_GEOMEAN")));
}

TEST_F(BenchTest, MeasuresAModelAndAnother) {
  const Outcome outcome = qrt({"bench", path("m.qrtmodel"), "--against", path("m.json"),
                               "--seconds", "0.01", "--input", "in=1x2x3"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("passes/s"), HasSubstr("load ms"),
                                 HasSubstr("% confidence"), HasSubstr("1 thread;")));
}

TEST_F(BenchTest, CountsAllocationsAndThreads) {
  const Outcome outcome =
      qrt({"bench", "-", "--threads", "2", "--seconds", "0.01", "--json"}, path("m.json"));
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  rapidjson::Document json;
  json.Parse(outcome.out.c_str());
  ASSERT_FALSE(json.HasParseError()) << outcome.out;
  EXPECT_EQ(json["context"]["threads"].GetUint(), 2u);
  EXPECT_GT(json["context"]["networks"][0]["allocations_per_pass"].GetDouble(), 1.0);
  EXPECT_EQ(json["context"]["networks"][0]["pool_growth_bytes"].GetUint(), 0u);
  EXPECT_EQ(json["benchmarks"][0]["threads"].GetUint(), 2u);
}

TEST_F(BenchTest, RefusesWhatDoesNotFit) {
  EXPECT_EQ(qrt({"bench"}).code, 2);
  EXPECT_EQ(qrt({"bench", path("m.json"), "--threads", "0"}).code, 2);
  EXPECT_EQ(qrt({"bench", "-", "--against", "-"}).code, 2);
  const Outcome absent = qrt({"bench", path("absent.json")});
  EXPECT_EQ(absent.code, 4);
  const Outcome channels = qrt({"bench", path("m.json"), "--input", "3x2x3"});
  EXPECT_EQ(channels.code, 3);
  EXPECT_THAT(channels.err, AllOf(HasSubstr("can't run on these sizes"), HasSubstr("mix")));
  const Outcome two = qrt({"bench", path("m.json"), "--input", "1x2x3", "--input", "1x2x3"});
  EXPECT_EQ(two.code, 2);
  EXPECT_THAT(two.err, HasSubstr("has 1 input; found 2 --inputs"));
  const Outcome far = qrt({"bench", path("m.json"), "--cpu", "65535"});
  EXPECT_EQ(far.code, 2);
  EXPECT_THAT(far.err, HasSubstr("processor 65535 can't be used"));
}

TEST_F(BenchTest, AModelThatSaysNoSizesWantsThem) {
  auto model = toy_model();
  model->model_arr->infos["net"]->extra_info.model_base_h = 0;
  model->ToFile(path("free.json").c_str(), "json");
  const Outcome outcome = qrt({"bench", path("free.json")});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err, HasSubstr("doesn't say the shape of input \"in\""));
}

}  // namespace
}  // namespace qrt_tool_test
