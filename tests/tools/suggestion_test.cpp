#include "tools/qrt/suggestion.h"

#include <gtest/gtest.h>

namespace qrt_tool {
namespace {

const std::vector<std::string> kWords{"run", "info", "check", "image", "convert", "kernels"};

TEST(Suggestion, FewWrongLettersAreForgiven) {
  EXPECT_EQ(nearest_word("ifno", kWords), "info");
  EXPECT_EQ(nearest_word("RUN", kWords), "run");
  EXPECT_EQ(nearest_word("chekc", kWords), "check");
  EXPECT_EQ(nearest_word("convrt", kWords), "convert");
}

TEST(Suggestion, APartOfOnlyOneWordIsThatWord) {
  EXPECT_EQ(nearest_word("conv", kWords), "convert");
  EXPECT_EQ(nearest_word("nel", kWords), "kernels");
  EXPECT_EQ(nearest_word("ne", {"one", "none"}), "one");
}

TEST(Suggestion, WhatIsFarFromAllHasNone) {
  EXPECT_EQ(nearest_word("profile", kWords), "");
  EXPECT_EQ(nearest_word("", kWords), "");
  EXPECT_EQ(nearest_word("x", kWords), "");
  EXPECT_EQ(nearest_word("abc", {}), "");
  EXPECT_EQ(nearest_word(std::string(100000, 'a'), kWords), "");
}

TEST(Suggestion, TextNamesTheWord) {
  EXPECT_EQ(did_you_mean("rnu", kWords), "; did you mean \"run\"?");
  EXPECT_EQ(did_you_mean("profile", kWords), "");
}

}  // namespace
}  // namespace qrt_tool
