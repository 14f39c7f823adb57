#include "bench/support/configured_kernel.h"

#include <stdexcept>

#include "bench/support/probe.h"
#include "bench/support/reporting.h"
#include "qrt_core/utility/application.h"
#include "tests/support/blocked_layout.h"
#include "tests/support/kernels.h"

namespace marlo::bench {

using runtime::ElementCount;

ConfiguredKernel::ConfiguredKernel(const char* name,
                                   const std::shared_ptr<runtime::LayerInfo>& info,
                                   const std::shared_ptr<runtime::InferenceParam>& param)
    : name_(name), kernel_(test::make_kernel(name)) {
  utility::create_context(context_, 64);
  if (info != nullptr && !kernel_->Config(info, param, context_)) {
    throw std::runtime_error(name_ + " refuses the layer");
  }
}

void ConfiguredKernel::add_input(const runtime::TensorShape& shape, const void* elements) {
  inputs_.push_back(context_->cpu->CreateTensor(shape, elements));
}

void ConfiguredKernel::add_planes(const std::vector<uint32_t>& dims, runtime::LayoutType layout,
                                  const std::vector<float>& planes) {
  add_floats(test::dims_in_layout(dims, layout), layout,
             test::to_layout(planes, dims.at(0), layout));
}

std::vector<float> ConfiguredKernel::output_planes(uint32_t channels) const {
  const auto elements = output<const float>();
  return test::from_layout({elements.begin(), elements.end()}, channels,
                           outputs_.at(0)->shape.layout);
}

size_t ConfiguredKernel::moved_elements() const {
  size_t elements = ElementCount(outputs_.at(0)->shape);
  for (const auto& input : inputs_) elements += ElementCount(input->shape);
  return elements;
}

namespace {

void time(benchmark::State& state, ConfiguredKernel& kernel, double limit) {
  for (auto _ : state) kernel.pass();
  report_bandwidth(state, kernel.moved_elements() * sizeof(float), limit);
}

}  // namespace

void time_moving(benchmark::State& state, ConfiguredKernel& kernel) {
  time(state, kernel, copy_limit(kernel.width(), kernel.moved_elements()));
}

void time_transforming(benchmark::State& state, ConfiguredKernel& kernel) {
  const auto from = kernel.input<float>();
  time(state, kernel,
       copy_limit(kernel.width(), from.data(), kernel.output<float>().data(), from.size()));
}

void time_computing(benchmark::State& state, ConfiguredKernel& kernel, double operations,
                    double limit) {
  for (auto _ : state) kernel.pass();
  report_arithmetic(state, operations, limit);
}

}  // namespace marlo::bench
