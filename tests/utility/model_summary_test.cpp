#include "qrt_core/utility/model_summary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace marlo::test {

using namespace utility;

namespace {

using runtime::LayoutType;
using runtime::TensorShape;
using ::testing::ElementsAre;

const char* const kLine =
    R"({"qrt_model":1,"source":"net.onnx","producer":"p 1","inputs":[)"
    R"({"name":"x","shape":[3,4,0],"layout":"CHW","batch":true,)"
    R"("picture":{"color":"bgr","mean":[1,2,3],"scale":[0.5]}},)"
    R"({"name":"s","shape":[7,2],"layout":"FLEXIABLE","batch":true,"batch_axis":1}],)"
    R"("outputs":[{"name":"y","shape":[10],"layout":"C"}]})";

TEST(ReadSummary, TellsInputsAndOutputs) {
  const auto summary = read_summary(std::string(kLine) + "\nmore text");
  ASSERT_TRUE(summary);
  EXPECT_EQ(summary->source, "net.onnx");
  ASSERT_EQ(summary->inputs.size(), 2u);
  const DescribedTensor& x = summary->inputs[0];
  EXPECT_THAT(x.sizes, ElementsAre(3, 4, 0));
  EXPECT_EQ(x.layout, LayoutType::CHW);
  EXPECT_EQ(x.color, "bgr");
  EXPECT_THAT(x.mean, ElementsAre(1, 2, 3));
  EXPECT_THAT(x.scale, ElementsAre(0.5f));
  EXPECT_TRUE(x.has_preparation());
  EXPECT_FALSE(summary->inputs[1].has_preparation());
  EXPECT_EQ(summary->outputs.at(0).layout, LayoutType::C);
  EXPECT_EQ(summary->input("s"), &summary->inputs[1]);
  EXPECT_EQ(summary->input("z"), nullptr);
}

TEST(ReadSummary, OtherTextsHaveNone) {
  EXPECT_FALSE(read_summary(""));
  EXPECT_FALSE(read_summary("a network of mine"));
  EXPECT_FALSE(read_summary("{\"model\":1}"));
  EXPECT_FALSE(read_summary("{\"qrt_model\":1,\"inputs\":["));
  EXPECT_TRUE(read_summary("{\"qrt_model\":1,\"inputs\":3}"));
}

TEST(DescribedShape, TakesTheSourcesSizesWithOrWithoutTheirBatch) {
  const auto summary = read_summary(kLine);
  const DescribedTensor& x = summary->inputs[0];
  EXPECT_THAT(described_shape(x, {3, 4, 9})->dims, ElementsAre(3, 4, 9));
  EXPECT_THAT(described_shape(x, {1, 3, 4, 5})->dims, ElementsAre(3, 4, 5));
  EXPECT_EQ(described_shape(x, {1, 3, 4, 5})->layout, LayoutType::CHW);
  EXPECT_FALSE(described_shape(x, {2, 3, 4, 5}));
  EXPECT_FALSE(described_shape(x, {3, 5, 9}));
  EXPECT_FALSE(described_shape(x, {}));
  const DescribedTensor& s = summary->inputs[1];
  EXPECT_THAT(described_shape(s, {7, 1, 2})->dims, ElementsAre(7, 2));
  EXPECT_FALSE(described_shape(s, {1, 7, 2}));
}

}  // namespace
}  // namespace marlo::test
