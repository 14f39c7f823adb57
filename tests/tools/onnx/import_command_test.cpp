#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>

#include "tests/toolkit/onnx/model_text.h"
#include "tests/tools/tool_runner.h"

// `qrt import`: what is written, and what is said.

namespace qrt_tool_test {
namespace {

using marlo::toolkit::test::write_model;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

const char* const kSmall = R"(g (float[n,1,2,3] x) => (float[n,2,2,3] y)
    <float[2,1,1,1] w = {2, -0.1}, float[2] b = {0.5, 0}> {
  c = Conv(x, w, b)
  y = Relu(c)
})";

class ImportCommandTest : public ToolTest {
 protected:
  Outcome import(const std::string& graph, const std::vector<std::string>& more = {},
                 const std::string& to = "net.qrtmodel") {
    write_model(path("net.onnx"), graph);
    std::vector<std::string> all{"import", path("net.onnx"), path(to)};
    all.insert(all.end(), more.begin(), more.end());
    // Layers as the file has them, on whichever processor this runs.
    if (std::find(more.begin(), more.end(), "--isa") == more.end()) {
      all.insert(all.end(), {"--isa", "portable"});
    }
    return qrt(all);
  }
};

TEST_F(ImportCommandTest, TheFirstLineSaysWhatHalvesCost) {
  const Outcome outcome = import(kSmall);
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, StartsWith("wrote " + path("net.qrtmodel") +
                                      ": 3 layers; 4 weights as halves: relative error at most "));
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("(rounded to nearest)\n"), HasSubstr("input     \"x\" 1x1x2x3\n"),
                    HasSubstr("output    \"y\" 1x2x2x3\n"),
                    HasSubstr("note      input \"x\": its first size is open")));
  write_array("x.npy", "(1, 2, 3)", {1, 2, 3, -4, -5, -6});
  const Outcome run = qrt({"run", path("net.qrtmodel"), "--input", path("x.npy")});
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("2.5"));
}

TEST_F(ImportCommandTest, WeightsAreRoundedToTheNearestHalf) {
  ASSERT_EQ(import(kSmall).code, 0);
  marlo::runtime::QRTModel model;
  model.FromFile(path("net.qrtmodel").c_str(), "bin");
  const auto& layer = *model.model_arr->infos.at("net")->layers.at("c");
  const auto& blob = dynamic_cast<const marlo::runtime::Conv2dInfo&>(layer).weight;
  // -0.1 lies between the halves -0.0999756 and -0.1000366, nearer to the first.
  EXPECT_EQ(marlo::runtime::Base64Decode(blob),
            marlo::runtime::Base64Decode(blob_of({2.0f, -0.0999755859375f})));
}

TEST_F(ImportCommandTest, JsonKeepsWeightsThatNoHalfHolds) {
  const char* const large = R"(g (float[1,1,2,3] x) => (float[1,1,2,3] y)
      <float[1,1,1,1] w = {70000}> { y = Conv(x, w) })";
  const Outcome refused = import(large);
  EXPECT_EQ(refused.code, 6);
  EXPECT_THAT(refused.err, HasSubstr("layer 1 \"y\" (Conv2d), \"weight\": 1 of 1 number becomes "
                                     "infinite\n"));
  EXPECT_FALSE(fs::exists(path("net.qrtmodel")));
  EXPECT_EQ(import(large, {"--force"}).code, 0);
  const Outcome exact = import(large, {}, "net.json");
  EXPECT_EQ(exact.code, 0) << exact.err;
  EXPECT_THAT(exact.out, HasSubstr("weights as they are\n"));
}

TEST_F(ImportCommandTest, AllThatCannotBeImportedIsListed) {
  const Outcome outcome = import(R"(g (float[1,4] x) => (float[1,4] a, float[1,4] y) {
    a = Mod(x, x)
    y = Mod(x, x)
  })");
  EXPECT_EQ(outcome.code, 6);
  EXPECT_THAT(
      outcome.err,
      AllOf(HasSubstr("node \"a\" (Mod, opset 13): "), HasSubstr("node \"y\" (Mod, opset 13): "),
            HasSubstr("net.onnx: 2 things can't be imported, so nothing was\n")));
  EXPECT_EQ(outcome.out, "");
  EXPECT_FALSE(fs::exists(path("net.qrtmodel")));
}

