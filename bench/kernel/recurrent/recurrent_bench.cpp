#include "qrt_core/kernel/recurrent/recurrent.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/support/configured_kernel.h"
#include "bench/support/onednn_peers.h"
#include "bench/support/probe.h"
#include "bench/support/processor.h"
#include "qrt_core/kernel/basic/activation_cores.h"
#include "qrt_core/kernel/matrix/full_connection_cores.h"
#include "qrt_core/kernel/recurrent/recurrent_steps.h"
#include "tests/support/recurrent_case.h"

// A layer of 128 inputs and 256 hidden values over 50 steps, as in a recogniser of text lines.
//
// "share" is that of the whole pass, "product" that of its matrix products alone, of what the
// processor can compute or read, whichever is less. "update/calls" is the time of what follows the
// products in units of the calls of expf and tanhf in it.

namespace marlo::bench {
namespace {

using kernel::RecurrentSequenceRow;
using test::Network;
using test::RecurrentCase;

constexpr int kRuns = 31;

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

kernel::recurrent::Update update_of([[maybe_unused]] const std::string& kernel, Network network) {
  const kernel::recurrent::Updates* updates = &kernel::recurrent::kPortableUpdates;
#if QRT_WITH_SSE
  if (kernel.find("_SSE_") != std::string::npos) updates = &kernel::recurrent::kSseUpdates;
#endif
  if (network == Network::rnn) return updates->rnn;
  return network == Network::lstm ? updates->lstm : updates->gru;
}

// weight * x + bias.
std::vector<float> gates_from(const std::vector<float>& weight, std::vector<float> bias,
                              const float* x) {
  kernel::matrix::FullConnectionTask task;
  task.input = x;
  task.weight = weight.data();
  task.output = bias.data();
  task.out_features = bias.size();
  task.in_features = weight.size() / bias.size();
  kernel::matrix::dot_portable(task);
  return bias;
}

// What comes after the products of all steps, and the calls of expf and tanhf in it: both on the
// numbers of a real pass, on which their times depend.
class Updates {
 public:
  // `outputs` are the results of the pass, which show its states.
  Updates(const RecurrentCase& layer, const float* outputs) : layer_(layer) {
    const test::CellData& cell = layer.cells[0];
    std::vector<float> c(layer.hidden, 0.0f);
    h_.assign(layer.hidden, 0.0f);
    for (uint32_t t = 0; t < layer.steps; ++t) {
      const float* x = layer.input.data() + size_t{t} * layer.ins;
      from_input_.push_back(gates_from(cell.weight_ih, cell.bias_ih, x));
      from_state_.push_back(gates_from(cell.weight_hh, cell.bias_hh, h_.data()));
      add_arguments(from_input_.back(), from_state_.back(), c);
      h_.assign(outputs + size_t{t} * layer.hidden, outputs + size_t{t + 1} * layer.hidden);
    }
    results_.resize(std::max(exponents_.size(), tangents_.size()) / layer.steps);
  }

  // Seconds of the updates alone: a step's gates are put in place before.
  double seconds_of(kernel::recurrent::Update update) {
    std::fill(h_.begin(), h_.end(), 0.0f);
    std::vector<float> c(layer_.hidden, 0.0f);
    kernel::recurrent::StepTask task;
    task.hidden_size = layer_.hidden;
    task.activation = kernel::recurrent::hyperbolic_tangent;
    task.h = h_.data();
    task.c = c.data();
    double seconds = 0.0;
    for (uint32_t t = 0; t < layer_.steps; ++t) {
      std::vector<float> a = from_input_[t];
      std::vector<float> b = from_state_[t];
      const double start = wall_seconds();
      update(task, {a.data(), b.data()});
      seconds += wall_seconds() - start;
    }
    return seconds;
  }

  double seconds_of_calls() {
    const size_t exponents = exponents_.size() / layer_.steps;
    const size_t tangents = tangents_.size() / layer_.steps;
    double seconds = 0.0;
    for (uint32_t t = 0; t < layer_.steps; ++t) {
      const float* const x = exponents_.data() + t * exponents;
      const double start = wall_seconds();
      for (size_t i = 0; i < exponents; ++i) results_[i] = std::exp(x[i]);
      // The library's loop, which has nothing but the calls: where a loop lies changes its time by
      // a few percent.
      kernel::activation::tanh_scalar(tangents_.data() + t * tangents, results_.data(), tangents,
                                      nullptr);
      benchmark::DoNotOptimize(results_.data());
      seconds += wall_seconds() - start;
    }
    return seconds;
  }

