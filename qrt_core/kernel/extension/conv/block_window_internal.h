#pragma once

#include "qrt_core/kernel/conv/steps/conv_params.h"
#include "qrt_core/kernel/extension/conv/epilogue_internal.h"
#include "qrt_core/kernel/vectors_internal.h"

// Convolutions in C8HW8 that read the picture itself, with any window, stride and dilation. Each input
// is broadcast and meets vectors of output channels. Internal to the file that includes it.
//
// Sums begin with the bias, stay in registers over all input channels and end in the epilogue. Each
// takes the input's blocks in order, within them the window's rows, columns and channels. What lies
// outside of the picture is a zero above or below, which is left out, or beside, which is read.

namespace marlo::kernel::conv {
namespace {

inline constexpr size_t kChannelBlock = 8;
alignas(32) inline constexpr float kNoPixel[kChannelBlock] = {};

/// How a vector of output channels stands in blocks of 8.
template <typename Vector>
[[gnu::always_inline]] inline void store_channels(float* to, size_t plane,
                                                  typename Vector::Register x) noexcept {
  if constexpr (Vector::kLanes == kChannelBlock) {
    Vector::store(to, x);
  } else {
    Vector::store_halves(to, to + plane, x);
  }
}

/// Stores the sums of neighbouring pixels as a kernel ends.
/// @param output of the first block of channels, `plane` floats before that of the next
template <typename Vector, size_t kVectors, size_t kPixels>
[[gnu::always_inline]] inline void store_tile(const Ending& ending,
                                              typename Vector::Register (&sums)[kVectors][kPixels],
                                              float* output, size_t plane) noexcept {
  constexpr size_t kBlocks = Vector::kLanes / kChannelBlock;
  if (ending.clamps()) {
    unrolled<kVectors>(QRT_UNROLLED(v) {
      unrolled<kPixels>(QRT_UNROLLED(pixel) {
        sums[v][pixel] = ending.template clamped<Vector>(sums[v][pixel]);
      });
    });
  }
  unrolled<kVectors>(QRT_UNROLLED(v) {
    float* to = output + v * kBlocks * plane;
    unrolled<kPixels>(QRT_UNROLLED(pixel) {
      store_channels<Vector>(to + pixel * kChannelBlock, plane, sums[v][pixel]);
    });
  });
  unrolled<kVectors * kBlocks>(
      QRT_UNROLLED(block) { ending.stored(output + block * plane, kPixels * kChannelBlock); });
}

/// A part of the output: rows, and columns of each.
struct WindowBand {
  size_t row, end_row;
  size_t column, end_column;
};

/// One group of a convolution, with distances in floats.
struct WindowPlane {
  explicit WindowPlane(const ConvTask& task) noexcept
      : params(task.params),
        in_blocks(task.in_blocks),
        height(task.in_height),
        width(task.in_width),
        out_height(task.out_height),
        out_width(task.out_width),
        ending(task.epilogue) {
    const Conv2dParams& p = params;
    const bool is_point = p.kernel_x == 1 && p.kernel_y == 1 && p.stride_x == 1 && p.stride_y == 1;
    const bool has_padding = (p.padding_l | p.padding_r | p.padding_t | p.padding_b) != 0;
    if (is_point && !has_padding) {
      // Neighbours don't matter: the plane is one row.
      width *= height;
      height = 1;
      out_width *= out_height;
      out_height = 1;
    }
    in_plane = height * width * kChannelBlock;
    out_plane = out_height * out_width * kChannelBlock;
  }

  const Conv2dParams& params;
  size_t in_blocks;
  size_t height, width;
  size_t out_height, out_width;
  size_t in_plane = 0, out_plane = 0;
  Ending ending;

