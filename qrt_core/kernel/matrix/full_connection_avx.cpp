#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include "qrt_core/kernel/matrix/full_connection_internal.h"

namespace marlo::kernel::matrix {

void dot_m1_avx(const FullConnectionTask& task) noexcept {
  for_row_groups<2>(task, [&task](size_t o, auto rows) {
    DotRows<AvxVector, rows.value, 4> dots(task.input, task.weight + o * task.in_features,
                                           task.in_features);
    dots.take_whole_blocks();
    dots.template take_if_left<3>();
    dots.template take_if_left<2>();
    dots.template take_if_left<1>();
    for (size_t r = 0; r < rows.value; ++r) {
      task.output[o + r] += sum_of_lanes<AvxVector>(dots.sum(r)) + dots.rest(r);
    }
  });
}

void dot_m3_avx(const FullConnectionTask& task) noexcept {
  for_row_groups<4>(task, [&task](size_t o, auto rows) {
    DotRows<AvxVector, rows.value, 1> dots(task.input, task.weight + o * task.in_features,
                                           task.in_features);
    dots.take_whole_blocks();
    for (size_t r = 0; r < rows.value; ++r) {
      float sum = sum_of_lanes<AvxVector>(dots.sum(r));
      size_t i = dots.done();
      for (; i + 4 <= task.in_features; i += 4) {
        sum += ((dots.product(r, i) + dots.product(r, i + 1)) + dots.product(r, i + 2)) +
               dots.product(r, i + 3);
      }
      for (; i < task.in_features; ++i) sum += dots.product(r, i);
      task.output[o + r] += sum;
    }
  });
}

void blocks_of_8_avx(const FullConnectionTask& task) noexcept {
  BlockRows<AvxVector, Order::in_pairs>(task).run();
}

void blocks_in_order_avx(const FullConnectionTask& task) noexcept {
  BlockRows<AvxVector, Order::in_turn>(task).run();
}

}  // namespace marlo::kernel::matrix
