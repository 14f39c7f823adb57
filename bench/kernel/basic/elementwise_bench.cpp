#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "bench/support/checks.h"
#include "bench/support/configured_kernel.h"
#include "bench/support/probe.h"
#include "bench/support/reporting.h"
#include "qrt_core/kernel/basic/channel_multiply.h"
#include "qrt_core/kernel/basic/elementwise.h"
#include "qrt_core/runtime/model/elementwise_info.h"
#include "tests/support/numbers.h"

// Every elementwise operator and per-channel multiplication: its core on tensors in L1, and a whole
// Forward on tensors in L2 and beyond.

namespace marlo::bench {
namespace {

using kernel::ElementwiseRow;
using runtime::LayoutType;

constexpr size_t kCoreFloats = 2048;

// Operands that a multiplication by powers of two and all other operators leave exact.
std::vector<float> expected_of(const std::string& word, const std::vector<float>& a,
                               const std::vector<float>& b) {
  std::vector<float> results;
  for (size_t i = 0; i < a.size(); ++i) {
    const double x = a[i];
    const double y = b[i];
    const double result = word == "Add"   ? x + y
                          : word == "Sub" ? x - y
                          : word == "Mul" ? x * y
                          : word == "Div" ? x / y
                          : word == "Max" ? (x > y ? x : y)
                                          : (x < y ? x : y);
    results.push_back(static_cast<float>(result));
  }
  return results;
}

std::vector<float> left_operand(size_t count) { return test::Random(1).floats(count, 8.0f); }

std::vector<float> right_operand(size_t count) {
  std::vector<float> numbers = test::Random(2).floats(count, 8.0f);
  for (float& number : numbers) number = number == 0.0f ? 1.0f : number;
  return numbers;
}

// The core on three arrays that L1 holds together.
void run_core(benchmark::State& state, const ElementwiseRow& row) {
  alignas(4096) static float memory[3 * (kCoreFloats + 256)];
  float* const a = memory;
  float* const b = a + kCoreFloats + 256;
  float* const to = b + kCoreFloats + 256;
  const auto left = left_operand(kCoreFloats);
  const auto right = right_operand(kCoreFloats);
  std::copy(left.begin(), left.end(), a);
  std::copy(right.begin(), right.end(), b);
  row.vector(a, b, to, kCoreFloats);
  demand_numbers(row.name, {to, kCoreFloats}, expected_of(row.word, left, right));
  const double limit = copy_limit(width_of(row.name), a, to, kCoreFloats);
  for (auto _ : state) {
    row.vector(a, b, to, kCoreFloats);
    benchmark::ClobberMemory();
  }
  report_bandwidth(state, 3 * kCoreFloats * sizeof(float), limit);
}

void check_and_time(benchmark::State& state, ConfiguredKernel& kernel,
                    const std::vector<float>& expected) {
  kernel.pass();
  demand_numbers(kernel.name(), kernel.output<const float>(), expected);
  time_moving(state, kernel);
}

// The description of a row's operator; maxima and minima have no code, and their kernels run
// without one.
std::shared_ptr<runtime::LayerInfo> description(const std::string& word) {
  if (word == "Max" || word == "Min") return nullptr;
  auto info = std::make_shared<runtime::ElementWiseOperatorInfo>();
  info->op_type = word == "Sub" ? 1 : word == "Mul" ? 2 : word == "Div" ? 3 : 0;
  return info;
}

void run_forward(benchmark::State& state, const ElementwiseRow& row, uint32_t channels) {
  const std::string word = row.word == nullptr ? "Add" : row.word;
  ConfiguredKernel kernel(row.name, description(word));
  const std::vector<uint32_t> dims{channels, 32, 32};
  const auto left = left_operand(size_t{channels} * 1024);
  const auto right = right_operand(left.size());
  kernel.add_floats(dims, LayoutType::CHW, left);
  kernel.add_floats(dims, LayoutType::CHW, right);
  check_and_time(state, kernel, expected_of(word, left, right));
}

#if QRT_WITH_AVX
void run_channels(benchmark::State& state, const kernel::ChannelMultiplyRow& row,
                  uint32_t channels) {
  auto info = std::make_shared<runtime::BroadcastOperatorInfo>();
  info->op_type = 2;
  ConfiguredKernel kernel(row.name, info);
  const uint32_t blocks = channels / row.block;
  const auto factors = left_operand(channels);
  const auto map = right_operand(size_t{channels} * 1024);
  std::vector<float> expected;
  for (size_t i = 0; i < map.size(); ++i) {
    const size_t block = i / (size_t{1024} * row.block);
    expected.push_back(map[i] * factors[block * row.block + i % row.block]);
  }
  kernel.add_floats({blocks, 32, 32, row.block}, row.layout, map);
  kernel.add_floats({blocks, 1, 1, row.block}, row.layout, factors);
  check_and_time(state, kernel, expected);
}
#endif

const bool registered = [] {
  for (const ElementwiseRow* row : kernel::elementwise_rows) {
    if (!can_run(row->name)) continue;
    const std::string name = row->name;
    if (row->vector != nullptr) {
      benchmark::RegisterBenchmark((name + "/core/24KiB").c_str(), run_core, *row);
    }
    benchmark::RegisterBenchmark((name + "/forward/64x32x32").c_str(), run_forward, *row, 64);
    benchmark::RegisterBenchmark((name + "/forward/512x32x32").c_str(), run_forward, *row, 512);
  }
#if QRT_WITH_AVX
  for (const kernel::ChannelMultiplyRow* row : kernel::channel_multiply_rows) {
    if (!can_run(row->name)) continue;
    const std::string name = row->name;
    benchmark::RegisterBenchmark((name + "/64x32x32").c_str(), run_channels, *row, 64);
    benchmark::RegisterBenchmark((name + "/512x32x32").c_str(), run_channels, *row, 512);
  }
#endif
  return true;
}();

}  // namespace
}  // namespace marlo::bench
