#include "qrt_core/kernel/layout/layout_transform.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/support/probe.h"
#include "bench/support/probe_cores.h"
#include "bench/support/reporting.h"
#include "qrt_core/utility/application.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"

// Every layout transform: a whole Forward on planes of known networks, from L2 to memory, and on
// planes of 2^12 floats, whose rows all fall into the same sets of a cache. The share is that of a
// copy between the same two tensors.

namespace marlo::bench {
namespace {

using kernel::LayoutTransformRow;
using runtime::IKernel;
using runtime::TensorShape;

/// [channels, height, width].
struct Planes {
  uint32_t channels;
  uint32_t height;
  uint32_t width;
};

constexpr Planes kPlanes[] = {{64, 112, 112}, {64, 56, 56}, {256, 14, 14}, {32, 64, 64}};

std::vector<uint32_t> dims_of(const Planes& planes, uint32_t block) {
  if (block == 1) return {planes.channels, planes.height, planes.width};
  return {planes.channels / block, planes.height, planes.width, block};
}

/// A kernel, a tensor that it reads and the one that it made of it.
class TransformPass {
 public:
  TransformPass(const LayoutTransformRow& row, const Planes& planes) : row_(row) {
    utility::create_context(context_, 64);
    kernel_ = test::make_kernel(row.name);
    auto tensor =
        context_->cpu->CreateTensor(TensorShape(dims_of(planes, row.source.block),
                                                runtime::DataType::FLOAT32, row.source.layout),
                                    nullptr);
    count_ = runtime::ElementCount(tensor->shape);
    from_ = static_cast<float*>(tensor->RawPointer());
    const std::vector<float> values = test::Random(1).floats(count_);
    std::memcpy(from_, values.data(), count_ * sizeof(float));
    inputs_.push_back(std::move(tensor));
    run();
    to_ = static_cast<float*>(outputs_.at(0)->handle.cpu);
    check(planes, values);
  }

  void run() {
    outputs_.clear();
    kernel_->Forward(inputs_, outputs_, context_);
  }

  size_t bytes() const { return 2 * count_ * sizeof(float); }

  /// What a copy between the same two tensors reaches; they hold whole steps of it.
  double limit() const {
    return copy_limit(width_of(row_.name), from_, to_, count_ / kCopyStep * kCopyStep);
  }

 private:
  // @throws std::runtime_error unless every element stands where it belongs
  void check(const Planes& planes, const std::vector<float>& values) const {
    const size_t pixels = static_cast<size_t>(planes.height) * planes.width;
    const auto place = [pixels](size_t channel, size_t pixel, size_t block) {
      return (channel / block * pixels + pixel) * block + channel % block;
    };
    for (size_t channel = 0; channel < planes.channels; ++channel) {
      for (size_t pixel = 0; pixel < pixels; ++pixel) {
        if (to_[place(channel, pixel, row_.target.block)] !=
            values[place(channel, pixel, row_.source.block)]) {
          throw std::runtime_error(std::string(row_.name) + " misplaces channel " +
                                   std::to_string(channel) + ", pixel " + std::to_string(pixel));
        }
      }
    }
  }

  const LayoutTransformRow& row_;
  std::shared_ptr<runtime::Context> context_;
  std::shared_ptr<IKernel> kernel_;
  IKernel::Tensors inputs_;
  IKernel::Tensors outputs_;
  float* from_ = nullptr;
  float* to_ = nullptr;
  size_t count_ = 0;
};

void run_forward(benchmark::State& state, const LayoutTransformRow& row, const Planes& planes) {
  TransformPass pass(row, planes);
  const double limit = pass.limit();
  for (auto _ : state) pass.run();
  report_bandwidth(state, pass.bytes(), limit);
}

const bool registered = [] {
  for (const LayoutTransformRow* row : kernel::layout_transform_rows) {
    if (!can_run(row->name)) continue;
    for (const Planes& planes : kPlanes) {
      const std::string name = std::string(row->name) + "/forward/" +
                               std::to_string(planes.channels) + "x" +
                               std::to_string(planes.height) + "x" + std::to_string(planes.width);
      benchmark::RegisterBenchmark(name.c_str(), run_forward, *row, planes);
    }
  }
  return true;
}();

}  // namespace
}  // namespace marlo::bench
