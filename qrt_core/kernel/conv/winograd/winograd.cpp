#include "qrt_core/kernel/conv/winograd/winograd.h"

#if QRT_WITH_SSE

#include <array>
#include <cstddef>

namespace marlo::kernel {

using runtime::DataType;
using runtime::DeviceCPU;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorCPU;
using runtime::TensorShape;

namespace {

constexpr size_t kTaps = 3;
constexpr size_t kCombinations = 4;

constexpr std::array<std::array<float, kTaps>, kCombinations> kFilterTransform = {
    {{1.0f, 0.0f, 0.0f}, {0.5f, 0.5f, 0.5f}, {0.5f, -0.5f, 0.5f}, {0.0f, 0.0f, 1.0f}}};

// The products with 0 are computed, so that a NaN or an infinity in one tap reaches all elements.
float combine(const std::array<float, kTaps>& factors, float a, float b, float c) {
  return factors[0] * a + factors[1] * b + factors[2] * c;
}

void transform_filter(const float* filter, float* transformed) {
  for (size_t u = 0; u < kCombinations; ++u) {
    std::array<float, kTaps> rows;
    for (size_t y = 0; y < kTaps; ++y) {
      const float* row = filter + y * kTaps;
      rows[y] = combine(kFilterTransform[u], row[0], row[1], row[2]);
    }
    for (size_t v = 0; v < kCombinations; ++v) {
      *transformed++ = combine(kFilterTransform[v], rows[0], rows[1], rows[2]);
    }
  }
}

}  // namespace

std::shared_ptr<TensorCPU> transform_filters(std::shared_ptr<TensorCPU> weight,
                                             std::shared_ptr<DeviceCPU> device) {
  const TensorShape& shape = weight->shape;
  const bool has_filters = shape.layout == LayoutType::GNCHW &&
                           shape.location == LocationType::MainMemory &&
                           shape.data_type == DataType::FLOAT32 && shape.dims.size() == 5 &&
                           shape.dims[0] > 0 && shape.dims[3] == kTaps && shape.dims[4] == kTaps;
  if (!has_filters) return nullptr;
  const uint32_t elements = kCombinations * kCombinations;
  auto transformed =
      device->CreateTensor(TensorShape({shape.dims[1], shape.dims[2], elements}, DataType::FLOAT32,
                                       LayoutType::CHW, LocationType::MainMemory),
                           nullptr);
  const auto* filters = static_cast<const float*>(weight->RawPointer());
  auto* target = static_cast<float*>(transformed->RawPointer());
  for (size_t i = 0; i < size_t{shape.dims[1]} * shape.dims[2]; ++i) {
    transform_filter(filters + i * kTaps * kTaps, target + i * elements);
  }
  return transformed;
}

}  // namespace marlo::kernel

#endif