  size_t taps() const noexcept { return size_t{params.kernel_y} * params.kernel_x; }
};

/// Computes `kVectors` vectors of output channels, whose weights are [in block][row][column][8][vectors].
template <typename Vector, size_t kVectors>
class WindowChannels {
  using Register = typename Vector::Register;
  static constexpr size_t kBlock = kChannelBlock;
  static constexpr size_t kWidth = kVectors * Vector::kLanes;
  static constexpr size_t kTap = kBlock * kWidth;  // weights of one place of the window
  // Sums that registers hold beside the weights of one input channel and the input itself.
  static constexpr size_t kSums = Vector::kLanes == 16 ? 28 : 12;
  static constexpr size_t kMostPixels = kSums / kVectors < 14 ? kSums / kVectors : 14;

 public:
  WindowChannels(const WindowPlane& plane, const float* input, const float* weight,
                 const float* bias, float* output) noexcept
      : plane_(plane), input_(input), weight_(weight), bias_(bias), output_(output) {}

  void run(const WindowBand& band) const noexcept {
    const Conv2dParams& p = plane_.params;
    const bool is_narrow = plane_.out_width <= kMostPixels / 2;
    if (p.stride_x > 2 || (is_narrow && band.end_row - band.row > 1)) {
      walk(band.row * plane_.out_width + band.column,
           (band.end_row - 1) * plane_.out_width + band.end_column);
      return;
    }
    for (size_t row = band.row; row < band.end_row; ++row) {
      for_even_parts(band.end_column - band.column, kMostPixels, [&](size_t begin, size_t count) {
        with_static<kMostPixels>(
            count, [&](auto kPixels) { run_tile<kPixels.value>(row, band.column + begin); });
      });
    }
  }

 private:
  static constexpr int64_t signed_of(size_t number) { return static_cast<int64_t>(number); }

  // Pixels in memory order over the ends of rows.
  void walk(size_t first, size_t end) const noexcept {
    for_even_parts(end - first, kMostPixels, [&](size_t begin, size_t count) {
      with_static<kMostPixels>(count,
                               [&](auto kPixels) { run_anywhere<kPixels.value>(first + begin); });
    });
  }

  // A tile of a row. Its first and its last pixel may reach outside of the picture.
  template <size_t kPixels>
  void run_tile(size_t row, size_t column) const noexcept {
    const Conv2dParams& p = plane_.params;
    const int64_t second = signed_of((column + 1) * p.stride_x) - signed_of(p.padding_l);
    const int64_t last = second + signed_of((kPixels - 1) * p.stride_x) -
                         2 * signed_of(p.stride_x) +
                         signed_of(size_t{p.kernel_x - 1} * p.dilation_x);
    const bool is_inside = kPixels < 3 || (second >= 0 && last < signed_of(plane_.width));
    if (!is_inside) return run_anywhere<kPixels>(row * plane_.out_width + column);
    if (p.stride_x == 1) return run_row<kPixels, 1>(row, column);
    run_row<kPixels, 2>(row, column);
  }

  template <size_t kPixels>
  [[gnu::always_inline]] void start(Register (&sums)[kVectors][kPixels]) const noexcept {
    unrolled<kVectors>(QRT_UNROLLED(v) {
      const Register begin =
          bias_ == nullptr ? Vector::zero() : Vector::load(bias_ + v * Vector::kLanes);
      unrolled<kPixels>(QRT_UNROLLED(pixel) { sums[v][pixel] = begin; });
    });
  }

  // Adds the products of one place of the window; `at(pixel)` is where its channels begin.
  template <size_t kPixels, typename At>
  [[gnu::always_inline]] static void add_tap(const float* weight, At at,
                                             Register (&sums)[kVectors][kPixels]) noexcept {
    unrolled<kBlock>(QRT_UNROLLED(lane) {
      Register weights[kVectors];
      unrolled<kVectors>(QRT_UNROLLED(v) {
        const float* from = weight + lane * kWidth + v * Vector::kLanes;
        if (v * Vector::kLanes % 16 == 0) {  // once a line
          _mm_prefetch(reinterpret_cast<const char*>(from + kTap), _MM_HINT_T0);
        }
        weights[v] = Vector::load(from);
      });
      unrolled<kPixels>(QRT_UNROLLED(pixel) {
        const Register x = Vector::splat(at(pixel) + lane);
        unrolled<kVectors>(QRT_UNROLLED(v) {
          sums[v][pixel] = Vector::plus_product(sums[v][pixel], x, weights[v]);
        });
      });
    });
  }

