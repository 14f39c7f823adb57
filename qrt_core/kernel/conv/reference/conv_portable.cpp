#include <cstddef>
#include <cstdint>

#include "qrt_core/kernel/conv/steps/conv_cores.h"

namespace marlo::kernel::conv {
namespace {

/// One pair of an input and an output plane, with its filter.
struct PlanePair {
  const float* input;
  const float* filter;
  float* output;
};

// Calls `add` for every pair of planes, input channels innermost. The filters of the transposed
// form stand input channel first.
template <typename AddPlane>
void for_each_plane_pair(const ConvTask& task, bool input_channel_first, AddPlane add) noexcept {
  const Conv2dParams& p = task.params;
  const size_t in_plane = static_cast<size_t>(task.in_height) * task.in_width;
  const size_t out_plane = static_cast<size_t>(task.out_height) * task.out_width;
  const size_t filter_size = static_cast<size_t>(p.kernel_y) * p.kernel_x;
  const size_t ins = p.in_channels_per_group;
  const size_t outs = p.out_channels_per_group;
  for (size_t group = 0; group < p.groups; ++group) {
    for (size_t out = 0; out < outs; ++out) {
      for (size_t in = 0; in < ins; ++in) {
        const size_t index = input_channel_first ? in * outs + out : out * ins + in;
        add(PlanePair{task.input + (group * ins + in) * in_plane,
                      task.weight + (group * ins * outs + index) * filter_size,
                      task.output + (group * outs + out) * out_plane});
      }
    }
  }
}

// Sums the windows of `count` outputs of a row side by side, each in its own order, and adds them.
// The count is a constant so that the sums stay in registers.
template <size_t count>
void add_window_sums(const ConvTask& task, const PlanePair& planes, size_t row,
                     size_t first) noexcept {
  const Conv2dParams& p = task.params;
  const size_t stride = p.stride_x;
  const float* weight = planes.filter;
  float sums[count] = {};
  for (size_t ky = 0; ky < p.kernel_y; ++ky) {
    const size_t in_row = p.stride_y * row + p.dilation_y * ky;
    const float* in = planes.input + in_row * task.in_width + stride * first;
    for (size_t kx = 0; kx < p.kernel_x; ++kx, in += p.dilation_x, ++weight) {
      if (stride == 1) {
        for (size_t i = 0; i < count; ++i) sums[i] += in[i] * *weight;
      } else {
        for (size_t i = 0; i < count; ++i) sums[i] += in[stride * i] * *weight;
      }
    }
  }
  float* output = planes.output + row * task.out_width + first;
  for (size_t i = 0; i < count; ++i) output[i] += sums[i];
}

void add_plane(const ConvTask& task, const PlanePair& planes) noexcept {
  for (size_t row = 0; row < task.out_height; ++row) {
    size_t first = 0;
    for (; first + 16 <= task.out_width; first += 16) {
      add_window_sums<16>(task, planes, row, first);
    }
    for (; first + 4 <= task.out_width; first += 4) add_window_sums<4>(task, planes, row, first);
    for (; first < task.out_width; ++first) add_window_sums<1>(task, planes, row, first);
  }
}

// The input that meets a position of the upsampled plane along one dimension, or -1 where the
// position falls between inputs or outside.
int64_t input_at(int64_t position, int64_t stride, int64_t size) {
  if (position % stride != 0) return -1;
  const int64_t index = position / stride;
  return index < size ? index : -1;
}

void gather_one(const ConvTask& task, const PlanePair& planes, int64_t first_y, int64_t first_x,
                float& output) noexcept {
  const Conv2dParams& p = task.params;
  size_t tap = static_cast<size_t>(p.kernel_y) * p.kernel_x;
  for (int64_t ky = 0; ky < p.kernel_y; ++ky) {
    const int64_t y = input_at(first_y + ky * p.dilation_y, p.stride_y, task.in_height);
    for (int64_t kx = 0; kx < p.kernel_x; ++kx) {
      --tap;
      const int64_t x = input_at(first_x + kx * p.dilation_x, p.stride_x, task.in_width);
      if (y < 0 || x < 0) continue;
      output += planes.filter[tap] * planes.input[y * task.in_width + x];
    }
  }
}

}  // namespace

void direct_portable(const ConvTask& task) noexcept {
  for_each_plane_pair(task, false, [&task](const PlanePair& planes) { add_plane(task, planes); });
}

void transposed_portable(const ConvTask& task) noexcept {
  const auto top = static_cast<int32_t>(task.params.padding_t);
  const auto left = static_cast<int32_t>(task.params.padding_l);
  for_each_plane_pair(task, true, [&](const PlanePair& planes) {
    float* output = planes.output;
    for (int64_t row = 0; row < task.out_height; ++row) {
      for (int64_t column = 0; column < task.out_width; ++column) {
        gather_one(task, planes, row - top, column - left, *output++);
      }
    }
  });
}

}  // namespace marlo::kernel::conv
