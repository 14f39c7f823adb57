#include "qrt_core/kernel/conv/depthwise_convolution.h"

namespace marlo::kernel {

bool has_depthwise_window(const Conv2dParams& p, uint32_t size, uint32_t stride) {
  return p.kernel_x == size && p.kernel_y == size && p.stride_x == stride && p.stride_y == stride &&
         p.dilation_x == 1 && p.dilation_y == 1;
}

void run_padded_blocks(const ConvTask& task, runtime::DeviceCPU& device, uint32_t block,
                       conv::Core core) {
  const Conv2dParams& p = task.params;
  const size_t filters = size_t{p.in_channels_per_group} * p.out_channels_per_group;
  if (filters == 0 || p.groups < block) return;  // nothing has weights
  const Margins margins = {p.padding_l * block, p.padding_r * block, p.padding_t, p.padding_b};
  ConvTask one = task;
  one.in_height += p.padding_t + p.padding_b;
  one.in_width += p.padding_l + p.padding_r;
  one.params.groups = block;
  const auto padded =
      device.CreateF32FlexiableMainMemory({one.in_height, one.in_width, block}, nullptr);
  auto* picture = static_cast<float*>(padded->RawPointer());
  one.input = picture;
  const size_t in_plane = size_t{task.in_height} * task.in_width * block;
  const size_t out_plane = size_t{task.out_height} * task.out_width * block;
  const size_t weights = filters * p.kernel_y * p.kernel_x * block;
  for (size_t i = 0; i < p.groups / block; ++i) {
    frame_planes(task.input + i * in_plane, 1, task.in_height, size_t{task.in_width} * block,
                 margins, 0.0f, picture);
    one.weight = task.weight + i * weights;
    one.bias = task.bias == nullptr ? nullptr : task.bias + i * block;
    one.output = task.output + i * out_plane;
    core(one);
  }
}

}  // namespace marlo::kernel