TEST_F(ImportCommandTest, RefusalsAreJsonWithTheirFields) {
  const Outcome outcome =
      import("g (float[1,4] x) => (float[1,4] y) { y = Mod(x, x) }", {"--json"});
  EXPECT_THAT(outcome.err, AllOf(HasSubstr("\"operator\": \"Mod\", \"opset\": \"13\""),
                                 HasSubstr("\"exit_code\": 6}\n")));
}

TEST_F(ImportCommandTest, AFileThatIsNoneIsAFaultOfTheFile) {
  write_text(path("no.onnx"), "this is text");
  const Outcome outcome = qrt({"import", path("no.onnx"), path("net.json")});
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err, HasSubstr("no.onnx"));
  EXPECT_EQ(qrt({"import", path("absent.onnx"), path("net.json")}).code, 4);
}

TEST_F(ImportCommandTest, SizesAndConstantsComeFromTheCommandLine) {
  const char* const graph = R"(g (float[1,c,h,w] x, int64[4] s) => (float[1,a,b,d] y) {
    y = Reshape(x, s)
  })";
  const Outcome outcome = import(graph, {"--input", "x=1x2x3x4", "--set", "s=1,4,3,2"}, "net.json");
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("output    \"y\" "));
  EXPECT_EQ(import(graph, {"--input", "x=1xtwo"}).code, 2);
  EXPECT_EQ(import(graph, {"--input", "x=1", "--input", "x=2"}).code, 2);
  EXPECT_EQ(import(graph, {"--set", "s=much"}).code, 2);
  const Outcome unknown = import(graph, {"--input", "z=1x2x3x4"});
  EXPECT_EQ(unknown.code, 6);
  EXPECT_THAT(unknown.err, HasSubstr("input \"z\": the graph has no such input"));
}

TEST_F(ImportCommandTest, TheOnlyInputNeedsNoName) {
  const Outcome outcome =
      import("g (float[1,1,h,w] x) => (float[1,1,h,w] y) { y = Relu(x) }", {"--input", "1x1x4x5"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("\"y\" 1x1x4x5"));
}

TEST_F(ImportCommandTest, AnOutputCutsTheGraph) {
  const char* const graph = R"(g (float[1,2,2,3] x, float[1,2,2,3] z) => (float[1,2,2,3] y) {
    a = Relu(x)
    b = Mod(a, z)
    y = Add(b, z)
  })";
  EXPECT_EQ(import(graph).code, 6);
  const Outcome outcome = import(graph, {"--output", "a"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("output    \"a\""), Not(HasSubstr("input     \"z\"")),
                                 HasSubstr("input \"z\": no output needs it")));
  EXPECT_THAT(import(graph, {"--output", "nowhere"}).err,
              HasSubstr("output \"nowhere\": the graph has no tensor and no node of this name"));
}

TEST_F(ImportCommandTest, ThePreparationOfPicturesIsKept) {
  ASSERT_EQ(import(kSmall, {"--mean", "10", "--scale", "0.5"}, "net.json").code, 0);
  EXPECT_THAT(file_text(path("net.json")),
              HasSubstr(R"(\"picture\":{\"mean\":[10.0],\"scale\":[0.5]})"));
  EXPECT_EQ(import(kSmall, {"--color", "pink"}).code, 2);
}

