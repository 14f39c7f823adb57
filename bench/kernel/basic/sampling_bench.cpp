#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/support/peer.h"
#include "bench/support/probe.h"
#include "bench/support/probe_cores.h"
#include "bench/support/reporting.h"
#include "qrt_core/kernel/basic/upsampling.h"
#include "qrt_core/kernel/layout/pixel_shuffle.h"
#include "qrt_core/runtime/model/layers.h"
#include "qrt_core/utility/application.h"
#include "tests/support/blocked_layout.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/plane_math.h"

// Planes made twice as large, and channels exchanged for pixels, as decoders do it: 64 channels of
// 56 by 56.

namespace marlo::bench {
namespace {

using runtime::IKernel;
using runtime::LayoutType;

constexpr uint32_t kChannels = 64;
constexpr uint32_t kSize = 56;

// A configured kernel with its input.
class Pass {
 public:
  Pass(const char* name, const std::shared_ptr<runtime::LayerInfo>& info, LayoutType layout,
       const test::Planes& planes)
      : name_(name), layout_(layout), kernel_(test::make_kernel(name)) {
    utility::create_context(context_, 64);
    if (!kernel_->Config(info, nullptr, context_)) {
      throw std::runtime_error(std::string(name) + " isn't configured");
    }
    const std::vector<float> values(planes.values.begin(), planes.values.end());
    const auto blocked = test::to_layout(values, planes.channels, layout);
    inputs_ = {context_->cpu->CreateTensor(
        runtime::TensorShape(
            test::dims_in_layout({planes.channels, planes.height, planes.width}, layout),
            runtime::DataType::FLOAT32, layout),
        blocked.data())};
    floats_ = values.size();
  }

  void run() {
    outputs_.clear();
    kernel_->Forward(inputs_, outputs_, context_);
  }

  /// Checks the result within its interior, where all methods agree, and times passes.
  void time(benchmark::State& state, const test::Planes& expected, uint32_t margin) {
    run();
    check(expected, margin);
    floats_ += expected.values.size();
    const size_t half = floats_ / 2 / kCopyStep * kCopyStep;
    std::vector<float> from(half);
    std::vector<float> to(half);
    const double limit = copy_limit(width_of(name_), from.data(), to.data(), half);
    for (auto _ : state) run();
    report_bandwidth(state, floats_ * sizeof(float), limit);
  }

 private:
  void check(const test::Planes& expected, uint32_t margin) const {
    const auto* values = static_cast<const float*>(outputs_.at(0)->handle.cpu);
    const auto planes = test::from_layout(
        std::vector<float>(values, values + expected.values.size()), expected.channels, layout_);
    for (uint32_t c = 0; c < expected.channels; ++c) {
      for (uint32_t y = margin; y + margin < expected.height; ++y) {
        for (uint32_t x = margin; x + margin < expected.width; ++x) {
          const size_t at = (size_t{c} * expected.height + y) * expected.width + x;
          if (std::abs(planes[at] - expected.values[at]) <= 1e-5) continue;
          throw std::runtime_error(std::string(name_) + " is wrong at " + std::to_string(at));
        }
      }
    }
  }

  const char* name_;
  LayoutType layout_;
  std::shared_ptr<runtime::Context> context_;
  std::shared_ptr<IKernel> kernel_;
  IKernel::Tensors inputs_;
  IKernel::Tensors outputs_;
  size_t floats_ = 0;
};

test::Planes picture() {
  test::Planes planes(kChannels, kSize, kSize);
  test::Random random(1);
  for (double& value : planes.values) value = random.unit();
  return planes;
}

void run_doubling(benchmark::State& state, const kernel::UpsamplingRow& row) {
  auto info = std::make_shared<runtime::Upsample2dInfo>();
  info->scale_factor_x = info->scale_factor_y = 2;
  info->unsample_type = row.bilinear == nullptr ? 0 : 1;
  const test::Planes planes = picture();
  Pass pass(row.name, info, row.layout, planes);
  test::Planes expected(kChannels, 2 * kSize, 2 * kSize);
  if (row.bilinear != nullptr) {
    expected = test::twice_as_large(planes);
  } else {
    for (uint32_t c = 0; c < kChannels; ++c) {
      for (uint32_t y = 0; y < 2 * kSize; ++y) {
        for (uint32_t x = 0; x < 2 * kSize; ++x) {
          expected.at(c, y, x) = planes.at(c, y / 2, x / 2);
        }
      }
    }
  }
  pass.time(state, expected, 1);
  if (row.layout != LayoutType::C8HW8 || row.bilinear == nullptr) return;
  if (const auto peer = peer_doubling(kChannels, kSize)) {
    report_peer(
        state, [&pass] { pass.run(); }, *peer);
  }
}

void run_shuffle(benchmark::State& state, const kernel::PixelShuffleRow& row) {
  auto info = std::make_shared<runtime::PixelShuffleInfo>();
  const bool up = row.factor != 0.5f;
  info->upscale_factor = up ? 2.0f : 0.5f;
  const test::Planes deep = picture();
  const test::Planes wide = test::shuffled_to_pixels(deep);
  Pass pass(row.name, info, row.layout, up ? deep : wide);
  pass.time(state, up ? wide : deep, 0);
}

const bool registered = [] {
  for (const kernel::UpsamplingRow* row : kernel::upsampling_rows) {
    if (!can_run(row->name)) continue;
    benchmark::RegisterBenchmark((std::string(row->name) + "/64x56x56/x2").c_str(), run_doubling,
                                 *row);
  }
  for (const kernel::PixelShuffleRow* row : kernel::pixel_shuffle_rows) {
    if (!can_run(row->name)) continue;
    benchmark::RegisterBenchmark((std::string(row->name) + "/64x56x56").c_str(), run_shuffle, *row);
  }
  return true;
}();

}  // namespace
}  // namespace marlo::bench
