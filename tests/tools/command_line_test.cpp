#include <gmock/gmock.h>

#include "tests/support/kernels.h"
#include "tests/tools/tool_runner.h"

namespace qrt_tool_test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class CommandLineTest : public ToolTest {};

TEST_F(CommandLineTest, UsageErrorsAre2) {
  EXPECT_EQ(qrt({}).code, 2);
  EXPECT_EQ(qrt({"fly"}).code, 2);
  EXPECT_EQ(qrt({"info"}).code, 2);
  EXPECT_EQ(qrt({"run", "a.json", "--nonsense"}).code, 2);
  EXPECT_EQ(qrt({"run", "a.json", "--repeat", "0"}).code, 2);
  EXPECT_EQ(qrt({"run", "a.json", "--labels", "x"}).code, 2);
}

TEST_F(CommandLineTest, HelpAndVersionGoToStandardOutput) {
  const Outcome help = qrt({"--help"});
  EXPECT_EQ(help.code, 0);
  EXPECT_THAT(help.out, AllOf(HasSubstr("Examples:"), HasSubstr("Exit codes:")));
  EXPECT_EQ(qrt({"run", "--help"}).code, 0);
  EXPECT_EQ(qrt({"--version"}).out, "qrt (qrt_core 1.0)\n");
}

TEST_F(CommandLineTest, HelpFits100Columns) {
  for (const std::string command :
       {"info", "import", "run", "compare", "bench", "tune", "explain", "check", "image", "read",
        "convert", "kernels", "select", "help"}) {
    std::istringstream lines(qrt({command, "--help"}).out);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 100u) << line;
  }
}

TEST_F(CommandLineTest, KernelsAreListedAndFiltered) {
  const Outcome all = qrt({"kernels"});
  EXPECT_EQ(all.code, 0);
  EXPECT_THAT(all.out, AllOf(HasSubstr("ReLU_Fallback_Float_M1"), HasSubstr("Input_Fallback_M1")));
  EXPECT_EQ(qrt({"kernels", "relu6_fall"}).out, "ReLU6_Fallback_Float_M1\n");
  EXPECT_EQ(qrt({"kernels", "input*"}).out, "Input_Fallback_M1\n");
  EXPECT_EQ(qrt({"kernels", "Leaky_Fallback_Float_M1"}).out.find("Leaky_Fallback_Float_M1\n"), 0u);
  EXPECT_EQ(qrt({"kernels", "knxm", "transpose", "fallback"}).out,
            "ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1\n");
  EXPECT_THAT(
      qrt({"kernels", "input*", "--json"}).out,
      AllOf(HasSubstr("\"name\": \"Input_Fallback_M1\""), HasSubstr("\"runs_here\": true")));
  const Outcome none = qrt({"kernels", "imaginary"});
  EXPECT_EQ(none.code, 5);
  EXPECT_THAT(none.err, HasSubstr("no kernel matches \"imaginary\" (`qrt kernels` lists all)\n"));
  EXPECT_THAT(qrt({"kernels", "ReLU6_Fallbcak_Float_M1"}).err,
              HasSubstr("did you mean \"ReLU6_Fallback_Float_M1\"?"));
}

TEST_F(CommandLineTest, KernelsThatThisProcessorCannotRunAreMarked) {
  std::istringstream lines(qrt({"kernels"}).out);
  for (std::string line; std::getline(lines, line);) {
    const bool is_marked = line.find("(not on this processor: no ") != std::string::npos;
    const std::string kernel = line.substr(0, line.find(' '));
    EXPECT_EQ(is_marked, !marlo::test::why_not_here(kernel).empty()) << line;
  }
}

TEST_F(CommandLineTest, AKernelsNameShowsAllAboutIt) {
  const std::string name = "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1";
  EXPECT_EQ(qrt({"kernels", name}).out,
            name +
                "\n  needs      SSE2\n"
                "  accepts    any filter, any stride, any dilation, any padding\n"
                "  in         CHW\n  out        CHW\n  agreement  defines\n");
  EXPECT_THAT(qrt({"kernels", name, "--json"}).out,
              AllOf(HasSubstr("\"accepts\": \"any filter, "), HasSubstr("\"in\": \"CHW\"")));
  EXPECT_THAT(qrt({"kernels", "transpose2D", "--long"}).out,
              AllOf(HasSubstr("agreement"), HasSubstr("weights are [in, out]")));
}

