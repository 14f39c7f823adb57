#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "bench/support/checks.h"
#include "bench/support/configured_kernel.h"
#include "bench/support/onednn_peers.h"
#include "qrt_core/kernel/basic/upsampling.h"
#include "qrt_core/kernel/layout/pixel_shuffle.h"
#include "qrt_core/runtime/model/layers.h"
#include "tests/support/numbers.h"
#include "tests/support/plane_math.h"

// Planes made twice as large, and channels exchanged for pixels, as decoders do it: 64 channels of
// 56 by 56.

namespace marlo::bench {
namespace {

using runtime::LayoutType;

constexpr uint32_t kChannels = 64;
constexpr uint32_t kSize = 56;

ConfiguredKernel kernel_on(const char* name, const std::shared_ptr<runtime::LayerInfo>& info,
                           LayoutType layout, const test::Planes& planes) {
  ConfiguredKernel kernel(name, info);
  kernel.add_planes({planes.channels, planes.height, planes.width}, layout,
                    {planes.values.begin(), planes.values.end()});
  kernel.pass();
  return kernel;
}

// Rows and columns within `margin` of the edge may be anything: methods differ there.
void check(const ConfiguredKernel& kernel, const test::Planes& expected, uint32_t margin) {
  const std::vector<float> found = kernel.output_planes(expected.channels);
  demand_elements(kernel.name(), found, expected.values.size(), [&](size_t i) {
    const size_t y = i / expected.width % expected.height;
    const size_t x = i % expected.width;
    const bool inside =
        y >= margin && y + margin < expected.height && x >= margin && x + margin < expected.width;
    return Expected{expected.values[i], inside ? 1e-5 : HUGE_VAL};
  });
}

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
  ConfiguredKernel kernel = kernel_on(row.name, info, row.layout, planes);
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
  check(kernel, expected, 1);
  time_moving(state, kernel);
  if (row.layout != LayoutType::C8HW8 || row.bilinear == nullptr) return;
  report_peer(state, kernel, onednn_doubling(kChannels, kSize));
}

void run_shuffle(benchmark::State& state, const kernel::PixelShuffleRow& row) {
  auto info = std::make_shared<runtime::PixelShuffleInfo>();
  const bool up = row.factor != 0.5f;
  info->upscale_factor = up ? 2.0f : 0.5f;
  const test::Planes deep = picture();
  const test::Planes wide = test::shuffled_to_pixels(deep);
  ConfiguredKernel kernel = kernel_on(row.name, info, row.layout, up ? deep : wide);
  check(kernel, up ? wide : deep, 0);
  time_moving(state, kernel);
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
