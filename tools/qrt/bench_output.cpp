#include "tools/qrt/bench_output.h"

#include <algorithm>

#include "tools/qrt/table.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::toolkit::BenchedNetwork;
using marlo::toolkit::BenchRatio;
using marlo::toolkit::BenchResult;

namespace {

std::string ms_text(double ms) { return decimal(ms, 4); }

std::string mebibytes(uint64_t bytes) {
  return decimal(static_cast<double>(bytes) / (1024.0 * 1024.0), 2) + " MiB";
}

std::string passes_table(const BenchResult& result, size_t width) {
  Table table({{"model", false, true},
               {"passes", true},
               {"min ms", true},
               {"median", true},
               {"p90", true},
               {"p99", true},
               {"spread", true},
               {"passes/s", true}});
  for (const BenchedNetwork& network : result.networks) {
    const auto& latency = network.latency;
    table.add({network.name, std::to_string(latency.count), ms_text(latency.minimum),
               ms_text(latency.median), ms_text(latency.p90), ms_text(latency.p99),
               decimal(100.0 * latency.spread, 1) + " %", decimal(network.passes_a_second, 1)});
  }
  return table.text(width);
}

std::string begin_table(const BenchResult& result, size_t width) {
  Table table({{"model", false, true},
               {"load ms", true},
               {"first pass", true},
               {"steady after", true},
               {"resident", true},
               {"static pool", true},
               {"dynamic pool", true},
               {"allocations", true}});
  for (const BenchedNetwork& network : result.networks) {
    table.add({network.name, ms_text(network.load_ms), ms_text(network.first_pass_ms),
               network.is_steady ? ms_text(network.warm_ms) : "never",
               "+" + mebibytes(network.resident_bytes), mebibytes(network.static_pool_bytes),
               mebibytes(network.dynamic_pool_bytes),
               network.allocations_a_pass ? decimal(*network.allocations_a_pass, 1) : ""});
  }
  return table.text(width);
}

std::string ratio_text(const BenchResult& result, const BenchRatio& ratio) {
  const auto& time = ratio.time;
  const std::string verdict = time.high < 1.0  ? "faster"
                              : time.low > 1.0 ? "slower"
                                               : "no difference that could be told from chance";
  return printable(result.networks[ratio.second].name) + " takes " + decimal(time.estimate, 4) +
         " of the time of " + printable(result.networks[ratio.first].name) +
         " (95 % confidence: " + decimal(time.low, 4) + " to " + decimal(time.high, 4) +
         "): " + verdict + "\n";
}

}  // namespace

std::string bench_text(const BenchResult& result, const BenchCommandOptions& options) {
  const size_t width = table_width(options.width);
  std::string text = passes_table(result, width) + "\n" + begin_table(result, width);
  if (!result.ratios.empty()) text += "\n";
  for (const BenchRatio& ratio : result.ratios) text += ratio_text(result, ratio);
  text += "\n" + counted(result.threads, "thread") + "; the process holds " +
          mebibytes(result.resident_bytes) + ", at most " + mebibytes(result.peak_resident_bytes) +
          "\n";
  return text;
}

}  // namespace qrt_tool
