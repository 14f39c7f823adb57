#include <gmock/gmock.h>

#include "tests/tools/tool_runner.h"

namespace qrt_tool_test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class SelectTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    toy_model()->ToFile(path("m.qrtmodel").c_str(), "bin");
  }
};

TEST_F(SelectTest, WritesWhatTheModelsName) {
  recurrent_model()->ToFile(path("r.json").c_str(), "json");
  const Outcome outcome = qrt({"select", path("m.qrtmodel"), path("r.json")});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("//   " + path("m.qrtmodel") + "\n"),
                                 HasSubstr("entries::ReLU_Fallback_Float_M1(kernels);"),
                                 HasSubstr("entries::LSTM_Fallback_SC_F32_M1(kernels);"),
                                 Not(HasSubstr("SSE"))));
  const Outcome file = qrt({"select", "-", "--output", path("k.cpp")}, path("m.qrtmodel"));
  EXPECT_EQ(file.code, 0);
  EXPECT_EQ(file.out, "");
  EXPECT_THAT(file.err, HasSubstr("wrote 3 kernels to "));
  EXPECT_THAT(file_text(path("k.cpp")), HasSubstr("void init_register_operators("));
}

TEST_F(SelectTest, RefusesModelsWithOtherKernels) {
  auto model = toy_model();
  kernel_of(*model, "cut") = "Mine";
  model->ToFile(path("own.json").c_str(), "json");
  const Outcome own = qrt({"select", path("own.json")});
  EXPECT_EQ(own.code, 4);
  EXPECT_THAT(own.err, HasSubstr("layer \"cut\": this build has no kernel \"Mine\""));
  EXPECT_EQ(own.out, "");
  EXPECT_EQ(qrt({"select"}).code, 2);
  EXPECT_EQ(qrt({"select", "-", "-"}).code, 2);
  const Outcome other = qrt({"select", path("m.qrtmodel"), "--network", "nte"});
  EXPECT_EQ(other.code, 4);
  EXPECT_THAT(other.err, HasSubstr("there is no network \"nte\""));
}

}  // namespace
}  // namespace qrt_tool_test
