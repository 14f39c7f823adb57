#include "qrt_core/kernel/matrix/full_connection_internal.h"

namespace marlo::kernel::matrix {

void dot_sse(const FullConnectionTask& task) noexcept {
  for_row_groups<2>(task, [&task](size_t o, auto rows) {
    DotRows<SseVector, rows.value, 4> dots(task.input, task.weight + o * task.in_features,
                                           task.in_features);
    dots.take_whole_blocks();
    dots.template take_if_left<2>();
    dots.template take_if_left<1>();
    for (size_t r = 0; r < rows.value; ++r) {
      task.output[o + r] += sum_of_lanes<SseVector>(dots.sum(r)) + dots.rest(r);
    }
  });
}

void dot_batch_sse(const FullConnectionTask& task) noexcept {
  for_row_groups<4>(task, [&task](size_t o, auto rows) {
    DotRows<SseVector, rows.value, 1> dots(task.input, task.weight + o * task.in_features,
                                           task.in_features);
    dots.take_whole_blocks();
    for (size_t r = 0; r < rows.value; ++r) {
      const float sum = sum_of_lanes<SseVector>(dots.sum(r)) + dots.rest(r);
      task.output[o + r] = task.bias == nullptr ? sum : sum + task.bias[o + r];
    }
  });
}

void blocks_of_4_sse(const FullConnectionTask& task) noexcept {
  BlockRows<SseVector, Order::in_pairs>(task).run();
}

}  // namespace marlo::kernel::matrix