 private:
  void add_arguments(const std::vector<float>& a, const std::vector<float>& b,
                     std::vector<float>& c) {
    const size_t size = layer_.hidden;
    const auto sigmoid = [&](size_t gate, size_t i) {
      const float x = a[gate * size + i] + b[gate * size + i];
      exponents_.push_back(-x);
      return 1.0f / (1.0f + std::exp(-x));
    };
    for (size_t i = 0; i < size; ++i) {
      if (layer_.network == Network::rnn) {
        tangents_.push_back(a[i] + b[i]);
      } else if (layer_.network == Network::gru) {
        const float r = sigmoid(0, i);
        sigmoid(1, i);
        tangents_.push_back(a[2 * size + i] + r * b[2 * size + i]);
      } else {
        tangents_.push_back(a[2 * size + i] + b[2 * size + i]);
        c[i] = sigmoid(1, i) * c[i] + sigmoid(0, i) * std::tanh(tangents_.back());
        sigmoid(3, i);
      }
    }
    if (layer_.network == Network::lstm) tangents_.insert(tangents_.end(), c.begin(), c.end());
  }

  const RecurrentCase& layer_;
  std::vector<std::vector<float>> from_input_;
  std::vector<std::vector<float>> from_state_;
  std::vector<float> h_;
  std::vector<float> exponents_;
  std::vector<float> tangents_;
  std::vector<float> results_;
};

void check(const char* name, const RecurrentCase& layer, const ConfiguredKernel& sequence) {
  const auto expected = test::RecurrentOracle(layer).run(layer.input);
  const auto values = sequence.output<const float>();
  const std::string fault = test::first_beyond({values.begin(), values.end()}, expected);
  if (!fault.empty()) throw std::runtime_error(std::string(name) + ": " + fault);
}

// GFLOP/s: each weight of four bytes makes two operations.
double limit_of(const RecurrentCase& layer) {
  const std::vector<float> memory(static_cast<size_t>(weights_of(layer)));
  const double read = read_limit(Width::sse, memory.data(), memory.size());
  return std::min(arithmetic_limit(Width::sse), read / 2);
}

void run(benchmark::State& state, const char* name) {
  const RecurrentCase layer = layer_of(name);
  ConfiguredKernel sequence(name, test::sequence_description(layer));
  sequence.add_floats({layer.steps, layer.ins}, runtime::LayoutType::SC, layer.input);
  sequence.pass();
  check(name, layer, sequence);
  const double operations = 2 * weights_of(layer) * layer.steps;
  const double limit = limit_of(layer);
  std::vector<float> gates(size_t{test::gates_of(layer.network)} * layer.hidden);
  Updates updates(layer, sequence.output<float>().data());

  // In turns, so that a disturbance meets all of them.
  double products = HUGE_VAL, calls = HUGE_VAL, update = HUGE_VAL;
  for (int run = 0; run < kRuns; ++run) {
    const double start = wall_seconds();
    run_products(product_of(name), layer, gates);
    products = std::min(products, wall_seconds() - start);
    calls = std::min(calls, updates.seconds_of_calls());
    update = std::min(update, updates.seconds_of(update_of(name, layer.network)));
  }
  time_computing(state, sequence, operations, limit);
  state.counters["product"] = operations / products * 1e-9 / limit;
  state.counters["update/calls"] = update / calls;
  report_peer(state, sequence, onednn_recurrent(layer));
}

// One step.
void run_cell(benchmark::State& state, const char* name) {
  RecurrentCase layer = layer_of(name);
  layer.steps = 1;
  layer.input.resize(layer.ins);
  ConfiguredKernel cell(name, test::cell_description(layer));
  cell.add_floats({layer.ins}, runtime::LayoutType::C, layer.input);
  cell.pass();
  check(name, layer, cell);
  time_computing(state, cell, 2 * weights_of(layer), limit_of(layer));
}

const bool registered = [] {
  for (const kernel::RecurrentCellRow* row : kernel::recurrent_cell_rows) {
    const std::string name = std::string(row->name) + "/128-256";
    benchmark::RegisterBenchmark(name.c_str(), run_cell, row->name)->Unit(benchmark::kMicrosecond);
  }

  for (const RecurrentSequenceRow* row : kernel::recurrent_sequence_rows) {
    const std::string name = std::string(row->name) + "/128-256x50";
    benchmark::RegisterBenchmark(name.c_str(), run, row->name)->Unit(benchmark::kMicrosecond);
  }
  return true;
}();

}  // namespace
}  // namespace marlo::bench
