#include <gmock/gmock.h>

#include "qrt_toolkit/watch/recorder.h"
#include "tests/tools/tool_runner.h"
#include "tools/qrt/npy.h"

// `qrt compare`, and what `qrt run --dump` writes.

namespace qrt_tool_test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class CompareTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    toy_model()->ToFile(path("a.json").c_str(), "json");
    write_array("x.npy", "(1, 1, 3)", {1, 2, -4});
  }

  Outcome compare(marlo::runtime::QRTModel& second, const std::vector<std::string>& more = {}) {
    second.ToFile(path("b.json").c_str(), "json");
    std::vector<std::string> all{"compare", path("a.json"), path("b.json"), "--input",
                                 path("x.npy")};
    all.insert(all.end(), more.begin(), more.end());
    return qrt(all);
  }
};

TEST_F(CompareTest, EqualModelsDoNotDiffer) {
  const Outcome outcome = compare(*toy_model(), {"--bound", "0"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("1  mix"), HasSubstr("2  cut"), Not(HasSubstr("beyond"))));
}

TEST_F(CompareTest, TheFirstLayerBeyondTheBoundIsNamed) {
  auto other = toy_model();
  mix_of(*other).weight = blob_of({2.5f, -1});
  const Outcome outcome = compare(*other, {"--bound", "0.01"});
  EXPECT_EQ(outcome.code, 5);
  // 0.5 * -4 of a largest value of 2 * -4 + 0.5.
  EXPECT_THAT(outcome.err, HasSubstr("layer 1 \"mix\" (Conv2d, kernel "));
  EXPECT_THAT(outcome.err,
              HasSubstr("the first beyond 0.01: off by 2 where the largest value is 7.5\n"));
  EXPECT_THAT(outcome.out, HasSubstr("beyond\n"));
  EXPECT_EQ(compare(*other, {"--bound", "0.5"}).code, 0);
  EXPECT_EQ(compare(*other).code, 0);
}

TEST_F(CompareTest, JsonHasTheNumbers) {
  auto other = toy_model();
  mix_of(*other).weight = blob_of({2.5f, -1});
  EXPECT_THAT(compare(*other, {"--json", "--bound", "0.01"}).out,
              AllOf(HasSubstr("\"max_difference\": 2"), HasSubstr("\"largest_value\": 7.5"),
                    HasSubstr("\"first_beyond\": \"mix\"")));
}

TEST_F(CompareTest, OtherSizesAreADifference) {
  auto other = toy_model();
  mix_of(*other).stride_x = 2;
  const Outcome outcome = compare(*other);
  EXPECT_EQ(outcome.code, 5);
  EXPECT_THAT(outcome.err, HasSubstr("FLOAT32 CHW 2x1x3 against FLOAT32 CHW 2x1x2"));
}

TEST_F(CompareTest, ModelsWithoutACommonLayerAreRefused) {
  auto other = toy_model();
  auto& info = *other->model_arr->infos["net"];
  auto& config = *other->config_arr->cfgs["net"]->cpu_sse;
  for (std::string& id : info.squential_ids) {
    const std::string renamed = "other-" + id;
    info.layers[renamed] = info.layers[id];
    for (std::string& source : info.layers[renamed]->input_ids) source = "other-" + source;
    config.layer_cfgs[renamed] = config.layer_cfgs[id];
    id = renamed;
  }
  config.squential_ids = info.squential_ids;
  info.squential_output_ids = {"other-cut"};
  const Outcome outcome = compare(*other);
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err, HasSubstr("no layer has the same id in both"));
}

TEST_F(CompareTest, EveryLayerIsDumped) {
  const Outcome outcome =
      qrt({"run", path("a.json"), "--input", path("x.npy"), "--dump", path("d/e")});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr("wrote 3 arrays to "));
  EXPECT_THAT(qrt_tool::parse_npy(file_text(path("d/e/in.npy"))).values, ElementsAre(1, 2, -4));
  const auto mix = qrt_tool::parse_npy(file_text(path("d/e/mix.npy")));
  EXPECT_THAT(mix.sizes, ElementsAre(2u, 1u, 3u));
  EXPECT_THAT(mix.values, ElementsAre(2.5f, 4.5f, -7.5f, -1, -2, 4));
  EXPECT_THAT(qrt_tool::parse_npy(file_text(path("d/e/cut.npy"))).values,
              ElementsAre(2.5f, 4.5f, 0, 0, 0, 4));
}

TEST(Recorder, BlocksOfChannelsBecomePlanes) {
  using marlo::runtime::DataType;
  using marlo::runtime::LayoutType;
  marlo::toolkit::LayerRecord record;
  record.shape = marlo::runtime::TensorShape({2, 1, 2, 4}, DataType::UINT8, LayoutType::C4HW4);
  for (char i = 0; i < 16; ++i) record.bytes += i;
  const marlo::toolkit::LayerRecord planes = marlo::toolkit::in_planes(record);
  EXPECT_THAT(planes.shape.dims, ElementsAre(8u, 1u, 2u));
  EXPECT_EQ(planes.shape.layout, LayoutType::CHW);
  EXPECT_THAT(planes.values(), ElementsAre(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15));
}

}  // namespace
}  // namespace qrt_tool_test
