#pragma once

#include <string>

#include "qrt_toolkit/tune/tune.h"

// What tuning found, as text and as JSON.

namespace qrt_tool {

/// A table of configurations and their times, and one of the kernels that changed.
std::string tune_text(const marlo::toolkit::TuneReport& report, size_t width);

/// All of it.
std::string tune_json(const marlo::toolkit::TuneReport& report,
                      const marlo::toolkit::TuneOptions& options);

}  // namespace qrt_tool
