#include "qrt_core/runtime/model/weight_blob.h"

#include <cmath>
#include <limits>

#include "qrt_core/runtime/model/base64.h"
#include "tests/runtime/model/classes.h"
#include "tests/runtime/model/file_helpers.h"
#include "tests/runtime/model/object_forms.h"

namespace marlo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr float kInfinity = std::numeric_limits<float>::infinity();

std::vector<float> numbers_in(const std::string& text) {
  const std::string bytes = runtime::Base64Decode(text);
  std::vector<float> numbers(bytes.size() / sizeof(float));
  std::memcpy(numbers.data(), bytes.data(), numbers.size() * sizeof(float));
  return numbers;
}

// The weights of a layer after passing through the binary form once.
std::vector<float> passed_through(const std::vector<float>& numbers) {
  runtime::FullConnectionInfo layer;
  layer.weight = FormsMaker::base64_of(numbers);
  runtime::FullConnectionInfo other;
  EXPECT_TRUE(read_bytes(other, written(layer, "bin")));
  return numbers_in(other.weight);
}

TEST(WeightBlob, IsTruncatedToHalfInTheBinaryForm) {
  EXPECT_THAT(passed_through({0.1f, -0.1f, 1.0f, 65504.0f, 1e9f, -1e9f, 1e-9f}),
              ElementsAre(half_value_of(0x2E66), half_value_of(0xAE66), 1.0f, 65504.0f, kInfinity,
                          -kInfinity, 0.0f));
}

TEST(WeightBlob, KeepsANanThroughTheBinaryForm) {
  EXPECT_TRUE(std::isnan(passed_through({std::numeric_limits<float>::quiet_NaN()})[0]));
}

TEST(WeightBlob, LosesNothingMoreOnLaterPasses) {
  std::vector<float> numbers;
  for (int i = 0; i < 1000; ++i) numbers.push_back(std::sin(static_cast<float>(i)) * 3.0f);
  const std::vector<float> once = passed_through(numbers);
  EXPECT_NE(once, numbers);
  EXPECT_EQ(passed_through(once), once);
}

TEST(WeightBlob, IsACountAndThatManyHalvesInTheBinaryForm) {
  runtime::FullConnectionInfo layer;
  layer.weight = FormsMaker::base64_of({1.0f, -2.0f});
  const std::string bytes = written(layer, "bin");
  EXPECT_EQ(bytes.substr(bytes.size() - 20), le(2, 8) + le(0x3C00, 2) + le(0xC000, 2) + le(0, 8));
}

TEST(WeightBlob, ThatIsEmptyIsWrittenAsZeroAndReadBackAsAnUnchangedString) {
  runtime::FullConnectionInfo layer;
  const std::string bytes = written(layer, "bin");
  EXPECT_EQ(bytes.substr(bytes.size() - 16), std::string(16, '\0'));
  runtime::FullConnectionInfo other;
  other.weight = "kept";
  other.bias = "kept too";
  ASSERT_TRUE(read_bytes(other, bytes));
  EXPECT_EQ(other.weight, "kept");
  EXPECT_EQ(other.bias, "kept too");
}

TEST(WeightBlob, OfAnIncompleteFloatDropsIt) {
  runtime::FullConnectionInfo layer;
  layer.weight = "AACAPwAA";  // six bytes
  const std::string bytes = written(layer, "bin");
  EXPECT_EQ(bytes.substr(bytes.size() - 18), le(1, 8) + le(0x3C00, 2) + le(0, 8));
}

TEST(WeightBlob, IsPlainTextInJson) {
  runtime::FullConnectionInfo layer;
  layer.weight = "any text, not only Base64";
  EXPECT_THAT(written(layer, "json"), HasSubstr("\"weight\": \"any text, not only Base64\""));
}

TEST(WeightBlobList, IsReplacedAndStartsEachEntryEmpty) {
  runtime::GRUInfo layer;
  layer.weight_ih_forward = {FormsMaker::base64_of({1.0f}), ""};
  runtime::GRUInfo other;
  other.weight_ih_forward = {"old", "old", "old"};
  ASSERT_TRUE(read_bytes(other, written(layer, "bin")));
  EXPECT_EQ(other.weight_ih_forward, layer.weight_ih_forward);
}

TEST(WeightBlobOfAnActivation, StaysTextInTheBinaryForm) {
  runtime::ActivationInfo layer;
  layer.weight = "AACAPg==";
  const std::string bytes = written(layer, "bin");
  EXPECT_EQ(bytes.substr(bytes.size() - 16), counted("AACAPg=="));
}

