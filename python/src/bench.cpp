#include "qrt_toolkit/bench/bench.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <atomic>
#include <chrono>
#include <future>
#include <utility>

#include "python/src/errors.h"
#include "python/src/progress.h"
#include "python/src/toolkit.h"

// Whole passes timed.

namespace qrt_python {

using marlo::toolkit::BenchedNetwork;
using marlo::toolkit::BenchOptions;
using marlo::toolkit::BenchResult;
using marlo::toolkit::BenchSubject;
using marlo::toolkit::Times;
using marlo::utility::Error;

namespace {

py::array_t<double> column(const std::vector<Times>& passes, double Times::*time) {
  py::array_t<double> numbers(static_cast<py::ssize_t>(passes.size()));
  double* const target = numbers.mutable_data();
  for (size_t i = 0; i < passes.size(); ++i) target[i] = passes[i].*time;
  return numbers;
}

py::dict facts_of(const BenchedNetwork& network) {
  py::dict facts;
  facts["name"] = network.name;
  facts["network"] = network.network;
  facts["passes"] = network.latency.count;
  facts["min_ms"] = network.latency.minimum;
  facts["median_ms"] = network.latency.median;
  facts["median_interval_ms"] = py::make_tuple(network.median.low, network.median.high);
  facts["mean_ms"] = network.latency.mean;
  facts["p90_ms"] = network.latency.p90;
  facts["p99_ms"] = network.latency.p99;
  facts["max_ms"] = network.latency.maximum;
  facts["spread"] = network.latency.spread;
  facts["passes_per_second"] = network.passes_a_second;
  facts["load_ms"] = network.load_ms;
  facts["first_pass_ms"] = network.first_pass_ms;
  facts["is_steady"] = network.is_steady;
  facts["warm_passes"] = network.warm_passes;
  facts["warm_ms"] = network.warm_ms;
  facts["resident_bytes"] = network.resident_bytes;
  facts["static_pool_bytes"] = network.static_pool_bytes;
  facts["dynamic_pool_bytes"] = network.dynamic_pool_bytes;
  facts["pool_growth_bytes"] = network.pool_growth_bytes;
  facts["wall_ms"] = column(network.passes, &Times::wall_ms);
  facts["cpu_ms"] = column(network.passes, &Times::cpu_ms);
  return facts;
}

py::dict facts_of(const BenchResult& result) {
  py::list networks;
  for (const BenchedNetwork& network : result.networks) networks.append(facts_of(network));
  py::list ratios;
  for (const auto& ratio : result.ratios) {
    ratios.append(py::make_tuple(ratio.first, ratio.second, ratio.time.estimate, ratio.time.low,
                                 ratio.time.high));
  }
  py::dict facts;
  facts["networks"] = networks;
  facts["ratios"] = ratios;
  facts["threads"] = result.threads;
  facts["resident_bytes"] = result.resident_bytes;
  facts["peak_resident_bytes"] = result.peak_resident_bytes;
  return facts;
}

// Runs on a thread of its own, so that this one, which gets the signals, can end it.
BenchResult measure(const std::vector<BenchSubject>& subjects, BenchOptions options,
                    Progress& progress) {
  std::atomic<bool> is_ended{false};
  options.before_sample = [&is_ended] {
    if (is_ended) throw Interrupted();
  };
  const py::gil_scoped_release released;
  auto measuring =
      std::async(std::launch::async, [&] { return marlo::toolkit::bench(subjects, options); });
  while (measuring.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready) {
    if (!is_ended && !progress.step()) is_ended = true;
  }
  return measuring.get();
}

py::dict bench(const std::vector<std::pair<std::string, const PyModel*>>& models,
               const py::object& network, const py::object& inputs, unsigned threads,
               const std::optional<int>& cpu, bool keep_state,
               const std::optional<double>& seconds) {
  BenchOptions options;
  options.threads = threads;
  options.cpu = cpu;
  options.keep_state = keep_state;
  if (seconds && !(*seconds > 0)) throw py::value_error("seconds: expected more than 0");
  if (seconds) options.sampling.exact_ms = *seconds * 1000.0;
  std::vector<BenchSubject> subjects;
  for (const auto& [name, model] : models) {
    const Chosen chosen = choose(*model, network, inputs);
    subjects.push_back({name, model->source()->opener(), chosen.network, chosen.inputs_by_layer});
  }
  Progress progress;
  try {
    return facts_of(measure(subjects, options, progress));
  } catch (const Interrupted&) {
    progress.raise();
    throw;
  } catch (const Error& failure) {
    raise("Error", failure);
  }
}

}  // namespace

void bind_bench(py::module_& module) {
  module.def("_bench", &bench, py::arg("models"), py::arg("network"), py::arg("inputs"),
             py::arg("threads"), py::arg("cpu"), py::arg("keep_state"), py::arg("seconds"));
}

}  // namespace qrt_python