  // The rows of a window that lie in the picture.
  struct Rows {
    size_t begin, end;
  };

  Rows rows_of(int64_t top) const noexcept {
    const Conv2dParams& p = plane_.params;
    Rows rows = {0, p.kernel_y};
    const auto at = [&](size_t row) { return top + signed_of(row * p.dilation_y); };
    while (rows.begin < rows.end && at(rows.begin) < 0) ++rows.begin;
    while (rows.begin < rows.end && at(rows.end - 1) >= signed_of(plane_.height)) --rows.end;
    return rows;
  }

  template <size_t kPixels, size_t kStride>
  [[gnu::noinline]] void run_row(size_t row, size_t column) const noexcept {
    constexpr int64_t kSigned = kBlock;
    const Conv2dParams& p = plane_.params;
    const int64_t top = signed_of(row * p.stride_y) - signed_of(p.padding_t);
    const int64_t left = signed_of(column * kStride) - signed_of(p.padding_l);
    const int64_t width = signed_of(plane_.width);
    const Rows rows = rows_of(top);
    Register sums[kVectors][kPixels];
    start(sums);
    const float* weight = weight_;
    const float* input = input_;
    for (size_t k = 0; k < plane_.in_blocks; ++k) {
      for (size_t y = rows.begin; y < rows.end; ++y) {
        const float* line = input + (top + signed_of(y * p.dilation_y)) * width * kSigned;
        const float* weights = weight + y * p.kernel_x * kTap;
        int64_t first = left;
        for (size_t x = 0; x < p.kernel_x; ++x) {
          const int64_t last = first + signed_of((kPixels - 1) * kStride);
          const float* base = line + first * kSigned;
          const float* first_pixel = first >= 0 && first < width ? base : kNoPixel;
          const float* last_pixel = last >= 0 && last < width ? line + last * kSigned : kNoPixel;
          add_tap(
              weights,
              [&](size_t pixel) __attribute__((always_inline)) {
                if (pixel == 0) return first_pixel;
                return pixel == kPixels - 1 ? last_pixel : base + pixel * kStride * kBlock;
              },
              sums);
          weights += kTap;
          first += p.dilation_x;
        }
      }
      weight += plane_.taps() * kTap;
      input += plane_.in_plane;
    }
    store_tile<Vector>(plane_.ending, sums, output_ + (row * plane_.out_width + column) * kBlock,
                       plane_.out_plane);
  }

  // A tile of which any pixel may reach outside, and whose pixels may stand in several rows.
  template <size_t kPixels>
  [[gnu::noinline]] void run_anywhere(size_t pixel) const noexcept {
    const Conv2dParams& p = plane_.params;
    int64_t top[kPixels], left[kPixels];
    for (size_t i = 0; i < kPixels; ++i) {
      top[i] = signed_of((pixel + i) / plane_.out_width * p.stride_y) - signed_of(p.padding_t);
      left[i] = signed_of((pixel + i) % plane_.out_width * p.stride_x) - signed_of(p.padding_l);
    }
    Register sums[kVectors][kPixels];
    start(sums);
    const float* weight = weight_;
    const float* input = input_;
    for (size_t k = 0; k < plane_.in_blocks; ++k) {
      for (size_t y = 0; y < p.kernel_y; ++y) {
        for (size_t x = 0; x < p.kernel_x; ++x) {
          const float* at[kPixels];
          for (size_t i = 0; i < kPixels; ++i) {
            const auto line = static_cast<size_t>(top[i] + signed_of(y * p.dilation_y));
            const auto place = static_cast<size_t>(left[i] + signed_of(x * p.dilation_x));
            const bool is_inside = line < plane_.height && place < plane_.width;
            at[i] = is_inside ? input + (line * plane_.width + place) * kBlock : kNoPixel;
          }
          add_tap(
              weight, [&](size_t i) __attribute__((always_inline)) { return at[i]; }, sums);
          weight += kTap;
        }
      }
      input += plane_.in_plane;
    }
    store_tile<Vector>(plane_.ending, sums, output_ + pixel * kBlock, plane_.out_plane);
  }

