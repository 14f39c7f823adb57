#include "qrt_core/kernel/recurrent/recurrent.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/support/configured_kernel.h"
#include "bench/support/peer.h"
#include "bench/support/probe.h"
#include "bench/support/reporting.h"
#include "qrt_core/kernel/matrix/full_connection_cores.h"
#include "tests/support/recurrent_case.h"

// A layer of 128 inputs and 256 hidden values over 50 steps, as in a recogniser of text lines.
//
// "share" is that of the whole pass, "product" that of its matrix products alone, of what the
// processor can compute or read, whichever is less. "rest/calls" is the time outside of the
// products in units of the calls of expf and tanhf that the formulas ask for.

namespace marlo::bench {
namespace {

using kernel::RecurrentSequenceRow;
using runtime::DataType;
using runtime::LayoutType;
using test::Network;
using test::RecurrentCase;

constexpr int kRuns = 9;

RecurrentCase layer_of(const char* kernel) {
  RecurrentCase layer;
  layer.network = test::network_of(kernel);
  layer.ins = 128;
  layer.hidden = 256;
  layer.steps = 50;
  layer.fill(1);
  return layer;
}

double weights_of(const RecurrentCase& layer) {
  return static_cast<double>(test::gates_of(layer.network)) * layer.hidden *
         (layer.ins + layer.hidden);
}

kernel::matrix::FullConnectionCore product_of([[maybe_unused]] const std::string& kernel) {
#if QRT_WITH_SGEMM
  if (kernel.find("SGEMM") != std::string::npos) return kernel::matrix::dot_sgemm;
#endif
#if QRT_WITH_SSE
  if (kernel.find("SSE") != std::string::npos) return kernel::matrix::dot_sse;
#endif
  return kernel::matrix::dot_portable;
}

// Seconds of the shortest of several calls.
template <typename Function>
double least_seconds(Function function) {
  double least = HUGE_VAL;
  for (int run = 0; run < kRuns; ++run) {
    const double start = thread_seconds();
    function();
    least = std::min(least, thread_seconds() - start);
  }
  return least;
}

void run_products(kernel::matrix::FullConnectionCore core, const RecurrentCase& layer,
                  std::vector<float>& gates) {
  const test::CellData& cell = layer.cells[0];
  kernel::matrix::FullConnectionTask task;
  task.output = gates.data();
  task.out_features = gates.size();
  for (uint32_t t = 0; t < layer.steps; ++t) {
    task.input = layer.input.data() + size_t{t} * layer.ins;
    task.weight = cell.weight_ih.data();
    task.in_features = layer.ins;
    core(task);
    task.input = layer.input.data();
    task.weight = cell.weight_hh.data();
    task.in_features = layer.hidden;
    core(task);
  }
}

// The calls of all steps, on numbers like those of the gates.
void run_calls(const RecurrentCase& layer, std::vector<float>& results) {
  const uint32_t exponentials = test::gates_of(layer.network) - 1;
  const uint32_t tangents = layer.network == Network::lstm ? 2 : 1;
  for (uint32_t t = 0; t < layer.steps; ++t) {
    for (uint32_t i = 0; i < exponentials * layer.hidden; ++i) {
      results[i] = std::exp(layer.input[i]);
    }
    benchmark::DoNotOptimize(results.data());
    for (uint32_t i = 0; i < tangents * layer.hidden; ++i) {
      results[i] = std::tanh(layer.input[i]);
    }
    benchmark::DoNotOptimize(results.data());
  }
}

void check(const char* name, const RecurrentCase& layer, const ConfiguredKernel& sequence) {
  const auto expected = test::RecurrentOracle(layer).run(layer.input);
  const auto* values = sequence.output<float>();
  const std::string fault =
      test::first_beyond(std::vector<float>(values, values + expected.size()), expected);
  if (!fault.empty()) throw std::runtime_error(std::string(name) + ": " + fault);
}

void run(benchmark::State& state, const char* name) {
  const RecurrentCase layer = layer_of(name);
  ConfiguredKernel sequence(
      name, test::sequence_description(layer), nullptr,
      runtime::TensorShape({layer.steps, layer.ins}, DataType::FLOAT32, LayoutType::SC),
      layer.input.data());
  sequence.pass();
  check(name, layer, sequence);
  const double weights = weights_of(layer);
  const double operations = 2 * weights * layer.steps;
  const std::vector<float> memory(static_cast<size_t>(weights) / 128 * 128);
  const double read = read_limit(Width::sse, memory.data(), memory.size());
  // Each weight of four bytes makes two operations.
  const double limit = std::min(arithmetic_limit(Width::sse), read / 2);
  std::vector<float> gates(size_t{test::gates_of(layer.network)} * layer.hidden);
  std::vector<float> results(size_t{4} * layer.hidden);

  const double products = least_seconds([&] { run_products(product_of(name), layer, gates); });
  const double calls = least_seconds([&] { run_calls(layer, results); });
  const double whole = least_seconds([&] { sequence.pass(); });
  for (auto _ : state) sequence.pass();
  report_arithmetic(state, operations, limit);
  state.counters["product"] = operations / products * 1e-9 / limit;
  state.counters["rest/calls"] = (whole - products) / calls;
  if (const auto peer = peer_recurrent(layer)) {
    report_peer(
        state, [&] { sequence.pass(); }, *peer);
  }
}

const bool registered = [] {
  for (const RecurrentSequenceRow* row : kernel::recurrent_sequence_rows) {
    const std::string name = std::string(row->name) + "/128-256x50";
    benchmark::RegisterBenchmark(name.c_str(), run, row->name)->Unit(benchmark::kMicrosecond);
  }
  return true;
}();

}  // namespace
}  // namespace marlo::bench
