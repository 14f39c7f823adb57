#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/support/peer.h"
#include "bench/support/probe.h"
#include "bench/support/probe_cores.h"
#include "bench/support/reporting.h"
#include "qrt_core/kernel/basic/pooling.h"
#include "qrt_core/utility/application.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/pooling_tester.h"

// Every pooling on the planes where networks have it: 64 channels of 112 by 112 before a stage, 64
// of 56 by 56 within one, and a last window over all that is left.

namespace marlo::bench {
namespace {

using kernel::PoolingRow;
using runtime::IKernel;

// @throws std::runtime_error unless `output` is what the definition says
void check(const PoolingRow& row, const test::PoolingOracle& oracle, const float* output) {
  for (size_t i = 0; i < oracle.outputs.size(); ++i) {
    const double expected = oracle.outputs[i].value;
    if (std::abs(output[i] - expected) <= 1e-5) continue;
    throw std::runtime_error(std::string(row.name) + " gives " + std::to_string(output[i]) +
                             " at " + std::to_string(i) + ", not " + std::to_string(expected));
  }
}

void run_forward(benchmark::State& state, const PoolingRow& row, uint32_t channels, uint32_t size,
                 int padding) {
  const bool any = row.kernel == 0;
  test::PoolingCase sizes;
  sizes.planes = channels / row.block;
  sizes.height = sizes.width = size;
  sizes.kernel_y = sizes.kernel_x = any ? 3 : row.kernel;
  sizes.stride_y = sizes.stride_x = any ? 2 : row.stride;
  sizes.padding_l = sizes.padding_r = sizes.padding_t = sizes.padding_b = padding;
  const auto tester = test::PoolingTester()
                          .planes(sizes.planes)
                          .size(size, size)
                          .kernel(sizes.kernel_y)
                          .stride(sizes.stride_y)
                          .padding(padding);
  std::shared_ptr<runtime::Context> context;
  utility::create_context(context, 64);
  const auto kernel = test::make_kernel(row.name);
  if (!kernel->Config(tester.description(row), nullptr, context)) {
    throw std::runtime_error(std::string(row.name) + " isn't configured");
  }
  const std::vector<float> values = test::Random(1).floats(size_t{channels} * size * size);
  const auto input = context->cpu->CreateTensor(
      runtime::TensorShape(tester.dims(row), runtime::DataType::FLOAT32, row.layout),
      values.data());
  const IKernel::Tensors inputs{input};
  IKernel::Tensors outputs;
  kernel->Forward(inputs, outputs, context);
  check(row, test::pooling(row, sizes, values), static_cast<const float*>(outputs[0]->handle.cpu));
  const size_t moved =
      values.size() + static_cast<size_t>(runtime::ElementCount(outputs[0]->shape));
  const size_t half = moved / 2 / kCopyStep * kCopyStep;
  std::vector<float> from(half);
  std::vector<float> to(half);
  const double limit = copy_limit(width_of(row.name), from.data(), to.data(), half);
  for (auto _ : state) {
    outputs.clear();
    kernel->Forward(inputs, outputs, context);
  }
  report_bandwidth(state, moved * sizeof(float), limit);
  if (row.layout != runtime::LayoutType::C8HW8) return;
  const auto peer = peer_pooling(row.kind == kernel::PoolingKind::maximum, channels, size,
                                 sizes.kernel_y, sizes.stride_y, static_cast<uint32_t>(padding));
  if (peer == nullptr) return;
  const auto ours = [&] {
    outputs.clear();
    kernel->Forward(inputs, outputs, context);
  };
  report_peer(state, ours, *peer);
}

const bool registered = [] {
  struct Shape {
    const char* name;
    uint32_t channels;
    uint32_t size;
    int padding;
  };
  constexpr Shape kWide[] = {
      {"64x112x112", 64, 112, 0}, {"64x112x112/padding:1", 64, 112, 1}, {"64x56x56", 64, 56, 0}};
  for (const PoolingRow* row : kernel::pooling_rows) {
    if (!can_run(row->name)) continue;
    const bool last = row->stride == 1;
    const Shape all = {"512x8x8", 512, 8, 0};
    for (const Shape& shape : kWide) {
      if (last) break;
      benchmark::RegisterBenchmark((std::string(row->name) + "/" + shape.name).c_str(), run_forward,
                                   *row, shape.channels, shape.size, shape.padding);
    }
    if (last) {
      benchmark::RegisterBenchmark((std::string(row->name) + "/" + all.name).c_str(), run_forward,
                                   *row, all.channels, all.size, all.padding);
    }
  }
  return true;
}();

}  // namespace
}  // namespace marlo::bench
