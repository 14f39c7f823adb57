#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "bench/support/checks.h"
#include "bench/support/configured_kernel.h"
#include "bench/support/probe.h"
#include "bench/support/reporting.h"
#include "qrt_core/kernel/basic/activation.h"
#include "qrt_core/runtime/model/elementwise_info.h"
#include "tests/support/model_builder.h"
#include "tests/support/numbers.h"
#include "tests/support/oracle.h"

// Every activation: its core on a tensor in L1, a whole Forward on one in L2, and a Forward on a
// single vector, which is all overhead.

namespace marlo::bench {
namespace {

using kernel::ActivationOutput;
using kernel::ActivationRow;

constexpr uint32_t kCoreFloats = 8 * 1024 / sizeof(float);

// A negative slope makes everything positive, so that a kernel that runs over its own result again
// and again doesn't end among denormals.
constexpr float kSlope = -0.5f;
constexpr float kOffset = 0.25f;

std::string function_of(const ActivationRow& row) {
  const std::string name = row.name;
  return name.substr(0, name.find('_'));
}

bool is_in_place(const ActivationRow& row) { return row.output == ActivationOutput::input_tensor; }

// The fast exponential of the SSE forms is off by 3 percent; all others round a few times.
double tolerance(const ActivationRow& row) {
  const std::string name = row.name;
  const bool fast = name == "Sigmoid_SSE_Float_M1" || name == "TanH_SSE_Float_M1";
  return fast ? 0.04 : 1e-6;
}

// @throws std::runtime_error unless `output` is what the formula says
void check(const ActivationRow& row, const std::vector<float>& input,
           std::span<const float> output) {
  demand_elements(row.name, output, input.size(), [&](size_t i) {
    const double exact = test::exact_activation(function_of(row), input[i], kSlope, kOffset);
    return Expected{exact, tolerance(row) * (1 + std::abs(exact))};
  });
}

void report_elements(benchmark::State& state, const ActivationRow& row, size_t count) {
  report_rate(state, "elem/ns", static_cast<double>(count));
  const size_t lanes = bytes_of(width_of(row.name)) / sizeof(float);
  report_cycles(state, static_cast<double>(count / lanes), clock_now());
}

void run_core(benchmark::State& state, const ActivationRow& row) {
  // Source and target as in the probe of L1: half a page apart, so that their addresses don't
  // clash.
  alignas(4096) static float memory[2 * kCoreFloats + 512];
  float* const to = is_in_place(row) ? memory : memory + kCoreFloats + 512;
  const float parameters[] = {kSlope, kOffset};
  const auto core = row.vector != nullptr ? row.vector : row.scalar;

  const std::vector<float> input = test::Random(1).floats(kCoreFloats, 8.0f);
  std::copy(input.begin(), input.end(), memory);
  core(memory, to, kCoreFloats, parameters);
  check(row, input, {to, kCoreFloats});

  const double limit = copy_limit(width_of(row.name), memory, to, kCoreFloats);
  for (auto _ : state) {
    core(memory, to, kCoreFloats, parameters);
    benchmark::ClobberMemory();
  }
  report_bandwidth(state, 2 * kCoreFloats * sizeof(float), limit);
  report_elements(state, row, kCoreFloats);
}

ConfiguredKernel checked_kernel(const ActivationRow& row, const std::vector<uint32_t>& dims) {
  const auto info = std::make_shared<runtime::ActivationInfo>();
  info->activation_alpha = kSlope;
  info->activation_beta = kOffset;
  info->weight = test::weight_text({kSlope});
  ConfiguredKernel kernel(row.name, info);
  const runtime::TensorShape shape(dims, runtime::DataType::FLOAT32, runtime::LayoutType::CHW);
  const std::vector<float> values = test::Random(2).floats(runtime::ElementCount(shape), 8.0f);
  kernel.add_input(shape, values.data());
  kernel.pass();
  check(row, values, kernel.output<const float>());
  return kernel;
}

void run_forward(benchmark::State& state, const ActivationRow& row) {
  ConfiguredKernel kernel = checked_kernel(row, {64, 32, 32});
  time_transforming(state, kernel);
  report_elements(state, row, kernel.input<float>().size());
}

void run_overhead(benchmark::State& state, const ActivationRow& row) {
  ConfiguredKernel kernel = checked_kernel(row, {1, 2, 4});
  for (auto _ : state) kernel.pass();
}

const bool registered = [] {
  for (const ActivationRow* row : kernel::activation_rows) {
    if (!can_run(row->name)) continue;
    const std::string name = row->name;
    benchmark::RegisterBenchmark((name + "/core/8KiB").c_str(), run_core, *row);
    benchmark::RegisterBenchmark((name + "/forward/256KiB").c_str(), run_forward, *row);
    benchmark::RegisterBenchmark((name + "/overhead/8").c_str(), run_overhead, *row);
  }
  return true;
}();

}  // namespace
}  // namespace marlo::bench