TEST_F(ImportCommandTest, PicturesNeedNoOptionsWhereTheModelHoldsThem) {
  ASSERT_EQ(import(kSmall, {"--mean", "100", "--scale", "0.01"}).code, 0);
  // 6 x 2 pixels of 200, which become 3 x 2 and then 1.
  write_text(path("x.pgm"), "P5 6 2 255\n" + std::string(12, '\xC8'));
  const Outcome run =
      qrt({"run", path("net.qrtmodel"), "--input", path("x.pgm"), "--output", path("y.npy")});
  ASSERT_EQ(run.code, 0) << run.err;
  const std::string bytes = file_text(path("y.npy"));
  float first = 0;
  std::memcpy(&first, &bytes[bytes.size() - 12 * sizeof first], sizeof first);
  EXPECT_NEAR(first, 2.5f, 1e-6);
}

TEST_F(ImportCommandTest, VerifyComparesEachLayer) {
  const Outcome outcome = import(kSmall, {"--verify"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("with halves"), HasSubstr("\nc "), HasSubstr("\ny "),
                                 Not(HasSubstr("beyond"))));
  EXPECT_THAT(import(kSmall, {"--verify", "--json"}).out,
              AllOf(HasSubstr("\"verification\": {"), HasSubstr("\"halves_max_difference\": ")));
}

TEST_F(ImportCommandTest, VerifyTakesNumbers) {
  write_array("x.npy", "(1, 1, 2, 3)", {1, 2, 3, 4, 5, 600});
  const Outcome outcome = import(kSmall, {"--verify", "--input", "x=" + path("x.npy"), "--json"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("\"largest_value\": 1200.5"));
}

TEST_F(ImportCommandTest, OtherCommandsTakeTheFileItself) {
  write_model(path("net.onnx"), kSmall);
  write_array("x.npy", "(1, 1, 2, 3)", {1, 2, 3, -4, -5, -6});
  const Outcome run = qrt({"run", path("net.onnx"), "--input", path("x.npy")});
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("2.5"));
  const Outcome info = qrt({"info", path("net.onnx")});
  EXPECT_EQ(info.code, 0) << info.err;
  EXPECT_THAT(info.out, AllOf(HasSubstr("network   net\nsource    net.onnx\n"),
                              HasSubstr("FLOAT32 CHW 2x2x3")));
  EXPECT_EQ(qrt({"check", path("net.onnx")}).code, 0);
  ASSERT_EQ(import(kSmall).code, 0);
  const Outcome compare =
      qrt({"compare", path("net.onnx"), path("net.qrtmodel"), "--input", path("x.npy")});
  EXPECT_EQ(compare.code, 0) << compare.err;
}

TEST_F(ImportCommandTest, ModelsWithLayersThatReadNoneAreRun) {
  const Outcome made =
      import(R"(g (float[1,3] x) => (float[1,3] y, float[1,3] z) <float[1,3] c = {7, 8.5, 9}> {
    y = Relu(x)
    z = Identity(c)
  })");
  if (made.code == 6) GTEST_SKIP() << "this build has no kernel that makes constants";
  ASSERT_EQ(made.code, 0) << made.err;
  EXPECT_EQ(qrt({"check", path("net.qrtmodel")}).code, 0);
  write_array("x.npy", "(1, 3)", {1, -2, 3});
  const Outcome run = qrt({"run", path("net.qrtmodel"), "--input", path("x.npy")});
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("8.5"));
}

TEST_F(ImportCommandTest, SizesThatTheFileLeavesOpenComeFromTheInput) {
  write_model(path("net.onnx"), R"(g (float[n,1,h,w] x) => (float[n,1,a,b] y)
      { y = MaxPool<kernel_shape=[2, 2]>(x) })");
  write_array("x.npy", "(1, 1, 2, 3)", {1, 2, 3, 4, 5, 6});
  const Outcome run = qrt({"run", path("net.onnx"), "--input", path("x.npy")});
  EXPECT_EQ(run.code, 0) << run.err;
  EXPECT_EQ(qrt({"info", path("net.onnx")}).code, 6);
  EXPECT_EQ(qrt({"info", path("net.onnx"), "--input", "1x1x8x8"}).code, 0);
}

