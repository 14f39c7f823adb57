#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>

#include "bench/support/probe.h"
#include "bench/support/reporting.h"
#include "bench/support/shapes.h"
#include "qrt_core/kernel/conv/reference_convolution.h"
#include "qrt_core/utility/application.h"
#include "tests/support/conv_setup.h"
#include "tests/support/kernels.h"

// The portable convolutions on layers of known networks.

namespace marlo::bench {
namespace {

using kernel::ConvolutionRow;
using runtime::IKernel;
using test::ConvCase;
using test::ConvData;
using test::ConvOracle;

// The portable kernels, and the oracle even more so, take too long for larger layers.
constexpr double kMostMultiplyAdds = 6e8;

template <typename Geometry>
void check(const char* name, const ConvShape& shape, const ConvData& data, const float* output) {
  const ConvOracle oracle = test::oracle_of<Geometry>(shape.sizes, data);
  for (size_t i = 0; i < oracle.sums.size(); ++i) {
    const test::Sum& sum = oracle.sums[i];
    if (std::abs(output[i] - sum.value) <= sum.bound()) continue;
    throw std::runtime_error(std::string(name) + " on " + shape.name + ": output " +
                             std::to_string(i) + " is " + std::to_string(output[i]) + ", not " +
                             std::to_string(sum.value));
  }
}

template <typename Geometry>
void run(benchmark::State& state, const char* name, const ConvShape& shape) {
  const ConvCase& sizes = shape.sizes;
  const ConvData data = test::float_data(sizes, 1);
  std::shared_ptr<runtime::Context> context;
  utility::create_context(context, 64);
  const auto kernel = test::make_kernel(name);
  if (!kernel->Config(test::describe<Geometry>(sizes, data), nullptr, context)) {
    throw std::runtime_error(std::string(name) + " refuses " + shape.name);
  }
  const auto dims = test::dims_of<Geometry>(sizes.in_channels, static_cast<int>(sizes.height),
                                            static_cast<int>(sizes.width));
  const auto layout = dims.size() == 2 ? runtime::LayoutType::CL : runtime::LayoutType::CHW;
  const runtime::TensorShape input(dims, runtime::DataType::FLOAT32, layout);
  const IKernel::Tensors inputs = {context->cpu->CreateTensor(input, data.input.data())};
  IKernel::Tensors outputs;
  static std::set<std::string> checked;
  if (checked.insert(name + shape.name).second) {
    kernel->Forward(inputs, outputs, context);
    check<Geometry>(name, shape, data, static_cast<const float*>(outputs.at(0)->handle.cpu));
  }

  const double limit = arithmetic_limit(width_of(name));
  for (auto _ : state) {
    outputs.clear();
    kernel->Forward(inputs, outputs, context);
  }
  report_arithmetic(state, 2 * shape.multiply_adds(), limit);
}

template <typename Geometry, size_t n>
void add(const ConvolutionRow<Geometry>* const (&rows)[n], ConvShape::Kind kind) {
  for (const ConvolutionRow<Geometry>* row : rows) {
    if (!can_run(row->name)) continue;
    for (const ConvShape& shape : conv_shapes()) {
      if (shape.kind != kind || shape.multiply_adds() > kMostMultiplyAdds) continue;
      const std::string name = std::string(row->name) + "/" + shape.name;
      benchmark::RegisterBenchmark(name.c_str(), run<Geometry>, row->name, shape)
          ->Unit(benchmark::kMillisecond)
          ->Repetitions(3);
    }
  }
}

const bool registered = [] {
  add(kernel::plane_convolution_rows, ConvShape::Kind::plane);
  add(kernel::transposed_convolution_rows, ConvShape::Kind::transposed);
  add(kernel::line_convolution_rows, ConvShape::Kind::line);
  return true;
}();

}  // namespace
}  // namespace marlo::bench
