#pragma once

#include "qrt_core/kernel/basic/pooling_params.h"
#include "qrt_core/kernel/vectors_internal.h"

// Pooling of planes whose pixels are one vector each, for any vector and any window that is known
// when it is compiled.

namespace marlo::kernel::pooling {
namespace {

/// Sums, divided by a constant. A power of two divides exactly as a factor.
template <typename Vector>
struct Average {
  using Register = typename Vector::Register;

  static Register combine(Register a, Register b) { return Vector::plus(a, b); }

  template <size_t area>
  static Register finish(Register sum) {
    if constexpr ((area & (area - 1)) == 0) return Vector::times(sum, Vector::splat(1.0f / area));
    return Vector::over(sum, Vector::splat(static_cast<float>(area)));
  }
};

template <typename Vector>
struct Maximum {
  using Register = typename Vector::Register;

  static Register combine(Register a, Register b) { return Vector::maximum(a, b); }

  template <size_t area>
  static Register finish(Register maximum) {
    return maximum;
  }
};

/// Windows of `kernel` rows and columns. A window is combined column by column; neighbours share
/// the columns that they have in common, which takes far fewer loads than all pixels of each.
template <typename Vector, template <typename> class Operation, size_t kernel, size_t stride>
class BlockedPooling {
  using Register = typename Vector::Register;
  using Op = Operation<Vector>;
  static constexpr size_t kLanes = Vector::kLanes;

 public:
  explicit BlockedPooling(const PoolingTask& task) noexcept
      : task_(task), row_step_(task.width * kLanes) {
    if (task.runs_on) {
      last_whole_ = task.out_width;
      return;
    }
    const size_t reach = task.left + task.width;
    first_whole_ = smaller_of((task.left + stride - 1) / stride, task.out_width);
    last_whole_ = reach < kernel ? 0 : smaller_of((reach - kernel) / stride + 1, task.out_width);
    if (last_whole_ < first_whole_) last_whole_ = first_whole_;
  }

  void run() const noexcept {
    float* output = task_.output;
    for (size_t plane = 0; plane < task_.planes; ++plane) {
      const float* input = task_.input + plane * task_.height * row_step_;
      for (size_t oh = 0; oh < task_.out_height; ++oh) {
        output_row(input, oh, output);
        output += task_.out_width * kLanes;
      }
    }
  }

 private:
  /// The rows of a window that lie in the picture.
  struct Rows {
    const float* first;
    size_t count;
  };

  Rows rows_of(const float* plane, size_t oh) const noexcept {
    if (task_.runs_on) return {plane + oh * stride * row_step_, kernel};
    const size_t begin = oh * stride > task_.top ? oh * stride - task_.top : 0;
    const size_t end_above = oh * stride + kernel;
    const size_t end = end_above > task_.top ? smaller_of(end_above - task_.top, task_.height) : 0;
    if (end <= begin) return {plane, 0};
    return {plane + begin * row_step_, end - begin};
  }

  void output_row(const float* plane, size_t oh, float* output) const noexcept {
    const Rows rows = rows_of(plane, oh);
    for (size_t ow = 0; ow < first_whole_; ++ow) clipped_window(rows, ow, output);
    if (first_whole_ < last_whole_) {
      if (rows.count == kernel) {
        whole_windows(rows.first, output, [this](const float* p) { return column(p); });
      } else {
        whole_windows(rows.first, output,
                      [this, &rows](const float* p) { return short_column(p, rows.count); });
      }
    }
    for (size_t ow = last_whole_; ow < task_.out_width; ++ow) clipped_window(rows, ow, output);
  }

  // The windows of a row that have all their columns.
  template <typename Column>
  void whole_windows(const float* rows, float* output, Column column_at) const noexcept {
    const float* input = rows + (first_whole_ * stride - task_.left) * kLanes;
    Register columns[kernel];
    for (size_t c = 0; c + stride < kernel; ++c) columns[c] = column_at(input + c * kLanes);
    constexpr size_t kShared = kernel > stride ? kernel - stride : 0;
    for (size_t ow = first_whole_; ow < last_whole_; ++ow) {
      for (size_t c = kShared; c < kernel; ++c) columns[c] = column_at(input + c * kLanes);
      Register window = columns[0];
      for (size_t c = 1; c < kernel; ++c) window = Op::combine(window, columns[c]);
      Vector::store(output + ow * kLanes, Op::template finish<kernel * kernel>(window));
      for (size_t c = 0; c + stride < kernel; ++c) columns[c] = columns[c + stride];
      input += stride * kLanes;
    }
  }

  // A window that reaches into the margin to the left or right, and perhaps above or below.
  void clipped_window(const Rows& rows, size_t ow, float* output) const noexcept {
    const size_t begin = ow * stride > task_.left ? ow * stride - task_.left : 0;
    const size_t end_right = ow * stride + kernel;
    const size_t end = end_right > task_.left ? smaller_of(end_right - task_.left, task_.width) : 0;
    Register window = Vector::zero();
    for (size_t c = begin; c < end; ++c) {
      window = Op::combine(window, short_column(rows.first + c * kLanes, rows.count));
    }
    Vector::store(output + ow * kLanes, Op::template finish<kernel * kernel>(window));
  }

  Register column(const float* pixel) const noexcept {
    Register all = Vector::load(pixel);
    for (size_t r = 1; r < kernel; ++r) {
      all = Op::combine(all, Vector::load(pixel + r * row_step_));
    }
    return all;
  }

  // A column of `count` pixels and the zero of the margin.
  Register short_column(const float* pixel, size_t count) const noexcept {
    Register all = Vector::zero();
    for (size_t r = 0; r < count; ++r) {
      all = Op::combine(all, Vector::load(pixel + r * row_step_));
    }
    return all;
  }

  const PoolingTask& task_;
  size_t row_step_;
  // Outputs of a row from `first_whole_` to `last_whole_` have all their columns in the picture.
  size_t first_whole_ = 0;
  size_t last_whole_ = 0;
};

}  // namespace
}  // namespace marlo::kernel::pooling
