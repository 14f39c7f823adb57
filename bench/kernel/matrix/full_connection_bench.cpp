#include "qrt_core/kernel/matrix/full_connection.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/support/peers.h"
#include "bench/support/probe.h"
#include "bench/support/reporting.h"
#include "qrt_core/runtime/model/conv_info.h"
#include "qrt_core/utility/application.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/support/numbers.h"
#include "tests/support/oracle.h"

// Full connections of three sizes, beside OpenBLAS. The limit is reading the weights: from L2, from
// the last level and from memory.

namespace marlo::bench {
namespace {

using kernel::FullConnectionRow;
using runtime::DataType;
using runtime::IKernel;

struct Features {
  uint32_t outs;
  uint32_t ins;
};

constexpr Features kSizes[] = {{256, 256}, {1000, 1024}, {1024, 1024}, {4096, 4096}};

void check(const std::string& name, const Features& size, const std::vector<float>& weight,
           const std::vector<float>& input, const float* output) {
  for (uint32_t o = 0; o < size.outs; ++o) {
    test::Sum sum;
    for (uint32_t i = 0; i < size.ins; ++i) {
      sum.add(double{weight[size_t{o} * size.ins + i]} * input[i]);
    }
    if (std::abs(output[o] - sum.value) > sum.bound()) {
      throw std::runtime_error(name + " is wrong at output " + std::to_string(o));
    }
  }
}

void run(benchmark::State& state, const FullConnectionRow& row, const Features& size) {
  test::Random random(1);
  const std::vector<float> weight = random.floats(size_t{size.outs} * size.ins);
  const std::vector<float> input = random.floats(size.ins);
  std::shared_ptr<runtime::Context> context;
  utility::create_context(context, 64);
  const auto info = std::make_shared<runtime::FullConnectionInfo>();
  info->in_features = static_cast<uint16_t>(size.ins);
  info->out_features = static_cast<uint16_t>(size.outs);
  info->weight = test::weight_text(weight);
  const auto kernel = test::make_kernel(row.name);
  if (!kernel->Config(info, nullptr, context)) throw std::runtime_error("refused");
  std::vector<uint32_t> dims = {size.ins};
  if (row.is_batch) dims.insert(dims.begin(), 1);
  const runtime::TensorShape shape(dims, DataType::FLOAT32, row.layout);
  const IKernel::Tensors inputs = {context->cpu->CreateTensor(shape, input.data())};
  IKernel::Tensors outputs;
  kernel->Forward(inputs, outputs, context);
  check(row.name, size, weight, input, static_cast<const float*>(outputs.at(0)->handle.cpu));

  const size_t whole_steps = weight.size() / 128 * 128;
  const double limit = read_limit(width_of(row.name), weight.data(), whole_steps);
  for (auto _ : state) {
    outputs.clear();
    kernel->Forward(inputs, outputs, context);
  }
  report_bandwidth(state, weight.size() * sizeof(float), limit);
  if (const auto seconds = openblas_vector_seconds(weight.data(), size.outs, size.ins)) {
    report_ratio(state, "x OpenBLAS", *seconds);
  }
}

const bool registered = [] {
  for (const FullConnectionRow* row : kernel::full_connection_rows) {
    if (!can_run(row->name)) continue;
    for (const Features& size : kSizes) {
      if (!row->accepts(size.ins, size.outs)) continue;
      const std::string name =
          std::string(row->name) + "/" + std::to_string(size.outs) + "x" + std::to_string(size.ins);
      benchmark::RegisterBenchmark(
          name.c_str(), [row, &size](benchmark::State& state) { run(state, *row, size); });
    }
  }
  return true;
}();

}  // namespace
}  // namespace marlo::bench
