#pragma once

namespace qrt_tool {

/// Parses the command line, runs the command and reports what fails. Returns an `ExitCode`.
int run_app(int argc, char** argv);

}  // namespace qrt_tool
