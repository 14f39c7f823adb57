#include <gmock/gmock.h>

#include "tests/tools/tool_runner.h"

namespace qrt_tool_test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

class ConvertTest : public ToolTest {
 protected:
  Outcome convert(const std::string& from, const std::string& to) {
    return qrt({"convert", path(from), path(to)});
  }
};

TEST_F(ConvertTest, ModelGoesToBinaryAndBack) {
  toy_model()->ToFile(path("a.json").c_str(), "json");
  const Outcome outcome = convert("a.json", "b.qrtmodel");
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, HasSubstr("b.qrtmodel (model, "));
  EXPECT_EQ(convert("b.qrtmodel", "c.json").code, 0);
  // The toy's weights fit half precision, so nothing is lost.
  EXPECT_EQ(file_text(path("a.json")), file_text(path("c.json")));
}

TEST_F(ConvertTest, SingleObjectsGoBothWays) {
  auto model = toy_model();
  model->model_arr->infos["net"]->ToFile(path("network.json").c_str(), "json");
  model->model_arr->ToFile(path("networks.json").c_str(), "json");
  model->config_arr->cfgs["net"]->cpu_sse->ToFile(path("config.json").c_str(), "json");
  model->config_arr->ToFile(path("configs.json").c_str(), "json");
  const std::pair<std::string, std::string> kinds[] = {{"network", "x.qrmod"},
                                                       {"networks", "x.qrmods"},
                                                       {"config", "x.qrcfg"},
                                                       {"configs", "x.qrcfgs"}};
  for (const auto& [kind, binary] : kinds) {
    EXPECT_EQ(convert(kind + ".json", binary).code, 0) << kind;
    EXPECT_EQ(convert(binary, kind + "-2.json").code, 0) << kind;
    EXPECT_EQ(file_text(path(kind + ".json")), file_text(path(kind + "-2.json"))) << kind;
    // A .json file is recognised by its members.
    EXPECT_THAT(convert(kind + ".json", kind + "-3.json").err, HasSubstr("(" + kind + ", "));
  }
}

TEST_F(ConvertTest, KindMustAgreeWithTheNames) {
  toy_model()->ToFile(path("a.qrtmodel").c_str(), "bin");
  const Outcome outcome = convert("a.qrtmodel", "b.qrmod");
  EXPECT_EQ(outcome.code, 2);
  EXPECT_THAT(outcome.err, HasSubstr("its name says that it is a network; expected a model"));
  EXPECT_EQ(qrt({"convert", path("a.qrtmodel"), path("b.json"), "--kind", "config"}).code, 2);
  const Outcome word = qrt({"convert", path("a.qrtmodel"), path("b.json"), "--kind", "thing"});
  EXPECT_EQ(word.code, 2);
  EXPECT_THAT(word.err, HasSubstr("expected one of model, network, networks, config, configs"));
}

TEST_F(ConvertTest, NeverOverwritesItsInput) {
  toy_model()->ToFile(path("a.json").c_str(), "json");
  const std::string before = file_text(path("a.json"));
  fs::create_symlink(path("a.json"), path("link.json"));
  for (const std::string to : {"a.json", "link.json", "./a.json"}) {
    const Outcome outcome = convert("a.json", to);
    EXPECT_EQ(outcome.code, 2) << to;
    EXPECT_THAT(outcome.err, HasSubstr("the same file"));
  }
  EXPECT_EQ(file_text(path("a.json")), before);
}

TEST_F(ConvertTest, UnknownSuffixIsAUsageError) {
  toy_model()->ToFile(path("a.json").c_str(), "json");
  EXPECT_EQ(convert("a.json", "b.txt").code, 2);
  EXPECT_EQ(convert("a.txt", "b.json").code, 2);
  EXPECT_EQ(convert("a.JSON", "b.json").code, 2);
}

TEST_F(ConvertTest, BadInputLeavesTheOldOutput) {
  write_text(path("a.json"), "{\"sdk_type\": \"x\"");
  write_text(path("b.qrtmodel"), "precious");
  const Outcome outcome = convert("a.json", "b.qrtmodel");
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(outcome.err, AllOf(HasSubstr("a.json: line 1"), HasSubstr("column")));
  EXPECT_EQ(file_text(path("b.qrtmodel")), "precious");
}

TEST_F(ConvertTest, UnwritableOutputIsNamedAndLeavesNothing) {
  toy_model()->ToFile(path("a.json").c_str(), "json");
  const Outcome outcome = convert("a.json", "absent/b.qrtmodel");
  EXPECT_EQ(outcome.code, 5);
  EXPECT_THAT(outcome.err, HasSubstr("absent/b.qrtmodel: can't be written: No such file"));
  fs::create_directories(path("folder.qrtmodel"));
  EXPECT_THAT(convert("a.json", "folder.qrtmodel").err, HasSubstr("it is not a regular file"));
  for (const auto& entry : fs::directory_iterator(folder_)) {
    EXPECT_EQ(entry.path().string().find(".new-"), std::string::npos) << entry.path();
  }
}

TEST_F(ConvertTest, NewFilesFollowTheUmaskAndLinksStay) {
  toy_model()->ToFile(path("a.json").c_str(), "json");
  write_text(path("real.qrtmodel"), "old");
  fs::create_symlink(path("real.qrtmodel"), path("link.qrtmodel"));
  EXPECT_EQ(convert("a.json", "link.qrtmodel").code, 0);
  EXPECT_TRUE(fs::is_symlink(path("link.qrtmodel")));
  EXPECT_NE(file_text(path("real.qrtmodel")), "old");
  EXPECT_NE(fs::status(path("real.qrtmodel")).permissions() & fs::perms::owner_read,
            fs::perms::none);
}

}  // namespace
}  // namespace qrt_tool_test