// The catalogue in the tool is that of the kernels in the tool.
TEST_F(CommandLineTest, TheCatalogueHoldsEveryKernel) {
  const std::string json = qrt({"kernels", "--json"}).out;
  EXPECT_EQ(json.find("\"agreement\": \"\""), std::string::npos);
}

TEST_F(CommandLineTest, KernelsAreTriedOnALayer) {
  toy_model()->ToFile(path("m.json").c_str(), "json");
  const std::string layer = path("m.json") + ":mix";
  const Outcome outcome = qrt({"kernels", "--for", layer});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out,
              AllOf(HasSubstr("Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1  fits\n"),
                    HasSubstr("LSTM_Fallback_SC_F32_M1  refuses")));
  EXPECT_EQ(qrt({"kernels", "--for", path("m.json") + ":1", "conv2d_knxm*gn_fallback*"}).out,
            "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1  fits\n");
  EXPECT_THAT(qrt({"kernels", "--for", layer, "--json"}).out, HasSubstr("\"result\": \"fits\""));
  const Outcome absent = qrt({"kernels", "--for", path("m.json") + ":mxi"});
  EXPECT_EQ(absent.code, 2);
  EXPECT_THAT(absent.err, HasSubstr("has no layer \"mxi\"; did you mean \"mix\"?"));
  EXPECT_EQ(qrt({"kernels", "--for", "mix"}).code, 2);
}

TEST_F(CommandLineTest, AnUnknownWordIsRepeatedWithTheOneThatWasMeant) {
  const auto refusal = [&](const std::vector<std::string>& arguments) {
    const Outcome outcome = qrt(arguments);
    EXPECT_EQ(outcome.code, 2);
    EXPECT_EQ(outcome.out, "");
    return outcome.err;
  };
  EXPECT_THAT(refusal({"ru", "m"}),
              HasSubstr("qrt: there is no command \"ru\"; did you mean \"run\"?\n"));
  EXPECT_THAT(refusal({"kernel"}), HasSubstr("did you mean \"kernels\"?"));
  EXPECT_THAT(refusal({"zzzzzz"}),
              HasSubstr("there is no command \"zzzzzz\"; expected one of info,"));
  EXPECT_THAT(refusal({}), HasSubstr("qrt: expected a command: info, import, run, "));
  EXPECT_THAT(refusal({"--versoin"}),
              HasSubstr("no option \"--versoin\"; did you mean \"--version\"?"));
  EXPECT_THAT(refusal({"run", "m.json", "--inptu", "x.png"}),
              HasSubstr("qrt: run: there is no option \"--inptu\"; did you mean \"--input\"?\n"
                        "Run `qrt run --help`"));
  EXPECT_THAT(refusal({"run", "m.json", "--tpo=3"}), HasSubstr("did you mean \"--top\"?"));
  EXPECT_THAT(refusal({"info", "m.json", "-q"}),
              AllOf(HasSubstr("no option \"-q\""), Not(HasSubstr("did you mean"))));
  EXPECT_THAT(refusal({"info", "m.json", "more.json"}),
              HasSubstr("info: nothing is expected where \"more.json\" stands"));
  EXPECT_THAT(refusal({"info"}), HasSubstr("info: MODEL is required"));
  EXPECT_THAT(refusal({"help", "chekc"}), HasSubstr("did you mean \"check\"?"));
}

TEST_F(CommandLineTest, HelpIsACommandToo) {
  EXPECT_EQ(qrt({"help"}).out, qrt({"--help"}).out);
  EXPECT_EQ(qrt({"help", "run"}).out, qrt({"run", "--help"}).out);
}

TEST_F(CommandLineTest, HelpThatCannotBeWrittenFails) {
  const std::string tool = "'" + tool_path() + "'";
  for (const std::string arguments : {" --help", " run --help", " --version", " help"}) {
    const int status = std::system((tool + arguments + " >/dev/full 2>/dev/null").c_str());
    EXPECT_EQ(WEXITSTATUS(status), 5) << arguments;
  }
}

TEST_F(CommandLineTest, FailuresAreJsonWhereDataIs) {
  const Outcome usage = qrt({"info", "--json"});
  EXPECT_EQ(usage.err,
            "{\"level\": \"error\", \"message\": \"info: MODEL is required\", \"exit_code\": 2}\n");
  const Outcome absent = qrt({"run", "absent.json", "--json"});
  EXPECT_EQ(absent.code, 4);
  EXPECT_EQ(absent.err,
            "{\"level\": \"error\", \"message\": \"absent.json: can't be read: No such file or "
            "directory\", \"exit_code\": 4}\n");
}

}  // namespace
}  // namespace qrt_tool_test
