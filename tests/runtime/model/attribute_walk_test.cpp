#include <cmath>

#include "tests/runtime/model/classes.h"
#include "tests/runtime/model/file_helpers.h"
#include "tests/runtime/model/object_forms.h"

// Every persisted class against tests/data/attributes.txt: names, order, widths, defaults,
// versions.

namespace marlo::test {
namespace {

using runtime::LayerInfo;
using runtime::Serializable;

constexpr uint32_t kSeeds = 25;
constexpr uint32_t kOldVersions[] = {19999, 20003, 20004, 20005, 20007, 20008, 20011, 20012};

class AttributeWalk : public ::testing::TestWithParam<std::string> {
 protected:
  std::shared_ptr<Serializable> fresh() const { return make_object(GetParam()); }
};

TEST_P(AttributeWalk, WritesJsonMembersInDeclaredOrder) {
  for (uint32_t seed = 0; seed < kSeeds; ++seed) {
    const Forms forms = FormsMaker(seed).file(GetParam());
    const auto object = fresh();
    ASSERT_TRUE(object->FromJsonString(forms.json_given.c_str()));
    ASSERT_EQ(difference(forms.json, written(*object, "json")), "") << "seed " << seed;
  }
}

TEST_P(AttributeWalk, WritesTheBytesOfItsTable) {
  for (uint32_t seed = 0; seed < kSeeds; ++seed) {
    const Forms forms = FormsMaker(seed).file(GetParam());
    const auto object = fresh();
    object->FromJsonString(forms.json_given.c_str());
    ASSERT_EQ(written(*object, "bin"), forms.bytes) << "seed " << seed;
  }
}

TEST_P(AttributeWalk, ComesBackFromTheBinaryFormWithWeightsTruncatedOnce) {
  for (uint32_t seed = 0; seed < kSeeds; ++seed) {
    const Forms forms = FormsMaker(seed).file(GetParam());
    const auto object = fresh();
    ASSERT_TRUE(read_bytes(*object, forms.bytes));
    ASSERT_EQ(difference(forms.json_after, written(*object, "json")), "") << "seed " << seed;
    ASSERT_EQ(written(*object, "bin"), forms.bytes_after) << "seed " << seed;
  }
}

TEST_P(AttributeWalk, ReadsFilesOfOlderVersions) {
  for (const uint32_t version : kOldVersions) {
    for (uint32_t seed = 0; seed < 4; ++seed) {
      const Forms forms = FormsMaker(seed, version).file(GetParam());
      const auto object = fresh();
      ASSERT_TRUE(read_bytes(*object, forms.bytes)) << version;
      ASSERT_EQ(difference(forms.json_after, written(*object, "json")), "") << version;
      ASSERT_EQ(written(*object, "bin"), forms.bytes_after) << version;
    }
  }
}

TEST_P(AttributeWalk, ReadsJsonOfOlderVersions) {
  for (const uint32_t version : kOldVersions) {
    const Forms forms = FormsMaker(version, version).file(GetParam());
    const auto object = fresh();
    ASSERT_TRUE(object->FromJsonString(forms.json_given.c_str()));
    ASSERT_EQ(difference(forms.json, written(*object, "json")), "") << version;
  }
}

TEST_P(AttributeWalk, StartsWithItsDefaults) {
  const auto object = fresh();
  Document document;
  runtime::json::parse(document, written(*object, "json").c_str());
  for (const Attribute& attribute : AttributeTable::get().attributes_of(GetParam())) {
    if (!attribute.has_default || attribute.key == "type") continue;
    const Value& found = document[attribute.key.c_str()];
    const std::string& stated = attribute.default_text;
    SCOPED_TRACE(attribute.key);
    if (stated == "[]") {
      ASSERT_TRUE(found.IsArray());
      EXPECT_TRUE(found.Empty());
    } else if (attribute.type == "string" || attribute.type == "blob") {
      EXPECT_EQ(found.GetString(), stated);
    } else if (attribute.type == "bool") {
      EXPECT_EQ(found.GetBool(), stated == "true");
    } else {
      EXPECT_EQ(static_cast<float>(found.GetDouble()), std::stof(stated));
    }
  }
}

TEST_P(AttributeWalk, KnowsItsName) {
  const auto object = fresh();
  const std::string short_name = AttributeTable::get().of(GetParam()).short_name();
  const bool is_shape = GetParam().rfind("TensorShape", 0) == 0;
  EXPECT_EQ(object->serializable_type, is_shape ? "Serializable" : short_name);
  EXPECT_EQ(object->GetClassTypeNameWithNamespace(), "marlo::runtime::" + GetParam());
  EXPECT_EQ(object->serializable_type, is_shape ? "Serializable" : short_name)
      << "the whole name is asked for without a change";
  EXPECT_EQ(object->GetClassTypeName(), short_name);
  EXPECT_EQ(object->serializable_type, "marlo::runtime::" + GetParam());
}

TEST_P(AttributeWalk, RefusesAFileThatIsCutAnywhere) {
  const Forms forms = FormsMaker(3).file(GetParam());
  for (size_t size = 4; size < forms.bytes.size(); size += 1 + forms.bytes.size() / 64) {
    const auto object = fresh();
    EXPECT_THAT(error_of([&] { read_bytes(*object, forms.bytes.substr(0, size)); }),
                ::testing::ContainsRegex("failed to read a .* value, error code is 0"))
        << size << " of " << forms.bytes.size() << " bytes";
  }
}

INSTANTIATE_TEST_SUITE_P(AllClasses, AttributeWalk,
                         ::testing::ValuesIn(AttributeTable::get().names()),
                         [](const auto& instance) {
                           std::string name = instance.param;
                           const size_t colons = name.find("::");
                           return colons == std::string::npos ? name : name.replace(colons, 2, "_");
                         });

TEST(AttributeTable, HasAllClassesOfLayersAndParameters) {
  EXPECT_EQ(AttributeTable::get().layer_classes().size(), 55u);
  EXPECT_EQ(AttributeTable::get().names_with_prefix("InferenceParam").size(), 23u)
      << "22 and their base";
}

TEST(AttributeTable, GivesFreshLayersTheirTypeCodes) {
  for (const std::string& name : AttributeTable::get().layer_classes()) {
    const auto layer = std::dynamic_pointer_cast<LayerInfo>(make_object(name));
    ASSERT_NE(layer, nullptr) << name;
    const int code = AttributeTable::get().of(name).code;
    // Files have always had the code of its counterpart there.
    EXPECT_EQ(layer->type, name == "TensorUnSqueezeInfo" ? 15 : code) << name;
  }
  EXPECT_EQ(LayerInfo().type, 65535);
}

}  // namespace
}  // namespace marlo::test
