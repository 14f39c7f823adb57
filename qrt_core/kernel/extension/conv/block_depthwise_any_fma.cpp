#ifndef __FMA__
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/extension/conv/block_depthwise_cores.h"
#include "qrt_core/kernel/extension/conv/epilogue_internal.h"

namespace marlo::kernel::conv {
namespace {

using V = FusedVector;
constexpr size_t kBlock = V::kLanes;
constexpr size_t kMost = 8;  // pixels of a tile, whose sums hide each other's latency

constexpr size_t kMostAtEdge = 4;  // whose places are looked at one by one

// One axis of the windows. Taps outside of the picture are left out.
struct Taps {
  size_t inputs, outputs, kernel, stride, dilation, padding;

  // The input under the first tap, below zero in the margin.
  int64_t first_of(size_t output) const noexcept {
    return static_cast<int64_t>(output * stride) - static_cast<int64_t>(padding);
  }
  int64_t at(int64_t first, size_t tap) const noexcept {
    return first + static_cast<int64_t>(tap * dilation);
  }
  bool is_inside(int64_t place) const noexcept { return static_cast<uint64_t>(place) < inputs; }

  // Outputs of whose windows all taps lie inside.
  size_t inner_begin() const noexcept {
    return smaller_of((padding + stride - 1) / stride, outputs);
  }
  size_t inner_end() const noexcept {
    const size_t reach = (kernel - 1) * dilation;
    const size_t behind = padding + inputs;
    return reach >= behind ? 0 : smaller_of((behind - reach - 1) / stride + 1, outputs);
  }
};

class AnyDepthwise {
 public:
  explicit AnyDepthwise(const ConvTask& task) noexcept
      : task_(task),
        y_{task.in_height,       task.out_height,        task.params.kernel_y,
           task.params.stride_y, task.params.dilation_y, task.params.padding_t},
        x_{task.in_width,        task.out_width,         task.params.kernel_x,
           task.params.stride_x, task.params.dilation_x, task.params.padding_l},
        ending_(task.epilogue) {}

  void run() noexcept {
    const Conv2dParams& p = task_.params;
    if (size_t{p.in_channels_per_group} * p.out_channels_per_group == 0) return;
    const size_t inner_begin = x_.inner_begin();
    const size_t inner_end = x_.inner_end() > inner_begin ? x_.inner_end() : inner_begin;
    weight_ = task_.weight;
    bias_ = task_.bias;
    input_ = task_.input;
    float* output = task_.output;
    for (size_t block = 0; block < p.groups / kBlock; ++block) {
      for (size_t row = 0; row < y_.outputs; ++row, output += x_.outputs * kBlock) {
        top_ = y_.first_of(row);
        run_edge(0, inner_begin, output);
        for_even_parts(inner_end - inner_begin, kMost, [&](size_t begin, size_t count) {
          const size_t first = inner_begin + begin;
          with_static<kMost>(count, [&](auto kPixels) {
            run_inside<kPixels.value>(first, output + first * kBlock);
          });
        });
        run_edge(inner_end, x_.outputs, output);
        ending_.stored(output, x_.outputs * kBlock);
      }
      weight_ += y_.kernel * x_.kernel * kBlock;
      if (bias_ != nullptr) bias_ += kBlock;
      input_ += y_.inputs * x_.inputs * kBlock;
    }
  }

 private:
  V::Register begin() const noexcept { return bias_ == nullptr ? V::zero() : V::load(bias_); }

  // Calls `take(line, weights)` for the rows of a window that lie in the picture.
  template <typename Take>
  [[gnu::always_inline]] void for_each_line(Take take) const noexcept {
    for (size_t i = 0; i < y_.kernel; ++i) {
      const int64_t line = y_.at(top_, i);
      if (!y_.is_inside(line)) continue;
      take(input_ + static_cast<size_t>(line) * x_.inputs * kBlock,
           weight_ + i * x_.kernel * kBlock);
    }
  }

  template <size_t kPixels>
  [[gnu::noinline]] void run_inside(size_t column, float* output) const noexcept {
    V::Register sums[kPixels];
    unrolled<kPixels>(QRT_UNROLLED(i) { sums[i] = begin(); });
    const size_t first = column * x_.stride - x_.padding;
    const size_t step = x_.stride * kBlock;
    for_each_line([&](const float* line, const float* weights) __attribute__((always_inline)) {
      const float* pixel = line + first * kBlock;
      for (size_t j = 0; j < x_.kernel; ++j, pixel += x_.dilation * kBlock) {
        const V::Register weight = V::load(weights + j * kBlock);
        unrolled<kPixels>(QRT_UNROLLED(i) {
          sums[i] = V::plus_product(sums[i], V::load(pixel + i * step), weight);
        });
      }
    });
    unrolled<kPixels>(
        QRT_UNROLLED(i) { V::store(output + i * kBlock, ending_.template ended<V>(sums[i])); });
  }

  // Pixels of which any may reach outside, side by side: one by itself waits for each of its sums.
  template <size_t kPixels>
  [[gnu::noinline]] void run_at_edge(size_t column, float* output) const noexcept {
    int64_t left[kPixels];
    V::Register sums[kPixels];
    unrolled<kPixels>(QRT_UNROLLED(i) {
      left[i] = x_.first_of(column + i);
      sums[i] = begin();
    });
    for_each_line([&](const float* line, const float* weights) __attribute__((always_inline)) {
      for (size_t j = 0; j < x_.kernel; ++j) {
        const V::Register weight = V::load(weights + j * kBlock);
        unrolled<kPixels>(QRT_UNROLLED(i) {
          const int64_t place = x_.at(left[i], j);
          if (!x_.is_inside(place)) return;
          const float* const pixel = line + static_cast<size_t>(place) * kBlock;
          sums[i] = V::plus_product(sums[i], V::load(pixel), weight);
        });
      }
    });
    unrolled<kPixels>(
        QRT_UNROLLED(i) { V::store(output + i * kBlock, ending_.template ended<V>(sums[i])); });
  }

  void run_edge(size_t first, size_t end, float* output) const noexcept {
    for_even_parts(end - first, kMostAtEdge, [&](size_t begin, size_t count) {
      with_static<kMostAtEdge>(count, [&](auto kPixels) {
        run_at_edge<kPixels.value>(first + begin, output + (first + begin) * kBlock);
      });
    });
  }

  const ConvTask& task_;
  const Taps y_;
  const Taps x_;
  Ending ending_;
  const float* weight_ = nullptr;
  const float* bias_ = nullptr;
  const float* input_ = nullptr;  // of the block
  int64_t top_ = 0;               // of the windows of the row
};

}  // namespace

void block_depthwise_any_fma(const ConvTask& task) noexcept { AnyDepthwise(task).run(); }

}  // namespace marlo::kernel::conv
