#include "qrt_core/runtime/model/model_info.h"

#include "qrt_core/runtime/model/json_visitor.h"

#include "tests/runtime/model/classes.h"
#include "tests/runtime/model/file_helpers.h"
#include "tests/support/paths.h"

namespace marlo::test {
namespace {

using runtime::QRModelInfo;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

const std::string kOldVersionWarning =
    "[QRT] (Warnning): This QRModelInfo may be a old vesion file, please verify it.";

// The JSON of a network: ids, codes, and the layers' own texts.
std::string network(const std::string& ids, const std::string& codes, const std::string& layers) {
  return R"({"serializable_type":"","squential_ids":[)" + ids + R"(],"squential_types":[)" + codes +
         "]" + (layers.empty() ? "" : ",") + layers + "}";
}

std::shared_ptr<runtime::LayerInfo> layer_reading(const std::vector<std::string>& sources) {
  auto layer = std::make_shared<runtime::ActivationInfo>();
  layer->input_ids = sources;
  return layer;
}

TEST(QRModelInfo, WithoutLayersHasEmptyListsAndAnEmptyTableAndWalks) {
  QRModelInfo info;
  EXPECT_THAT(info.layers, IsEmpty());
  QRModelInfo other;
  ASSERT_TRUE(read_bytes(other, written(info, "bin")));
  ASSERT_TRUE(other.FromJsonString(written(info, "json").c_str()));
  EXPECT_THAT(other.squential_ids, IsEmpty());
  EXPECT_THAT(other.layers, IsEmpty());
}

TEST(QRModelInfo, WithAnIdButNoMemberGetsADefaultObjectOfTheRightClassAndType) {
  QRModelInfo info;
  const LogCapture log;
  info.FromJsonString(network("\"a\",\"b\"", "2,16", "").c_str());
  ASSERT_EQ(info.layers.size(), 2u);
  EXPECT_NE(std::dynamic_pointer_cast<runtime::Conv2dInfo>(info.layers["a"]), nullptr);
  EXPECT_EQ(info.layers["a"]->type, 2);
  EXPECT_NE(std::dynamic_pointer_cast<runtime::TensorUnSqueezeInfo>(info.layers["b"]), nullptr);
  EXPECT_EQ(info.layers["b"]->type, 16) << "repaired";
  EXPECT_THAT(log.lines(), ElementsAre(kOldVersionWarning));
}

TEST(QRModelInfo, LayerWithoutTypeWarnsAndTakesTheCodeOfTheList) {
  QRModelInfo info;
  const LogCapture log;
  info.FromJsonString(
      network("\"a\"", "1", R"("a":{"serializable_type":"","id":"a","weight":""})").c_str());
  EXPECT_EQ(info.layers["a"]->type, 1);
  EXPECT_THAT(log.lines(), ElementsAre(kOldVersionWarning));
}

TEST(QRModelInfo, CodeOfTheListWinsOverTheObjectsOwn) {
  QRModelInfo info;
  const LogCapture log;
  info.FromJsonString(
      network("\"a\"", "0", R"("a":{"serializable_type":"","type":9,"id":"a"})").c_str());
  EXPECT_EQ(info.layers["a"]->type, 0);
  EXPECT_THAT(log.lines(), ElementsAre(kOldVersionWarning));
}

TEST(QRModelInfo, OfVersion20003HasNoSummaryAndFmlasOf4Bytes) {
  const std::string extra = counted("NetExtraInfo") + std::string(20, '\0') + le(5, 4) +
                            counted("TimeInfo") + std::string(24, '\0') + counted("cpu");
  QRModelInfo info;
  ASSERT_TRUE(read_bytes(
      info, binary_file(counted("QRModelInfo") + le(0, 8) + extra + le(0, 8) + le(0, 8), 20003)));
  EXPECT_EQ(info.extra_info.fmlas, 5u);
  EXPECT_EQ(info.extra_info.device, "cpu");
  EXPECT_EQ(info.extra_info.summary, "");
}

TEST(QRModelInfo, WithListsOfDifferentLengthIsRefused) {
  QRModelInfo info;
  EXPECT_EQ(error_of([&] { info.FromJsonString(network("\"a\"", "1,2", "").c_str()); }),
            "[QRT]: Length of layer id and type mismatch.\n");
}

TEST(QRModelInfo, WithCode65535ForANewIdIsRefused) {
  QRModelInfo info;
  EXPECT_EQ(error_of([&] { info.FromJsonString(network("\"a\"", "65535", "").c_str()); }),
            "[QRT]: Unknow Layer Type.\n");
}

TEST(QRModelInfo, WithAnUnsupportedCodeIsRefused) {
  for (const char* const code : {"4", "65534", "251"}) {
    QRModelInfo info;
    EXPECT_EQ(error_of([&] { info.FromJsonString(network("\"a\"", code, "").c_str()); }),
              std::string("[QRT]: Unsupported Layer Type [") + code + "].\n");
  }
}

TEST(QRModelInfo, WithCode65535ForAnIdOfItsTableRepairsTheType) {
  QRModelInfo info;
  info.layers["a"] = std::make_shared<runtime::InputInfo>();
  const LogCapture log;
  EXPECT_TRUE(info.FromJsonString(network("\"a\"", "65535", "").c_str()));
  EXPECT_EQ(info.layers["a"]->type, 65535);
}

TEST(QRModelInfo, ReadTwiceAppendsTheCodesAndThusFails) {
  QRModelInfo info;
  const std::string text = network("\"a\"", "0", "");
  info.FromJsonString(text.c_str());
  EXPECT_THAT(error_of([&] { info.FromJsonString(text.c_str()); }),
              HasSubstr("Length of layer id and type mismatch."));
}

TEST(QRModelInfo, ReadIntoANonEmptyTableOverwritesEntriesOfEqualIds) {
  QRModelInfo info;
  const auto kept = layer_reading({});
  const auto overwritten = std::make_shared<runtime::InputInfo>();
  info.layers["kept"] = kept;
  info.layers["a"] = overwritten;
  info.FromJsonString(
      network("\"a\"", "0", R"("a":{"serializable_type":"","type":0,"id":"a","location":4})")
          .c_str());
  EXPECT_EQ(info.layers["a"], overwritten);
  EXPECT_EQ(overwritten->location, 4);
  EXPECT_EQ(info.layers["kept"], kept);
}

TEST(QRModelInfo, VisitsALayerAsOftenAsItIsListed) {
  QRModelInfo info;
  info.FromJsonString(network("\"a\",\"a\"", "14,14",
                              R"("a":{"serializable_type":"","type":14,"id":"a","axes":[1,0]})")
                          .c_str());
  EXPECT_EQ(info.layers.size(), 1u);
  const auto layer = std::dynamic_pointer_cast<runtime::TensorTransposeInfo>(info.layers["a"]);
  ASSERT_NE(layer, nullptr);
  EXPECT_THAT(layer->axes, ElementsAre(1, 0, 1, 0));
}

TEST(QRModelInfo, IsWrittenWithoutChangingItsTable) {
  QRModelInfo info;
  info.squential_ids = {"a"};
  info.squential_types = {1};
  info.layers["a"] = layer_reading({});
  info.layers["not listed"] = layer_reading({});
  written(info, "json");
  EXPECT_EQ(info.layers.size(), 2u);
}

TEST(QRModelInfo, RefusesAVisitorOfALaterVersion) {
  QRModelInfo info;
  Document document(rapidjson::kObjectType);
  const auto setter =
      std::make_shared<runtime::JSONNodeSetter>(document, document.GetAllocator(), false);
  setter->_serialization_protocol_version = 20016;
  EXPECT_EQ(error_of([&] { info.VisitAttr(setter); }), "[QRT]: ");
}

TEST(QRModelInfoIds, OfInputsAreThoseOfCode0InOrder) {
  QRModelInfo info;
  info.squential_ids = {"b", "x", "a", "y"};
  info.squential_types = {0, 1, 0, 2};
  EXPECT_THAT(info.GetInputIDs(), ElementsAre("b", "a"));
}

TEST(QRModelInfoIds, OfOutputsAreTheLayersThatNobodyReads) {
  QRModelInfo info;
  info.layers["x"] = layer_reading({});
  info.layers["y"] = layer_reading({"x", "x"});
  info.layers["z"] = layer_reading({"x"});
  info.layers["x"]->read_count = 99;
  EXPECT_THAT(info.GetOutputIDs(), UnorderedElementsAre("y", "z"));
  EXPECT_EQ(info.layers["x"]->read_count, 3);
  EXPECT_EQ(info.layers["y"]->read_count, 0);
  EXPECT_EQ(info.GetOutputIDs(), info.GetOutputIDs()) << "in a stable order";
}

TEST(QRModelInfoIds, OfOutputsAreAllLayersWhenNoneHasInputs) {
  QRModelInfo info;
  for (const char* const id : {"a", "b", "c"}) info.layers[id] = layer_reading({});
  EXPECT_THAT(info.GetOutputIDs(), UnorderedElementsAre("a", "b", "c"));
}

TEST(QRModelInfoIds, OfOutputsNameALayerThatIsMissing) {
  QRModelInfo info;
  info.layers["y"] = layer_reading({"gone"});
  EXPECT_THAT(error_of([&] { info.GetOutputIDs(); }),
              HasSubstr("layer \"y\" reads layer \"gone\", which is not in the network"));
}

TEST(QRTModel, OfAFreshObjectIsAllZeroAndHasItsTwoTrees) {
  const runtime::QRTModel model;
  EXPECT_EQ(model.sdk_type, "");
  EXPECT_EQ(model.core_major_ver + model.core_minor_ver + model.sdk_major_ver + model.sdk_minor_ver,
            0);
  ASSERT_NE(model.model_arr, nullptr);
  ASSERT_NE(model.config_arr, nullptr);
  EXPECT_THAT(model.model_arr->infos, IsEmpty());
  EXPECT_THAT(model.config_arr->cfgs, IsEmpty());
}

TEST(QRTModel, LiesInItsFileAsDocumented) {
  runtime::QRTModel model;
  model.sdk_type = "s";
  model.core_major_ver = 1;
  model.core_minor_ver = 2;
  model.sdk_major_ver = 3;
  model.sdk_minor_ver = 4;
  model.model_arr->squential_ids = {"n"};
  auto info = std::make_shared<QRModelInfo>();
  info->squential_output_ids = {"x"};
  info->squential_ids = {"x"};
  info->squential_types = {0};
  auto input = std::make_shared<runtime::InputInfo>();
  input->id = "x";
  info->layers["x"] = input;
  model.model_arr->infos["n"] = info;
  model.config_arr->squential_ids = {"n"};
  const std::string extra = counted("NetExtraInfo") + std::string(28, '\0') + counted("TimeInfo") +
                            std::string(24, '\0') + counted("") + counted("");
  const std::string layer =
      counted("InputInfo") + le(0, 2) + counted("x") + le(0, 8) + le(0, 2) + le(0, 2);
  const std::string ids = le(1, 8) + counted("x");
  const std::string network_bytes =
      counted("QRModelInfo") + ids + extra + ids + le(1, 8) + le(0, 2) + layer;
  const std::string configuration = std::string(8 * 16, '\0');  // eight back ends without layers
  const std::string array_ids = le(1, 8) + counted("n");
  EXPECT_EQ(written(model, "bin"), binary_file(counted("s") + le(1, 2) + le(2, 2) + le(3, 2) +
                                               le(4, 2) + counted("QRModelInfoArr") + array_ids +
                                               network_bytes + array_ids + configuration));
}

TEST(QRTModel, AsJsonAndAsBinaryIsTheSameAfterOneBinaryRound) {
  runtime::QRTModel model;
  model.FromFile(test::test_data_path("models/small.json").c_str());
  runtime::QRTModel once;
  ASSERT_TRUE(read_bytes(once, written(model, "bin")));
  runtime::QRTModel as_json;
  as_json.FromJsonString(written(once, "json").c_str());
  EXPECT_EQ(written(as_json, "bin"), written(once, "bin"));
}

TEST(QRTModel, HoldsSeveralNetworks) {
  runtime::QRTModel model;
  for (const char* const id : {"second", "first"}) {
    model.model_arr->squential_ids.push_back(id);
    model.model_arr->infos[id] = std::make_shared<QRModelInfo>();
    model.model_arr->infos[id]->extra_info.device = id;
  }
  runtime::QRTModel other;
  ASSERT_TRUE(read_bytes(other, written(model, "bin")));
  EXPECT_THAT(other.model_arr->squential_ids, ElementsAre("second", "first"));
  EXPECT_EQ(other.model_arr->infos["first"]->extra_info.device, "first");
  EXPECT_EQ(other.model_arr->infos["second"]->extra_info.device, "second");
}

TEST(QRTModel, CopiesWithAllItHolds) {
  runtime::QRTModel model;
  model.FromFile(test::test_data_path("models/small.json").c_str());
  runtime::QRTModel copy = model;
  EXPECT_EQ(written(copy, "bin"), written(model, "bin"));
  QRModelInfo info;
  info = *model.model_arr->infos["net"];
  EXPECT_EQ(info.squential_ids.size(), 5u);
}

}  // namespace
}  // namespace marlo::test
