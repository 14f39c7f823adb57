#include "qrt_core/kernel/basic/pooling_cores.h"

namespace marlo::kernel::pooling {
namespace {

constexpr float kLowestFloat = -0x1.fffffep+127f;

// Calls `window(plane, row, column)` for each output in memory order and stores its result, with
// the first row and column of the window.
template <typename Window>
void for_each_window(const PoolingTask& task, Window window) noexcept {
  float* output = task.output;
  for (size_t plane = 0; plane < task.planes; ++plane) {
    const float* input = task.input + plane * task.height * task.width;
    for (size_t oh = 0; oh < task.out_height; ++oh) {
      for (size_t ow = 0; ow < task.out_width; ++ow) {
        *output++ = window(input, oh * task.params.stride_y, ow * task.params.stride_x);
      }
    }
  }
}

// Positions of a window that lie outside of [begin, end).
size_t outside(size_t first, size_t count, size_t begin, size_t end) {
  size_t found = 0;
  for (size_t i = first; i < first + count; ++i) found += i < begin || i >= end ? 1 : 0;
  return found;
}

// The window's area, less one for each of its pixels in the margin.
float divisor_of(const PoolingTask& task, size_t row, size_t column) {
  const PoolingParams& p = task.params;
  auto divisor = static_cast<float>(p.kernel_x * p.kernel_y);
  if (p.count_include_pad) return divisor;
  const size_t rows = outside(row, p.kernel_y, static_cast<size_t>(p.padding_t),
                              task.height - static_cast<size_t>(p.padding_b));
  const size_t columns = outside(column, p.kernel_x, static_cast<size_t>(p.padding_l),
                                 task.width - static_cast<size_t>(p.padding_r));
  // One at a time: an area above 2^24 is a float that a single 1 doesn't change.
  const size_t in_margin = rows * p.kernel_x + (p.kernel_y - rows) * columns;
  for (size_t i = 0; i < in_margin; ++i) divisor -= 1.0f;
  return divisor;
}

size_t at_most(size_t index, size_t last) { return index < last ? index : last; }

}  // namespace

void average_portable(const PoolingTask& task) noexcept {
  for_each_window(task, [&task](const float* plane, size_t row, size_t column) {
    float sum = 0.0f;
    for (size_t i = 0; i < task.params.kernel_y; ++i) {
      const float* pixels = plane + (row + i) * task.width + column;
      for (size_t j = 0; j < task.params.kernel_x; ++j) sum += pixels[j];
    }
    return sum / divisor_of(task, row, column);
  });
}

void maximum_portable(const PoolingTask& task) noexcept {
  for_each_window(task, [&task](const float* plane, size_t row, size_t column) {
    const PoolingParams& p = task.params;
    float maximum = kLowestFloat;
    for (size_t i = 0; i < p.kernel_y; ++i) {
      const float* pixels = plane + at_most(row + i * p.dilation_y, task.height - 1) * task.width;
      for (size_t j = 0; j < p.kernel_x; ++j) {
        const float value = pixels[at_most(column + j * p.dilation_x, task.width - 1)];
        maximum = value > maximum ? value : maximum;
      }
    }
    return maximum;
  });
}

}  // namespace marlo::kernel::pooling
