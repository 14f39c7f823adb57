#include "qrt_core/kernel/conv/general/general_convolution.h"

#include "qrt_core/kernel/conv/points/point_convolution_cores.h"
#include "qrt_core/kernel/conv/steps/im2col.h"

namespace marlo::kernel {

using runtime::DeviceCPU;
using runtime::TensorCPU;

#if QRT_WITH_SSE || QRT_WITH_AVX

namespace {

using Im2col = decltype(&Im2col_CHW_Float_SSE);

size_t taps_of(const Conv2dParams& p) { return size_t{p.kernel_y} * p.kernel_x; }

// The windows over the first `blocks` blocks of the input as columns.
std::shared_ptr<TensorCPU> columns_of(const ConvTask& task, uint32_t blocks, uint32_t block,
                                      Im2col im2col, DeviceCPU& device) {
  const Conv2dParams& p = task.params;
  // There are weights for all of these planes, so their number fits.
  const auto planes = static_cast<uint32_t>(blocks * taps_of(p));
  std::vector<uint32_t> dims = {planes, task.out_height, task.out_width};
  if (block > 1) dims.push_back(block);
  auto columns = device.CreateF32FlexiableMainMemory(dims, nullptr);
  im2col(blocks, task.in_height, task.in_width, task.out_height, task.out_width, p.kernel_y,
         p.kernel_x, p.stride_y, p.stride_x, p.dilation_y, p.dilation_x, task.input,
         static_cast<float*>(columns->RawPointer()));
  return columns;
}

// The 1x1 convolution over columns: each tap of each block is a block of channels.
ConvTask product_task(const ConvTask& task, const float* columns) {
  ConvTask product = task;
  product.input = columns;
  product.in_blocks = static_cast<uint32_t>(task.in_blocks * taps_of(task.params));
  product.in_height = task.out_height;
  product.in_width = task.out_width;
  return product;
}

void run_in_blocks(const ConvTask& task, uint32_t block, Im2col im2col, conv::Core core,
                   DeviceCPU& device) {
  // Without weights there is nothing that bounds the columns, and nothing to compute.
  if (task.out_blocks == 0) return;
  // Nothing is read then, so that any address serves.
  if (task.in_blocks * taps_of(task.params) == 0) return core(product_task(task, task.output));
  const auto columns = columns_of(task, task.in_blocks, block, im2col, device);
  core(product_task(task, static_cast<const float*>(columns->RawPointer())));
}

}  // namespace

#endif

#if QRT_WITH_SSE

void conv::general_chw_sse(const ConvTask& task, DeviceCPU& device) {
  if (task.out_blocks == 0) return;
  const uint32_t groups = task.params.groups;
  const size_t planes = task.in_blocks * taps_of(task.params);  // of a group
  std::shared_ptr<TensorCPU> columns;
  if (planes != 0) {
    columns = columns_of(task, groups * task.in_blocks, 1, Im2col_CHW_Float_SSE, device);
  }
  // Without planes nothing is read, so that any address serves.
  const float* input = planes == 0 ? task.output : static_cast<const float*>(columns->RawPointer());
  const size_t pixels = size_t{task.out_height} * task.out_width;
  ConvTask product = product_task(task, input);
  for (uint32_t group = 0; group < groups; ++group) {
    point_chw_sse(product);
    product.input += planes * pixels;
    product.weight += planes * task.out_blocks;
    product.output += task.out_blocks * pixels;
    if (product.bias != nullptr) product.bias += task.out_blocks;
  }
}

void conv::general_c4_sse(const ConvTask& task, DeviceCPU& device) {
  run_in_blocks(task, 4, Im2col_C4HW4_Float_SSE, point_c4_m1_sse, device);
}

void conv::general_c8_sse(const ConvTask& task, DeviceCPU& device) {
  run_in_blocks(task, 8, Im2col_C8HW8_Float_AVX, conv::point_c8_sse, device);
}

#endif

#if QRT_WITH_AVX

void conv::general_c8_fma(const ConvTask& task, DeviceCPU& device) {
  run_in_blocks(task, 8, Im2col_C8HW8_Float_AVX, point_c8_m1_fma, device);
}

#endif

}  // namespace marlo::kernel
