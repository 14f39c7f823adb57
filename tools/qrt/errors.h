#pragma once

#include <stdexcept>
#include <string>

namespace qrt_tool {

/// What the tool returns to the shell.
enum ExitCode : int {
  kSuccess = 0,
  kUsageError = 2,   ///< the command line makes no sense
  kInputError = 3,   ///< an input can't be read, or the network can't take it
  kModelError = 4,   ///< a model can't be read or loaded
  kRunError = 5,     ///< a pass failed, or a result can't be written
  kImportError = 6,  ///< a network of another form can't be imported
};

/// A failure whose text is ready to be shown.
class ToolError : public std::runtime_error {
 public:
  ToolError(ExitCode exit_code, const std::string& text)
      : std::runtime_error(text), exit_code_(exit_code) {}

  ExitCode exit_code() const { return exit_code_; }

 private:
  ExitCode exit_code_;
};

}  // namespace qrt_tool
