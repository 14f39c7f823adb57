#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <thread>

#include "tools/qrt/bench_output.h"
#include "tools/qrt/json_text.h"

namespace qrt_tool {

using marlo::toolkit::BenchedNetwork;
using marlo::toolkit::BenchRatio;
using marlo::toolkit::BenchResult;
using marlo::toolkit::Interval;
using marlo::toolkit::Times;

namespace {

constexpr size_t kMostEntries = 1000;  // of a network

std::string date_text() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  localtime_r(&now, &parts);
  char text[40] = "";
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z", &parts);
  std::string date = text;
  if (date.size() > 5) date.insert(date.size() - 2, ":");  // +01:00, as ISO 8601 wants it
  return date;
}

std::string host_name() {
  char name[256] = "";
  if (gethostname(name, sizeof name - 1) != 0) return "";
  return name;
}

// The name of a file without folders and suffix, so that two runs of one model, or of a model before
// and after it was changed in its place, have the same names; numbered where it came before.
std::vector<std::string> entry_names(const BenchResult& result) {
  std::vector<std::string> names;
  for (const BenchedNetwork& network : result.networks) {
    const std::string plain =
        std::filesystem::path(network.name).stem().string() + "/" + network.network;
    std::string name = plain;
    for (size_t n = 2; std::find(names.begin(), names.end(), name) != names.end(); ++n) {
      name = plain + "#" + std::to_string(n);
    }
    names.push_back(name);
  }
  return names;
}

void add_interval(JsonText& json, const char* key, const Interval& interval) {
  json.begin_object(key);
  json.number("estimate", interval.estimate);
  json.number("low", interval.low);
  json.number("high", interval.high);
  json.number("confidence", marlo::toolkit::kConfidence);
  json.end_object();
}

void add_network(JsonText& json, const BenchedNetwork& network, const std::string& name) {
  json.begin_object();
  json.text("name", name);
  json.text("file", network.name);
  json.text("network", network.network);
  json.integer("passes", network.latency.count);
  json.number("min_ms", network.latency.minimum);
  json.number("median_ms", network.latency.median);
  add_interval(json, "median_interval_ms", network.median);
  json.number("mean_ms", network.latency.mean);
  json.number("p90_ms", network.latency.p90);
  json.number("p99_ms", network.latency.p99);
  json.number("max_ms", network.latency.maximum);
  json.number("spread", network.latency.spread);
  json.number("passes_per_second", network.passes_a_second);
  json.number("load_ms", network.load_ms);
  json.number("first_pass_ms", network.first_pass_ms);
  json.boolean("steady", network.is_steady);
  json.number("warm_ms", network.warm_ms);
  json.integer("warm_passes", network.warm_passes);
  json.integer("resident_bytes", network.resident_bytes);
  json.integer("static_pool_bytes", network.static_pool_bytes);
  json.integer("dynamic_pool_bytes", network.dynamic_pool_bytes);
  json.integer("pool_growth_bytes", network.pool_growth_bytes);
  if (network.allocations_a_pass) json.number("allocations_per_pass", *network.allocations_a_pass);
  json.end_object();
}

void add_context(JsonText& json, const BenchResult& result, const std::vector<std::string>& names,
                 const BenchCommandOptions& options) {
  json.begin_object("context");
  json.text("date", date_text());
  json.text("host_name", host_name());
  json.text("executable", "qrt");
  json.integer("num_cpus", std::thread::hardware_concurrency());
  json.begin_array("caches");
  json.end_array();
  double loads[3] = {};
  json.numbers("load_avg", getloadavg(loads, 3) == 3 ? std::vector<double>(loads, loads + 3)
                                                     : std::vector<double>());
#ifdef NDEBUG
  json.text("library_build_type", "release");
#else
  json.text("library_build_type", "debug");
#endif
  json.integer("threads", result.threads);
  if (options.cpu) json.integer("first_cpu", static_cast<uint64_t>(*options.cpu));
  json.integer("resident_bytes", result.resident_bytes);
  json.integer("peak_resident_bytes", result.peak_resident_bytes);
  json.begin_array("networks");
  for (size_t i = 0; i < names.size(); ++i) add_network(json, result.networks[i], names[i]);
  json.end_array();
  json.begin_array("ratios");
  for (const BenchRatio& ratio : result.ratios) {
    json.begin_object();
    json.text("first", names[ratio.first]);
    json.text("second", names[ratio.second]);
    add_interval(json, "second_over_first", ratio.time);
    json.end_object();
  }
  json.end_array();
  json.end_object();
}

void add_passes(JsonText& json, const BenchResult& result, size_t family, const std::string& name) {
  const std::vector<Times>& passes = result.networks[family].passes;
  const size_t group = (passes.size() + kMostEntries - 1) / kMostEntries;
  const size_t entries = group == 0 ? 0 : (passes.size() + group - 1) / group;
  for (size_t entry = 0; entry < entries; ++entry) {
    const size_t begin = entry * group;
    const size_t end = std::min(begin + group, passes.size());
    Times sum;
    for (size_t i = begin; i < end; ++i) sum += passes[i];
    json.begin_object();
    json.text("name", name);
    json.integer("family_index", family);
    json.integer("per_family_instance_index", 0);
    json.text("run_name", name);
    json.text("run_type", "iteration");
    json.integer("repetitions", entries);
    json.integer("repetition_index", entry);
    json.integer("threads", result.threads);
    json.integer("iterations", end - begin);
    // The comparison script prints times without decimals.
    json.number("real_time", 1000.0 * sum.wall_ms / static_cast<double>(end - begin));
    json.number("cpu_time", 1000.0 * sum.cpu_ms / static_cast<double>(end - begin));
    json.text("time_unit", "us");
    json.end_object();
  }
}

}  // namespace

std::string bench_json(const BenchResult& result, const BenchCommandOptions& options) {
  const std::vector<std::string> names = entry_names(result);
  JsonText json;
  json.begin_object();
  add_context(json, result, names, options);
  json.begin_array("benchmarks");
  for (size_t family = 0; family < names.size(); ++family) {
    add_passes(json, result, family, names[family]);
  }
  json.end_array();
  json.end_object();
  return json.finish();
}

}  // namespace qrt_tool