TEST_F(ImportCommandTest, SizesMayStayFree) {
  const char* const graph = R"(g (float[n,1,h,w] x) => (float[n,2,a,b] y)
      <float[2,1,3,3] w = {1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 2, 3, 4, 5, 6, 7, 8, 9}> {
        c = Conv<pads=[1, 1, 1, 1]>(x, w)
        y = Relu(c)
      })";
  const Outcome outcome = import(graph, {"--input", "1x1x?x?"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("input     \"x\" 1x1x?x?\n"),
                                 HasSubstr("output    \"y\" 1x2x?x?\n")));
  for (const std::string shape : {"(1, 1, 2, 3)", "(1, 3, 2)"}) {
    write_array("x.npy", shape, {1, 2, 3, 4, 5, 6});
    const Outcome run = qrt({"run", path("net.qrtmodel"), "--input", path("x.npy")});
    EXPECT_EQ(run.code, 0) << shape << run.err;
  }
}

// A first size that was taken for a batch is 1: of an array of several, the others would be lost.
TEST_F(ImportCommandTest, SeveralOfABatchAreRefused) {
  const char* const graph = R"(g (float[n,1,2] x) => (float[n,1,2] y) <float[2,2] w = {1, 2, 3, 4}>
      { y = MatMul(x, w) })";
  ASSERT_EQ(import(graph).code, 0);
  write_array("x.npy", "(3, 1, 2)", {1, 0, 0, 1, 1, 1});
  const Outcome refused = qrt({"run", path("net.qrtmodel"), "--input", path("x.npy")});
  EXPECT_EQ(refused.code, 3) << refused.out;
  EXPECT_THAT(refused.err,
              AllOf(HasSubstr("the model expects 1x1x2"), HasSubstr("it makes 2 numbers of 6")));
  // It need not be a batch: the array says so, or a question mark does.
  const Outcome imported = qrt({"run", path("net.onnx"), "--input", path("x.npy")});
  EXPECT_THAT(imported.out, HasSubstr("CHW 3x1x2\n1 2 3 4 4 6\n")) << imported.err;
  ASSERT_EQ(import(graph, {"--input", "?x1x2"}).code, 0);
  const Outcome free = qrt({"run", path("net.qrtmodel"), "--input", path("x.npy")});
  EXPECT_THAT(free.out, HasSubstr("CHW 3x1x2\n1 2 3 4 4 6\n")) << free.err;
}

TEST_F(ImportCommandTest, OperatorsAreListed) {
  const Outcome outcome = qrt({"import", "--operators"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.out, AllOf(StartsWith("operator"), HasSubstr("\nConv ")));
  EXPECT_THAT(qrt({"import", "--operators", "--json"}).out, HasSubstr("\"name\": \"Conv\""));
}

TEST_F(ImportCommandTest, KernelsAreChosenFromASet) {
  const Outcome outcome = import(kSmall, {"--isa", "sse", "--verify"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("\nkernels   sse\n"));
  EXPECT_EQ(import(kSmall, {"--isa", "mmx"}).code, 2);
}

TEST_F(ImportCommandTest, TuningBindsTheImportToItsSet) {
  write_model(path("net.onnx"), kSmall);
  const Outcome outcome = qrt({"tune", path("net.onnx"), path("tuned.json"), "--no-wisdom", "--isa",
                               "portable", "--budget", "1", "--input", "1x1x2x3"});
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  marlo::runtime::QRTModel model;
  model.FromFile(path("tuned.json").c_str(), "json");
  for (const auto& [id, layer] : model.config_arr->cfgs.begin()->second->cpu_sse->layer_cfgs) {
    const std::string& kernel = layer->kernel->kernel_type;
    EXPECT_TRUE(kernel.find("Fallback") != std::string::npos || kernel == "Input") << kernel;
  }
}

TEST_F(ImportCommandTest, NamesAreChecked) {
  EXPECT_EQ(qrt({"import"}).code, 2);
  EXPECT_EQ(import(kSmall, {}, "net.txt").code, 2);
  EXPECT_EQ(import(kSmall, {}, "net.qrmod").code, 2);
}

}  // namespace
}  // namespace qrt_tool_test
