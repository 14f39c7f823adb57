#include "qrt_core/runtime/engine/class_registry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

namespace marlo::test {

using namespace runtime;

namespace {

using IntRegistry = ClassRegistry<std::shared_ptr<int>>;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

IntRegistry::Factory makes(int value) {
  return [value] { return std::make_shared<int>(value); };
}

TEST(ClassRegistry, CreateOfAnUnknownKeyGivesAnEmptyPointerAndChangesNothing) {
  IntRegistry registry;
  EXPECT_EQ(registry.Create("a"), nullptr);
  EXPECT_THAT(registry.Keys(), IsEmpty());
  registry.Register("a", makes(1), false);
  EXPECT_EQ(registry.Create("b"), nullptr);
  EXPECT_EQ(registry.Create(""), nullptr);
  EXPECT_THAT(registry.Keys(), UnorderedElementsAre("a"));
}

TEST(ClassRegistry, RegisterOfANewKeyReturnsTrueWithEitherFlag) {
  IntRegistry registry;
  EXPECT_TRUE(registry.Register("a", makes(1), false));
  EXPECT_TRUE(registry.Register("b", makes(2), true));
  EXPECT_EQ(*registry.Create("a"), 1);
  EXPECT_EQ(*registry.Create("b"), 2);
}

TEST(ClassRegistry, WithoutOverwriteTheFirstFactoryStaysAndTheResultIsFalse) {
  IntRegistry registry;
  registry.Register("a", makes(1), false);
  EXPECT_FALSE(registry.Register("a", makes(2), registry.kKeep));
  EXPECT_EQ(*registry.Create("a"), 1);
}

TEST(ClassRegistry, WithOverwriteTheFactoryIsReplaced) {
  IntRegistry registry;
  registry.Register("a", makes(1), false);
  EXPECT_TRUE(registry.Register("a", makes(2), registry.kReplace));
  EXPECT_EQ(*registry.Create("a"), 2);
  EXPECT_EQ(registry.Keys().size(), 1u);
}

TEST(ClassRegistry, RefusesAFactoryThatHoldsNoFunction) {
  IntRegistry registry;
  EXPECT_THROW(registry.Register("A", nullptr, false), std::runtime_error);
  EXPECT_THROW(registry.Register("A", IntRegistry::Factory(), true), std::runtime_error);
  EXPECT_THAT(registry.Keys(), IsEmpty());
}

TEST(ClassRegistry, KeysCompareExactly) {
  IntRegistry registry;
  registry.Register("Key", makes(1), false);
  for (const char* key : {"key", "KEY", "Key ", " Key", "Ke", "Keyy"}) {
    EXPECT_EQ(registry.Create(key), nullptr) << key;
  }
}

TEST(ClassRegistry, EachCreateRunsTheFactory) {
  IntRegistry registry;
  registry.Register("a", makes(1), false);
  EXPECT_NE(registry.Create("a"), registry.Create("a"));
}

TEST(ClassRegistry, HoldsValuesOfAnyType) {
  ClassRegistry<int> registry;
  registry.Register(
      "seven", [] { return 7; }, false);
  EXPECT_EQ(registry.Create("seven"), 7);
  EXPECT_EQ(registry.Create("eight"), 0);
}

}  // namespace
}  // namespace marlo::test
