#include "tools/qrt/app.h"

#include <clocale>
#include <cstdio>
#include <new>
#include <sstream>

#include "qrt_core/qrt_core.h"
#include "tools/qrt/app_commands.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/text.h"
#include "tools/qrt/usage_fault.h"

namespace qrt_tool {
namespace {

constexpr char kDescription[] =
    "qrt looks into neural networks in model files, runs them, and converts the files.";

constexpr char kFooter[] =
    "Examples:\n"
    "  qrt import net.onnx net.qrtmodel              a network from elsewhere becomes a model\n"
    "  qrt info digits.qrtmodel                      what is in the file\n"
    "  qrt run digits.qrtmodel --input seven.png --top 3 --labels labels.txt --preview\n"
    "  qrt run digits.qrtmodel --input seven.png --profile --repeat 100\n"
    "  qrt run net.qrtmodel --input x.npy --output y.npy\n"
    "  qrt check net.qrtmodel --input 1x3x224x224    does every layer fit?\n"
    "  qrt image photo.jpg small.png --resize 320x240 --rotate 90 --gray\n"
    "  qrt convert digits.json digits.qrtmodel\n"
    "  qrt convert old.qrm new.qrtmodel --isa sse\n"
    "  qrt tune net.qrtmodel fast.qrtmodel           the fastest kernels on this machine\n"
    "  qrt explain fast.qrtmodel                     where does the time go?\n"
    "  qrt kernels relu\n"
    "  qrt kernels --for net.qrtmodel:conv3          which kernels could run this layer?\n"
    "  qrt bench new.qrtmodel --against old.qrtmodel   which is faster?\n"
    "  qrt select net.qrtmodel --output register_kernels.cpp\n"
    "  qrt compare net.json net.qrtmodel --input x.npy --bound 1e-3\n"
    "\n"
    "`qrt COMMAND --help` tells more about a command.\n"
    "\n"
    "Data goes to standard output, messages to standard error. Exit codes:\n"
    "  0  success\n"
    "  2  the command line makes no sense\n"
    "  3  an input (picture, .npy, labels) can't be read, or doesn't fit the network\n"
    "  4  a model file can't be read or loaded, or can't run on the sizes of its own header\n"
    "  5  a pass failed, a result can't be written, or nothing was found\n"
    "  6  a network can't be imported, for the reasons that are listed\n"
    "With --json messages are JSON as well, one object a line: \"level\" is note, warning or\n"
    "error, \"message\" the text; the failure that ends the tool has its \"exit_code\".";

std::string version_text() {
  unsigned int major = 0;
  unsigned int minor = 0;
  QRT_Get_Core_Version(major, minor);
  return "qrt (qrt_core " + std::to_string(major) + "." + std::to_string(minor) + ")";
}

// What CLI11 prints for --help and --version, of whichever command it was asked.
int answer(const CLI::App& app, const CLI::Success& question) {
  std::ostringstream text;
  app.exit(question, text, text);
  print(text.str());
  return kSuccess;
}

int run_command_line(CLI::App& app, int argc, char** argv) {
  try {
    app.parse(argc, argv);
    return kSuccess;
  } catch (const CLI::Success& question) {
    return answer(app, question);
  } catch (const CLI::ParseError& error) {
    const UsageFault fault = usage_fault(app, {argv + 1, argv + argc}, error);
    say_failure(fault.text, kUsageError,
                fault.command.empty()
                    ? "Run `qrt --help` for what there is."
                    : "Run `qrt " + printable(fault.command) + " --help` for what there is.");
    return kUsageError;
  }
}

// Commands run while the command line is parsed, so every failure ends up here.
int guarded_run(CLI::App& app, int argc, char** argv) {
  try {
    return run_command_line(app, argc, argv);
  } catch (const ToolError& error) {
    take_library_errors();
    say_failure(error.what(), error.exit_code());
    return error.exit_code();
  } catch (const std::bad_alloc&) {
    say_failure("out of memory", kRunError);
    return kRunError;
  } catch (const std::exception& failure) {
    const std::string fault = take_story(failure);
    say_failure(fault.empty() ? "the library gave up without a reason" : fault, kRunError);
    return kRunError;
  }
}

}  // namespace

void print(const std::string& text) {
  const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (std::fflush(stdout) != 0 || !written) {
    throw ToolError(kRunError, "standard output can't be written");
  }
}

int run_app(int argc, char** argv) {
  std::setlocale(LC_CTYPE, "");
  catch_library_log();
  // Known before the command line is understood: its own faults are JSON, too.
  for (int i = 1; i < argc; ++i) {
    if (std::string(argv[i]) == "--json") write_messages_as_json();
  }
  CommandOptions options;
  CLI::App app(kDescription, "qrt");
  app.get_formatter()->column_width(36);
  app.footer(kFooter);
  app.set_version_flag("--version", version_text());
  app.require_subcommand(1);
  add_commands(app, options);
  const int result = guarded_run(app, argc, argv);
  show_library_errors();
  return result;
}

}  // namespace qrt_tool
