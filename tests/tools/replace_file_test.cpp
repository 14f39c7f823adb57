#include <gmock/gmock.h>
#include <sys/stat.h>

#include "tests/tools/tool_runner.h"
#include "tools/qrt/files.h"

namespace qrt_tool_test {
namespace {

using ::testing::HasSubstr;

class ReplaceFileTest : public ToolTest {
 protected:
  static mode_t mode_of(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status.st_mode & 07777;
  }
};

TEST_F(ReplaceFileTest, KeepsTheModeOfAnExistingFile) {
  for (const mode_t mode : {0600u, 0640u, 0755u}) {
    write_text(path("f"), "old");
    ASSERT_EQ(chmod(path("f").c_str(), mode), 0);
    qrt_tool::write_file(path("f"), "new");
    EXPECT_EQ(mode_of(path("f")), mode);
    EXPECT_EQ(file_text(path("f")), "new");
  }
}

TEST_F(ReplaceFileTest, ANewFileFollowsTheUmask) {
  const mode_t before = umask(027);
  qrt_tool::write_file(path("f"), "new");
  umask(before);
  EXPECT_EQ(mode_of(path("f")), 0640u);
}

TEST_F(ReplaceFileTest, AReadOnlyFileIsLeft) {
  write_text(path("f"), "old");
  ASSERT_EQ(chmod(path("f").c_str(), 0400), 0);
  try {
    qrt_tool::write_file(path("f"), "new");
    ADD_FAILURE() << "it was written";
  } catch (const qrt_tool::ToolError& error) {
    EXPECT_THAT(error.what(), HasSubstr("f: can't be written: it is read-only"));
  }
  EXPECT_EQ(file_text(path("f")), "old");
}

TEST_F(ReplaceFileTest, AllHardLinksLeadToTheNewContents) {
  write_text(path("f"), "a longer text than the new one");
  fs::create_hard_link(path("f"), path("g"));
  qrt_tool::write_file(path("f"), "new");
  EXPECT_EQ(file_text(path("g")), "new");
  EXPECT_EQ(fs::hard_link_count(path("f")), 2u);
}

TEST_F(ReplaceFileTest, SymbolicLinksStay) {
  write_text(path("real"), "old");
  fs::create_symlink("real", path("link"));
  qrt_tool::write_file(path("link"), "new");
  EXPECT_TRUE(fs::is_symlink(path("link")));
  EXPECT_EQ(file_text(path("real")), "new");
}

TEST_F(ReplaceFileTest, AFailureLeavesTheOldFileAndNothingBesideIt) {
  write_text(path("f"), "old");
  EXPECT_THROW(qrt_tool::replace_file(path("f"),
                                      [](const std::string& temporary) {
                                        write_text(temporary, "half");
                                        throw qrt_tool::ToolError(qrt_tool::kRunError, "no");
                                      }),
               qrt_tool::ToolError);
  EXPECT_EQ(file_text(path("f")), "old");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 1);
}

// However the tool ends, the target is the old file or the whole new one, and nothing else is left.
TEST_F(ReplaceFileTest, ASignalLeavesNothingBesideTheFile) {
  auto model = toy_model();
  mix_of(*model).weight = blob_of(std::vector<float>(1000000, 0.5f));
  model->ToFile(path("m.json").c_str(), "json");
  ASSERT_EQ(qrt({"convert", path("m.json"), path("whole.qrtmodel")}).code, 0);
  const std::string whole = file_text(path("whole.qrtmodel"));
  size_t ended = 0;
  for (const std::string signal : {"TERM", "KILL"}) {
    for (int delay = 5; delay <= 125; delay += 15) {
      write_text(path("out.qrtmodel"), "old");
      const std::string command = "timeout -s " + signal + " " + std::to_string(delay / 1000.0) +
                                  " '" + tool_path() + "' convert '" + path("m.json") + "' '" +
                                  path("out.qrtmodel") + "' 2>/dev/null";
      ended += std::system(command.c_str()) == 0 ? 0 : 1;
      const std::string left = file_text(path("out.qrtmodel"));
      EXPECT_TRUE(left == "old" || left == whole) << signal << " after " << delay << " ms";
    }
  }
  EXPECT_GT(ended, 0u);
  for (const auto& entry : fs::directory_iterator(folder_)) {
    EXPECT_EQ(entry.path().string().find(".new-"), std::string::npos) << entry.path();
  }
}

}  // namespace
}  // namespace qrt_tool_test