  const WindowPlane& plane_;
  const float* input_;
  const float* weight_;
  const float* bias_;
  float* output_;
};

/// Calls `run(band)` for the parts of a plane whose inputs stay in L2 while all output channels
/// pass over them.
template <typename Run>
void for_each_band(const WindowPlane& plane, size_t resident, Run run) noexcept {
  const size_t channels = plane.in_blocks * kChannelBlock;
  if (plane.out_height == 1) {
    const size_t most = resident / (channels * plane.params.stride_x) / 28 * 28;
    for_each_part(plane.out_width, most < 28 ? 28 : most, [&](size_t first, size_t count) {
      run(WindowBand{0, 1, first, first + count});
    });
    return;
  }
  const size_t most = resident / (channels * plane.width * plane.params.stride_y);
  for_each_part(plane.out_height, most == 0 ? 1 : most, [&](size_t first, size_t count) {
    run(WindowBand{first, first + count, 0, plane.out_width});
  });
}

/// Calls `group(input, weight, bias, output)` with where each group of the convolution begins.
template <typename Group>
void for_each_group(const ConvTask& task, size_t taps, Group group) noexcept {
  const Conv2dParams& p = task.params;
  const size_t in_plane = size_t{task.in_height} * task.in_width * kChannelBlock;
  const size_t out_plane = size_t{task.out_height} * task.out_width * kChannelBlock;
  const size_t ins = task.in_blocks * kChannelBlock;
  const size_t outs = task.out_blocks * kChannelBlock;
  for (size_t g = 0; g < p.groups; ++g) {
    group(task.input + g * task.in_blocks * in_plane, task.weight + g * outs * ins * taps,
          task.bias == nullptr ? nullptr : task.bias + g * outs,
          task.output + g * task.out_blocks * out_plane);
  }
}

/// Where the output channels of one width begin.
struct ChannelRange {
  const float* input;
  const float* weight;
  const float* bias;
  float* output;
  size_t blocks;  ///< that are left

  template <typename Vector, size_t kVectors>
  [[gnu::always_inline]] void take(const WindowPlane& plane, const WindowBand& band) noexcept {
    constexpr size_t kBlocks = kVectors * Vector::kLanes / kChannelBlock;
    while (blocks >= kBlocks) {
      WindowChannels<Vector, kVectors>(plane, input, weight, bias, output).run(band);
      weight += kBlocks * kChannelBlock * plane.in_blocks * kChannelBlock * plane.taps();
      if (bias != nullptr) bias += kBlocks * kChannelBlock;
      output += kBlocks * plane.out_plane;
      blocks -= kBlocks;
    }
  }
};

/// A whole convolution. `take(range, plane, band)` takes all output channels, in the widths by which
/// their weights are packed. @param resident floats of inputs that L2 holds beside weights
template <typename Take>
void run_window(const ConvTask& task, size_t resident, Take take) noexcept {
  const WindowPlane plane(task);
  for_each_group(task, plane.taps(),
                 [&](const float* input, const float* weight, const float* bias, float* output) {
                   for_each_band(plane, resident, [&](const WindowBand& band) {
                     take(ChannelRange{input, weight, bias, output, task.out_blocks}, plane, band);
                   });
                 });
}

}  // namespace
}  // namespace marlo::kernel::conv
