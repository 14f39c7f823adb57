#include "qrt_core/kernel/layout/fill.h"

#include <algorithm>
#include <cstring>

#include "qrt_core/kernel/layout/fill_cores.h"
#include "qrt_core/runtime/engine/kernel.h"
#include "qrt_core/utility/build_options.h"

namespace marlo::kernel {

using runtime::DataType;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorCPU;

namespace {

bool is_float(const TensorCPU& tensor) {
  return tensor.shape.data_type == DataType::FLOAT32 &&
         tensor.shape.location == LocationType::MainMemory;
}

bool is_float_of(const TensorCPU& tensor, LayoutType layout) {
  return is_float(tensor) && tensor.shape.layout == layout;
}

int fill_bias(const TensorCPU& bias, TensorCPU& output, LayoutType layout, fill::Core core) {
  const bool fits = is_float_of(bias, LayoutType::GN) && is_float_of(output, layout) &&
                    !output.shape.dims.empty();
  if (!fits) return runtime::KERNEL_BAD_TENSOR;
  fill_channels(static_cast<const float*>(bias.RawPointer()), runtime::ElementCount(bias.shape),
                static_cast<float*>(output.RawPointer()), output.shape.dims[0], output.strides[0],
                runtime::BlockSize(layout), core);
  return runtime::KERNEL_OK;
}

}  // namespace

void fill_channels(const float* values, size_t channels, float* output, size_t planes,
                   size_t plane_floats, size_t block, fill::Core core) noexcept {
  if (block == 1) planes = std::min(planes, channels);
  for (size_t first = 0; planes-- > 0; first += block, output += plane_floats) {
    float pattern[fill::kPatternFloats];
    for (size_t k = 0; k < fill::kPatternFloats; ++k) {
      const size_t channel = first + k % block;
      pattern[k] = channel < channels ? values[channel] : 0.0f;
    }
    core(output, plane_floats, pattern);
  }
}

void fill::repeat_portable(float* output, size_t count, const float* pattern) noexcept {
  size_t i = 0;
  for (; i + kPatternFloats <= count; i += kPatternFloats) {
    std::memcpy(output + i, pattern, kPatternFloats * sizeof(float));
  }
  for (size_t k = 0; i < count; ++i, ++k) output[i] = pattern[k];
}

void fill::add_portable(float* output, size_t count, const float* pattern) noexcept {
  size_t i = 0;
  for (; i + kPatternFloats <= count; i += kPatternFloats) {
    for (size_t k = 0; k < kPatternFloats; ++k) output[i + k] += pattern[k];
  }
  for (size_t k = 0; i < count; ++i, ++k) output[i] += pattern[k];
}

int FillBias_CHW_Float_Fallback(std::shared_ptr<TensorCPU> bias,
                                std::shared_ptr<TensorCPU> output) {
  return fill_bias(*bias, *output, LayoutType::CHW, fill::repeat_portable);
}

int FillBias_CL_Float_Fallback(std::shared_ptr<TensorCPU> bias, std::shared_ptr<TensorCPU> output) {
  return fill_bias(*bias, *output, LayoutType::CL, fill::repeat_portable);
}

// The kernels on matrix products use it, also in a build without those for SSE: every processor has
// what it needs.
int AddBias_CHW_Float_SSE(std::shared_ptr<TensorCPU> bias, std::shared_ptr<TensorCPU> output) {
  return fill_bias(*bias, *output, LayoutType::CHW, fill::add_portable);
}

#if QRT_WITH_SSE || QRT_WITH_AVX

// AVX kernels use it as well, also in a build without those for SSE.
int FillBias_C4HW4_Float_SSE(std::shared_ptr<TensorCPU> bias, std::shared_ptr<TensorCPU> output) {
#if QRT_WITH_SSE
  return fill_bias(*bias, *output, LayoutType::C4HW4, fill::repeat_sse);
#else
  return fill_bias(*bias, *output, LayoutType::C4HW4, fill::repeat_avx);
#endif
}

#endif

#if QRT_WITH_SSE

int FillBias_CHW_Float_SSE(std::shared_ptr<TensorCPU> bias, std::shared_ptr<TensorCPU> output) {
  return fill_bias(*bias, *output, LayoutType::CHW, fill::repeat_sse);
}

int FillBias_C8HW8_Float_SSE(std::shared_ptr<TensorCPU> bias, std::shared_ptr<TensorCPU> output) {
  return fill_bias(*bias, *output, LayoutType::C8HW8, fill::repeat_sse);
}

#endif

#if QRT_WITH_AVX

int FillBias_CHW_Float_AVX(std::shared_ptr<TensorCPU> bias, std::shared_ptr<TensorCPU> output) {
  return fill_bias(*bias, *output, LayoutType::CHW, fill::repeat_avx);
}

int FillBias_C8HW8_Float_AVX(std::shared_ptr<TensorCPU> bias, std::shared_ptr<TensorCPU> output) {
  return fill_bias(*bias, *output, LayoutType::C8HW8, fill::repeat_avx);
}

int AddBias_C8HW8_Float_AVX(std::shared_ptr<TensorCPU> bias, std::shared_ptr<TensorCPU> output) {
  return fill_bias(*bias, *output, LayoutType::C8HW8, fill::add_avx);
}

#endif

int FillZero_Float(std::shared_ptr<TensorCPU> output) {
  if (!is_float(*output)) return runtime::KERNEL_BAD_TENSOR;
  std::memset(output->RawPointer(), 0, runtime::ByteSize(output->shape));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
