#include "qrt_core/kernel/extension/conv/block_winograd.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

namespace marlo::kernel {

using runtime::DataType;
using runtime::DeviceCPU;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorCPU;
using runtime::TensorShape;

namespace {

constexpr size_t kBlock = 8;
constexpr size_t kTaps = 3;

using FilterRow = std::array<double, kTaps>;

constexpr std::array<FilterRow, 6> kFilters4 = {{{256.0 / 225, 0, 0},
                                                 {-2048.0 / 2975, -256.0 / 595, -32.0 / 119},
                                                 {-2048.0 / 2975, 256.0 / 595, -32.0 / 119},
                                                 {128.0 / 1071, 64.0 / 357, 32.0 / 119},
                                                 {128.0 / 1071, -64.0 / 357, 32.0 / 119},
                                                 {0, 0, 1}}};

constexpr std::array<FilterRow, 8> kFilters6 = {{{1, 0, 0},
                                                 {-2.0 / 9, -2.0 / 9, -2.0 / 9},
                                                 {-2.0 / 9, 2.0 / 9, -2.0 / 9},
                                                 {1.0 / 90, 1.0 / 45, 2.0 / 45},
                                                 {1.0 / 90, -1.0 / 45, 2.0 / 45},
                                                 {32.0 / 45, 16.0 / 45, 8.0 / 45},
                                                 {32.0 / 45, -16.0 / 45, 8.0 / 45},
                                                 {0, 0, 1}}};

double combined(const FilterRow& factors, double a, double b, double c) {
  return factors[0] * a + factors[1] * b + factors[2] * c;
}

using Filters = std::array<double, kBlock>;  // one number of each

// The filters of eight output channels, which are `apart` floats apart; their elements are `step` floats apart.
template <size_t kIn>
void transform(const std::array<FilterRow, kIn>& matrix, const float* filters, size_t apart,
               float* to, size_t step) {
  std::array<Filters, kTaps * kTaps> taps;
  for (size_t n = 0; n < kBlock; ++n) {
    for (size_t tap = 0; tap < taps.size(); ++tap) taps[tap][n] = filters[n * apart + tap];
  }
  for (size_t i = 0; i < kIn; ++i) {
    std::array<Filters, kTaps> row;
    for (size_t x = 0; x < kTaps; ++x) {
      for (size_t n = 0; n < kBlock; ++n) {
        row[x][n] = combined(matrix[i], taps[x][n], taps[kTaps + x][n], taps[2 * kTaps + x][n]);
      }
    }
    for (size_t j = 0; j < kIn; ++j) {
      float* const element = to + (i * kIn + j) * step;
      for (size_t n = 0; n < kBlock; ++n) {
        element[n] = static_cast<float>(combined(matrix[j], row[0][n], row[1][n], row[2][n]));
      }
    }
  }
}

template <size_t kIn>
std::shared_ptr<TensorCPU> pack_filters(const std::array<FilterRow, kIn>& matrix,
                                        const TensorCPU& weight, DeviceCPU& device,
                                        const matrix::ProductCores& cores) {
  const TensorShape& shape = weight.shape;
  const bool packable =
      shape.layout == LayoutType::GNCHW && shape.location == LocationType::MainMemory &&
      shape.data_type == DataType::FLOAT32 && shape.dims.size() == 5 && shape.dims[0] == 1 &&
      shape.dims[1] % kBlock == 0 && shape.dims[2] % kBlock == 0 && shape.dims[3] == kTaps &&
      shape.dims[4] == kTaps;
  if (!packable) return nullptr;
  const size_t outs = shape.dims[1];
  const size_t ins = shape.dims[2];
  const size_t elements = kIn * kIn;
  // Only the last panel's last vector isn't filled.
  const size_t filled = matrix::packed_size(1, outs, cores.lanes);
  auto packed = device.CreateTensor(
      TensorShape({static_cast<uint32_t>(elements), static_cast<uint32_t>(filled), shape.dims[2]},
                  shape.data_type, LayoutType::FLEXIABLE, shape.location),
      nullptr);
  const auto* from = static_cast<const float*>(weight.RawPointer());
  auto* to = static_cast<float*>(packed->RawPointer());
  for (size_t first = 0; first < outs; first += cores.panel) {
    const size_t count = std::min(cores.panel, outs - first);
    const size_t width = matrix::packed_size(1, count, cores.lanes);
    if (count < width) std::fill_n(to, elements * ins * width, 0.0f);
    for (size_t c = 0; c < ins; ++c) {
      for (size_t n = 0; n < count; n += kBlock) {
        transform(matrix, from + ((first + n) * ins + c) * kTaps * kTaps, ins * kTaps * kTaps,
                  to + c * width + n, ins * width);
      }
    }
    to += elements * ins * width;
  }
  return packed;
}

}  // namespace

std::shared_ptr<TensorCPU> pack_filters_4x4(std::shared_ptr<TensorCPU> weight,
                                            std::shared_ptr<DeviceCPU> device,
                                            const matrix::ProductCores& cores) {
  return pack_filters(kFilters4, *weight, *device, cores);
}

std::shared_ptr<TensorCPU> pack_filters_6x6(std::shared_ptr<TensorCPU> weight,
                                            std::shared_ptr<DeviceCPU> device,
                                            const matrix::ProductCores& cores) {
  return pack_filters(kFilters6, *weight, *device, cores);
}

namespace conv {

void run_winograd(const ConvTask& task, DeviceCPU& device, size_t size,
                  const matrix::ProductCores& cores, WinogradCore core) {
  // The transformed inputs stay in L2.
  constexpr size_t kMostTiles = 28;
  // Rows, and elements, that are a multiple of 4 KiB apart would share a set of the first cache.
  constexpr size_t kGap = 16;
  constexpr size_t kSetsRepeat = 1024;
  const auto count = [size](size_t outputs) { return (outputs + size - 1) / size; };
  const size_t channels = size_t{task.in_blocks} * kBlock;
  WinogradScratch scratch;
  scratch.tiles = std::min(kMostTiles, count(task.out_height) * count(task.out_width));
  scratch.row = channels % kSetsRepeat == 0 ? channels + kGap : channels;
  scratch.gap = kGap;
  const size_t elements = (size + 2) * (size + 2);
  const size_t inputs = elements * (scratch.tiles * scratch.row + kGap);
  const size_t products = elements * (scratch.tiles * cores.panel + kGap);
  const auto memory =
      device.CreateF32FlexiableMainMemory({static_cast<uint32_t>(inputs + products)}, nullptr);
  scratch.inputs = static_cast<float*>(memory->RawPointer());
  scratch.products = scratch.inputs + inputs;
  core(task, cores, scratch);
}

}  // namespace conv
}  // namespace marlo::kernel
