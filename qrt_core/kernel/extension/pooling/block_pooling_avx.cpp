#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include "qrt_core/kernel/extension/pooling/block_pooling_cores.h"
#include "qrt_core/kernel/vectors_internal.h"

namespace marlo::kernel::pooling {
namespace {

using V = AvxVector;

struct Sum {
  static V::Register begin() noexcept { return V::zero(); }
  static V::Register taken(V::Register sum, V::Register x) noexcept { return V::plus(sum, x); }
};

// The second operand where one is a NaN, so that NaNs are dropped.
struct Largest {
  static V::Register begin() noexcept { return V::splat(-0x1.fffffep+127f); }
  static V::Register taken(V::Register largest, V::Register x) noexcept {
    return V::maximum(x, largest);
  }
};

// One axis of the windows. Places count from the first of the margin.
struct Axis {
  size_t inputs, outputs, kernel, stride, dilation, before, last;

  size_t first_of(size_t output) const noexcept { return output * stride; }
  // A window that passes the edge repeats the last place.
  size_t place(size_t first, size_t tap) const noexcept {
    return smaller_of(first + tap * dilation, last);
  }
  // The input at a place: `inputs` or more in the margin.
  size_t input_at(size_t place) const noexcept { return place - before; }
  size_t taps_inside(size_t first) const noexcept {
    size_t taps = 0;
    for (size_t i = 0; i < kernel; ++i) taps += input_at(place(first, i)) < inputs ? 1 : 0;
    return taps;
  }
  // Outputs whose windows lie inside, from `begin` to `end`.
  size_t inner_begin() const noexcept {
    return smaller_of((before + stride - 1) / stride, outputs);
  }
  size_t inner_end() const noexcept {
    const size_t reach = (kernel - 1) * dilation;
    const size_t behind = before + inputs;
    const size_t end = reach >= behind ? 0 : (behind - reach - 1) / stride + 1;
    return smaller_of(end, outputs);
  }
};

template <typename Operation>
class BlockPooling {
  static constexpr size_t kLanes = V::kLanes;
  static constexpr size_t kPixels = 4;  // of a tile: their chains hide each other's latency

 public:
  BlockPooling(const PoolingTask& task, size_t dilation_y, size_t dilation_x) noexcept
      : task_(task),
        y_(axis(task.height, task.out_height, task.params.kernel_y, task.params.stride_y,
                dilation_y, task.params.padding_t, task.params.padding_b)),
        x_(axis(task.width, task.out_width, task.params.kernel_x, task.params.stride_x, dilation_x,
                task.params.padding_l, task.params.padding_r)) {}

  /// @param end makes the result of what was taken of a window, of which so many pixels lie inside
  template <typename End>
  void run(End end) const noexcept {
    const size_t inner_begin = x_.inner_begin();
    const size_t inner_end = x_.inner_end() > inner_begin ? x_.inner_end() : inner_begin;
    float* output = task_.output;
    for (size_t plane = 0; plane < task_.planes; ++plane) {
      const float* const input = task_.input + plane * task_.height * task_.width * kLanes;
      for (size_t row = 0; row < task_.out_height; ++row, output += task_.out_width * kLanes) {
        const size_t lines = y_.taps_inside(y_.first_of(row));
        const auto store = [&](size_t column, V::Register taken, size_t pixels) {
          V::store(output + column * kLanes, end(taken, pixels));
        };
        const auto store_edge = [&](size_t column) {
          store(column, taken_at_edge(input, row, column),
                lines * x_.taps_inside(x_.first_of(column)));
        };
        const size_t pixels = lines * x_.kernel;
        size_t column = 0;
        for (; column < inner_begin; ++column) store_edge(column);
        for (; column + kPixels <= inner_end; column += kPixels) {
          V::Register taken[kPixels];
          take_inside(input, row, column, taken);
          unrolled<kPixels>(QRT_UNROLLED(i) { store(column + i, taken[i], pixels); });
        }
        for (; column < inner_end; ++column) {
          V::Register taken[1];
          take_inside(input, row, column, taken);
          store(column, taken[0], pixels);
        }
        for (; column < task_.out_width; ++column) store_edge(column);
      }
    }
  }

 private:
  static Axis axis(size_t inputs, size_t outputs, uint32_t kernel, uint32_t stride, size_t dilation,
                   int32_t before, int32_t after) noexcept {
    const auto front = static_cast<size_t>(before);
    return {inputs,
            outputs,
            kernel,
            stride,
            dilation,
            front,
            front + inputs + static_cast<size_t>(after) - 1};
  }

  // Windows whose columns lie inside.
  template <size_t kCount>
  [[gnu::always_inline]] void take_inside(const float* input, size_t row, size_t column,
                                          V::Register (&taken)[kCount]) const noexcept {
    unrolled<kCount>(QRT_UNROLLED(i) { taken[i] = Operation::begin(); });
    const size_t first = x_.input_at(x_.first_of(column));
    for (size_t i = 0; i < y_.kernel; ++i) {
      const size_t line = y_.input_at(y_.place(y_.first_of(row), i));
      if (line >= y_.inputs) continue;
      const float* pixel = input + (line * x_.inputs + first) * kLanes;
      for (size_t j = 0; j < x_.kernel; ++j, pixel += x_.dilation * kLanes) {
        unrolled<kCount>(QRT_UNROLLED(k) {
          taken[k] = Operation::taken(taken[k], V::load(pixel + k * x_.stride * kLanes));
        });
      }
    }
  }

  V::Register taken_at_edge(const float* input, size_t row, size_t column) const noexcept {
    V::Register taken = Operation::begin();
    for (size_t i = 0; i < y_.kernel; ++i) {
      const size_t line = y_.input_at(y_.place(y_.first_of(row), i));
      if (line >= y_.inputs) continue;
      for (size_t j = 0; j < x_.kernel; ++j) {
        const size_t at = x_.input_at(x_.place(x_.first_of(column), j));
        if (at >= x_.inputs) continue;
        taken = Operation::taken(taken, V::load(input + (line * x_.inputs + at) * kLanes));
      }
    }
    return taken;
  }

  const PoolingTask& task_;
  const Axis y_;
  const Axis x_;
};

}  // namespace

void average_c8_avx(const PoolingTask& task) noexcept {
  const PoolingParams& p = task.params;
  const BlockPooling<Sum> pooling(task, 1, 1);
  const size_t area = size_t{p.kernel_y} * p.kernel_x;
  // A float beyond 2^24 isn't changed by a pixel less.
  constexpr size_t kMostCounted = size_t{1} << 24;
  const bool counts_all = p.count_include_pad || area > kMostCounted;
  pooling.run([=](V::Register sum, size_t pixels) {
    return V::over(sum, V::splat(static_cast<float>(counts_all ? area : pixels)));
  });
}

void maximum_c8_avx(const PoolingTask& task) noexcept {
  const BlockPooling<Largest> pooling(task, task.params.dilation_y, task.params.dilation_x);
  pooling.run([](V::Register largest, size_t) { return largest; });
}

}  // namespace marlo::kernel::pooling
