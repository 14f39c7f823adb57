#pragma once

#include <string>

#include "qrt_toolkit/bench/bench.h"
#include "tools/qrt/commands.h"

// How `qrt bench` shows what was measured.

namespace qrt_tool {

/// Everything as text for people.
std::string bench_text(const marlo::toolkit::BenchResult& result,
                       const BenchCommandOptions& options);

/// Everything as JSON in the form of Google Benchmark: "benchmarks" holds whole passes, one entry
/// for each, or where there are too many for each few that follow one another; "context" the rest.
std::string bench_json(const marlo::toolkit::BenchResult& result,
                       const BenchCommandOptions& options);

}  // namespace qrt_tool
