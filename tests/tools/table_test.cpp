#include "tools/qrt/table.h"

#include <gmock/gmock.h>

#include <sstream>

#include "tools/qrt/json_text.h"
#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

TEST(Table, AlignsColumnsAndDropsBlanksAtLineEnds) {
  Table table({{"name"}, {"count", true}, {"note"}});
  table.add({"a", "5", "x"});
  table.add({"longer", "1234567"});
  EXPECT_EQ(table.text(100),
            "name      count  note\n"
            "---------------------\n"
            "a             5  x\n"
            "longer  1234567\n");
}

TEST(Table, CutsTheWidestShrinkingColumn) {
  Table table({{"id", false, true}, {"kernel", false, true}, {"n", true}});
  table.add({"first", "abcdefghijklmnopqrstuvwxyz0123456789", "1"});
  std::istringstream lines(table.text(30));
  for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 30u) << line;
  EXPECT_NE(table.text(30).find("abcdefghi..123456789"), std::string::npos) << table.text(30);
}

TEST(Table, AMegabyteInACellIsCutAtOnce) {
  Table table({{"id", false, true}, {"other", false, true}});
  table.add({std::string(1 << 20, 'x'), std::string(1 << 19, 'y')});
  EXPECT_LT(table.text(60).size(), 200u);
}

TEST(Table, ColumnsThatDontShrinkStayWhole) {
  Table table({{"a"}, {"b"}});
  table.add({"0123456789", "0123456789"});
  EXPECT_NE(table.text(5).find("0123456789  0123456789"), std::string::npos);
}

TEST(Text, PrintableReplacesControlsAndBrokenUtf8) {
  EXPECT_EQ(printable("a\x1B[31m\n\x7F"), "a?[31m??");
  EXPECT_EQ(printable("caf\u00E9 \u2588"), "caf\u00E9 \u2588");
  EXPECT_EQ(printable("\xFF\xC3(\xE2\x82"),
            "?"
            "?(??");
  EXPECT_EQ(printable("\xC0\xAF\xED\xA0\x80\xF4\x90\x80\x80"), "?????????");
}

TEST(Text, ShortenedKeepsBothEnds) {
  EXPECT_EQ(shortened("abcdefghij", 6), "ab..ij");
  EXPECT_EQ(shortened("abc", 3), "abc");
  EXPECT_EQ(shortened("abcd", 2), "ab");
  EXPECT_EQ(width_of(shortened("\u2588\u2588\u2588\u2588\u2588\u2588", 5)), 5u);
}

TEST(JsonText, NumbersThatJsonLacksAreNull) {
  JsonText json;
  json.begin_object();
  json.numbers("n", {0.5, std::numeric_limits<double>::infinity(), -3.0});
  json.text("t", "a\"\n\xFF");
  json.end_object();
  EXPECT_EQ(json.finish(), "{\n  \"n\": [0.5, null, -3],\n  \"t\": \"a\\\"??\"\n}\n");
}

TEST(JsonText, FaultsNameThePlace) {
  EXPECT_EQ(json_fault("{\"a\": 1}"), "");
  EXPECT_EQ(json_fault(" \n"), "the file is empty");
  EXPECT_EQ(json_fault("[1]"), "expected an object, found an array");
  EXPECT_EQ(json_fault("7"), "expected an object, found a single value");
  EXPECT_THAT(json_fault("{\n  \"a\" 1}"), ::testing::StartsWith("line 2, column 7: "));
}

TEST(JsonText, DeepNestingDoesNotOverflow) {
  EXPECT_NE(json_fault(std::string(1 << 20, '[')), "");
  EXPECT_NE(json_fault(std::string(1 << 19, '[') + std::string(1 << 19, ']')), "");
}

TEST(JsonText, MemberNamesAreThoseOfTheRoot) {
  EXPECT_THAT(json_member_names("{\"a\": {\"b\": 1}, \"c\": [{\"d\": 2}]}"),
              ::testing::ElementsAre("a", "c"));
}

}  // namespace
}  // namespace qrt_tool