/// A visitor of neither form: lists keys.
class KeyLister final : public runtime::Visitor {
 public:
#define QRT_LIST_KEY(type) \
  void Visit(type*, const char* key) override { keys.emplace_back(key); }
  using Serializable = runtime::Serializable;
  QRT_FOR_EACH_ATTRIBUTE_TYPE(QRT_LIST_KEY)
#undef QRT_LIST_KEY
  std::vector<std::string> keys;
};

TEST(WeightText, HoldsTheNumbersThatItIsMadeOf) {
  const std::vector<float> numbers = {0.1f, -2.0f, kInfinity};
  EXPECT_EQ(runtime::MakeWeightBlob(numbers.data(), 3), FormsMaker::base64_of(numbers));
  EXPECT_EQ(runtime::WeightNumbers(FormsMaker::base64_of(numbers)), numbers);
  EXPECT_EQ(runtime::MakeWeightBlob(nullptr, 0), "");
  EXPECT_THAT(runtime::WeightNumbers("AACAPwAA"), ElementsAre(1.0f));
  EXPECT_TRUE(runtime::WeightNumbers("").empty());
}

std::vector<std::string> names_of_weights(runtime::LayerInfo& layer) {
  std::vector<std::string> names;
  for (const runtime::LayerWeight& weight : runtime::WeightsOf(layer)) {
    names.push_back(weight.listed ? weight.key + "[" + std::to_string(weight.index) + "]"
                                  : weight.key);
  }
  return names;
}

TEST(WeightsOf, ALayerStandInTheOrderOfItsAttributesAndAreItsOwn) {
  runtime::Conv2dInfo layer;
  layer.serializable_type = "as it was read";
  layer.bias = "text";
  EXPECT_THAT(names_of_weights(layer), ElementsAre("weight", "bias"));
  *runtime::WeightsOf(layer)[0].blob = "new";
  EXPECT_EQ(layer.weight, "new");
  EXPECT_EQ(layer.bias, "text");
  EXPECT_EQ(layer.serializable_type, "as it was read");
}

TEST(WeightsOf, ARecurrentLayerAreTheEntriesOfItsLists) {
  runtime::GRUInfo layer;
  layer.weight_ih_forward = {"a", "b"};
  layer.bias_hh_reverse = {"c"};
  EXPECT_THAT(names_of_weights(layer),
              ElementsAre("weight_ih_forward[0]", "weight_ih_forward[1]", "bias_hh_reverse[0]"));
  EXPECT_EQ(*runtime::WeightsOf(layer)[1].blob, "b");
}

// The slopes of an activation are text in every form.
TEST(WeightsOf, LayersWithoutHalvesAreNone) {
  runtime::ActivationInfo activation;
  activation.weight = "text";
  EXPECT_TRUE(runtime::WeightsOf(activation).empty());
  runtime::TensorGetItemInfo items;
  items.num_sampling_infos = 2;
  items.sampling_infos.resize(2);
  EXPECT_TRUE(runtime::WeightsOf(items).empty());
}

TEST(ForeignVisitor, IsRefusedByEveryLayerWithWeightsButFullConnection) {
  for (const char* const name :
       {"Conv2dInfo", "ConvTranspose2dInfo", "Conv1dInfo", "BatchNorm1dInfo", "BatchNorm2dInfo",
        "InstanceNorm2dInfo", "RNNCellInfo", "RNNInfo", "LSTMCellInfo", "LSTMInfo", "GRUCellInfo",
        "GRUInfo"}) {
    const auto layer = make_object(name);
    EXPECT_EQ(error_of([&] { layer->VisitAttr(std::make_shared<KeyLister>()); }),
              "[QRT]: Not Implemented.\n")
        << name;
  }
}

TEST(ForeignVisitor, SeesTheWeightsOfAFullConnectionAsText) {
  runtime::FullConnectionInfo layer;
  const auto lister = std::make_shared<KeyLister>();
  layer.VisitAttr(lister);
  EXPECT_THAT(lister->keys,
              ElementsAre("serializable_type", "type", "id", "input_ids", "read_count",
                          "in_features", "out_features", "if_bias", "weight", "bias"));
}

TEST(ForeignVisitor, StartsAtTheCurrentVersion) {
  EXPECT_EQ(KeyLister()._serialization_protocol_version, 20015u);
}

}  // namespace
}  // namespace marlo::test
