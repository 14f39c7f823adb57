#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/support/probe.h"
#include "bench/support/reporting.h"
#include "qrt_core/kernel/basic/activation.h"
#include "qrt_core/runtime/model/elementwise_info.h"
#include "qrt_core/utility/application.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/support/numbers.h"
#include "tests/support/oracle.h"

// Every activation: its core on a tensor in L1, a whole Forward on one in L2, and a Forward on a
// single vector, which is all overhead.

namespace marlo::bench {
namespace {

using kernel::ActivationOutput;
using kernel::ActivationParameters;
using kernel::ActivationRow;
using runtime::IKernel;
using runtime::TensorCPU;

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
void check(const ActivationRow& row, const std::vector<float>& input, const float* output) {
  for (size_t i = 0; i < input.size(); ++i) {
    const double expected = test::exact_activation(function_of(row), input[i], kSlope, kOffset);
    if (std::abs(output[i] - expected) <= tolerance(row) * (1 + std::abs(expected))) continue;
    throw std::runtime_error(std::string(row.name) + " of " + std::to_string(input[i]) + " is " +
                             std::to_string(output[i]) + ", not " + std::to_string(expected));
  }
}

void report(benchmark::State& state, const ActivationRow& row, size_t count, double limit) {
  report_bandwidth(state, 2 * count * sizeof(float), limit);
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
  check(row, input, to);

  const double limit = copy_limit(width_of(row.name), memory, to, kCoreFloats);
  for (auto _ : state) {
    core(memory, to, kCoreFloats, parameters);
    benchmark::ClobberMemory();
  }
  report(state, row, kCoreFloats, limit);
}

/// A configured kernel and a tensor that it reads.
class ActivationPass {
 public:
  ActivationPass(const ActivationRow& row, const std::vector<uint32_t>& dims) : row_(row) {
    utility::create_context(context_, 64);
    kernel_ = test::make_kernel(row.name);
    auto info = std::make_shared<runtime::ActivationInfo>();
    info->activation_alpha = kSlope;
    info->activation_beta = kOffset;
    info->weight = test::weight_text({kSlope});
    if (!kernel_->Config(info, nullptr, context_)) {
      throw std::runtime_error(std::string(row.name) + " isn't configured");
    }
    auto tensor = context_->cpu->CreateF32CHWMainMem(dims, nullptr);
    count_ = runtime::ElementCount(tensor->shape);
    values_ = test::Random(2).floats(count_, 8.0f);
    from_ = static_cast<float*>(tensor->RawPointer());
    std::copy(values_.begin(), values_.end(), from_);
    inputs_.push_back(std::move(tensor));

    run();
    to_ = static_cast<float*>(outputs_.at(0)->handle.cpu);
    check(row, values_, to_);
  }

  void run() {
    outputs_.clear();
    kernel_->Forward(inputs_, outputs_, context_);
  }

  size_t count() const { return count_; }

  /// What a copy between the same two buffers reaches.
  double limit() const { return copy_limit(width_of(row_.name), from_, to_, count_); }

 private:
  const ActivationRow& row_;
  std::shared_ptr<runtime::Context> context_;
  std::shared_ptr<IKernel> kernel_;
  IKernel::Tensors inputs_;
  IKernel::Tensors outputs_;
  std::vector<float> values_;
  float* from_ = nullptr;
  float* to_ = nullptr;
  size_t count_ = 0;
};

void run_forward(benchmark::State& state, const ActivationRow& row) {
  ActivationPass pass(row, {64, 32, 32});
  const double limit = pass.limit();
  for (auto _ : state) pass.run();
  report(state, row, pass.count(), limit);
}

void run_overhead(benchmark::State& state, const ActivationRow& row) {
  ActivationPass pass(row, {1, 2, 4});
  for (auto _ : state) pass.run();
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
