#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace qrt_tool {

/// A command line that makes no sense.
struct UsageFault {
  std::string text;     ///< with the word that is wrong, and the one that was meant
  std::string command;  ///< whose help tells more; empty for that of the tool
};

/// What is wrong with a command line that `app` refused with `error`.
UsageFault usage_fault(const CLI::App& app, const std::vector<std::string>& arguments,
                       const CLI::ParseError& error);

/// The names of the commands.
std::vector<std::string> command_names(const CLI::App& app);

/// The command of this name.
/// @throws ToolError (kUsageError) with the name that was meant
const CLI::App& command_named(const CLI::App& app, const std::string& name);

}  // namespace qrt_tool
