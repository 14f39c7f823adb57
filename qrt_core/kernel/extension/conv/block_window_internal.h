#pragma once

#include "qrt_core/kernel/extension/conv/pixel_sums_internal.h"
#include "qrt_core/kernel/extension/conv/point_channels_internal.h"
#include "qrt_core/kernel/extension/conv/window_axis_internal.h"
#include "qrt_core/kernel/extension/conv/window_plane_internal.h"

// Convolutions in C8HW8 that read the picture itself, with any window, stride and dilation. Each input
// is broadcast and meets vectors of output channels. Internal to the file that includes it.
//
// Sums begin with the bias, stay in registers over all input channels and end in the epilogue. Each
// takes the input's blocks in order, within them the window's rows, columns and channels. What lies
// outside of the picture is a zero: left out where no pixel of a tile has anything else, read elsewhere.
//
// Results may stand apart, with those of other windows between them: that is how a transposed
// convolution is computed, see block_transposed_internal.h.

namespace marlo::kernel::conv {
namespace {

/// Computes `kVectors` vectors of output channels, whose weights are [in block][row][column][8][vectors].
/// @param weight, bias, output of the first of these channels
template <typename Vector, size_t kVectors>
class WindowChannels {
  using Register = typename Vector::Register;
  static constexpr size_t kBlock = kChannelBlock;
  static constexpr size_t kWidth = kVectors * Vector::kLanes;
  static constexpr size_t kTap = kBlock * kWidth;  // weights of one place of the window
  // Sums that registers hold beside the weights of one input channel and the input itself.
#ifdef QRT_SMALL_TILES
  static constexpr size_t kSums = 8;
#else
  static constexpr size_t kSums = Vector::kLanes == 16 ? 28 : 12;
#endif
  static constexpr size_t kMostPixels = kSums / kVectors < 14 ? kSums / kVectors : 14;

 public:
  WindowChannels(const WindowPlane& plane, const float* input, const float* weight,
                 const float* bias, float* output) noexcept
      : plane_(plane), input_(input), weight_(weight), bias_(bias), output_(output) {
    next_ = reinterpret_cast<const char*>(weight + plane.in_blocks * plane.taps() * kTap);
  }

  void run(const WindowBand& band) noexcept {
    const size_t rows = band.end_row - band.row;
    const size_t columns = band.end_column - band.column;
    next_step_ = parts_of(2 * kWidth * sizeof(float), parts_of(rows * columns, kMostPixels));
    // Columns of the narrowest tile.
    const size_t least = columns / parts_of(columns, kMostPixels);
    const size_t tallest = smaller_of(most_rows(least), rows);
    if (plane_.x.stride > 2 || (rows > tallest && tallest * least * kVectors < kHiding)) {
      walk(band.row * plane_.x.outputs + band.column,
           (band.end_row - 1) * plane_.x.outputs + band.end_column);
      return;
    }
    for_even_parts(rows, tallest, [&](size_t row, size_t height) {
      for_even_parts(columns, kMostPixels, [&](size_t column, size_t width) {
        run_tiles({band.row + row, band.row + row + height, band.column + column,
                   band.column + column + width});
      });
    });
  }

 private:
  // Sums of a tile that hide how long a product takes.
  static constexpr size_t kHiding = 8;
  // Pixels at either end of a tile's rows that may reach outside of the picture.
  static constexpr size_t kEdge = 2;

  static constexpr int64_t signed_of(size_t number) { return static_cast<int64_t>(number); }

  // The rows of a tile of so many columns.
  static constexpr size_t most_rows(size_t columns) {
    return columns * 2 > kMostPixels ? 1 : columns * 3 > kMostPixels ? 2 : 3;
  }

  // A band as wide as a tile.
  void run_tiles(const WindowBand& band) noexcept {
    with_static<kMostPixels>(band.end_column - band.column, [&](auto kColumns) {
      constexpr size_t kMostRows = most_rows(kColumns.value);
      for_even_parts(band.end_row - band.row, kMostRows, [&](size_t begin, size_t count) {
        with_static<kMostRows>(count, [&](auto kRows) {
          run_tile<kRows.value, kColumns.value>(band.row + begin, band.column);
        });
      });
    });
  }

  // Pixels in memory order over the ends of rows.
  void walk(size_t first, size_t end) noexcept {
    for_even_parts(end - first, kMostPixels, [&](size_t begin, size_t count) {
      with_static<kMostPixels>(count,
                               [&](auto kPixels) { run_anywhere<kPixels.value>(first + begin); });
    });
  }

  // A tile of rows, one below another.
  template <size_t kRows, size_t kColumns>
  void run_tile(size_t row, size_t column) noexcept {
    if (plane_.x.stride == 1) return run_rows_or_points<kRows, kColumns, 1>(row, column);
    run_rows_or_points<kRows, kColumns, 2>(row, column);
  }

  template <size_t kRows, size_t kColumns, size_t kStride>
  void run_rows_or_points(size_t row, size_t column) noexcept {
    const int64_t inputs = signed_of(plane_.x.inputs);
    const int64_t first = signed_of(column * kStride) - plane_.x.padding;
    const int64_t last = first + signed_of((kColumns - 1) * kStride);
    if (plane_.taps() == 1) {
      const int64_t top = signed_of(row * plane_.y.stride) - plane_.y.padding;
      const int64_t bottom = top + signed_of((kRows - 1) * plane_.y.stride);
      if (first >= 0 && last < inputs && top >= 0 && bottom < signed_of(plane_.y.inputs)) {
        return run_points<kRows, kColumns, kStride>(top * inputs + first, row, column);
      }
    }
    const int64_t reach = signed_of(plane_.x.kernel * plane_.x.dilation - plane_.x.dilation);
    constexpr int64_t kEnd = kEdge * kStride;
    if (kColumns <= 2 * kEdge || (first + kEnd >= 0 && last - kEnd + reach < inputs)) {
      return run_rows<kRows, kColumns, kStride>(row, column);
    }
    for (size_t line = row; line < row + kRows; ++line) {
      run_anywhere<kColumns>(line * plane_.x.outputs + column);
    }
  }

  // Adds the products of one place of the window; `at(pixel)` is where its channels begin. Fetches
  // a part of the weights that the next output channels need: these are read once in a pass, so that
  // they come from beyond L2, which a single tile couldn't hide. All tiles share in it.
  template <size_t kPixels, typename At>
  [[gnu::always_inline]] void add_tap(const float* weight, At at, const char*& next,
                                      Register (&sums)[kVectors][kPixels]) const noexcept {
    // A loop for the compiler to unroll: no array of registers is indexed by the channel, and `unrolled` would have all
    // below inlined eight times before anything is simplified.
#pragma GCC unroll 8
    for (size_t lane = 0; lane < kBlock; ++lane) {
      if (lane % 2 == 0) {
        _mm_prefetch(next, _MM_HINT_T1);
        next += next_step_;
      }
      add_products<Vector>(
          sums,
          [&](size_t v) __attribute__((always_inline)) {
            return weight + lane * kWidth + v * Vector::kLanes;
          },
          [&](size_t pixel) __attribute__((always_inline)) { return at(pixel) + lane; });
    }
  }

  // Stores a tile of rows.
  template <size_t kRows, size_t kPixels>
  [[gnu::always_inline]] void store(Register (&sums)[kVectors][kPixels], size_t row,
                                    size_t column) const noexcept {
    constexpr size_t kColumns = kPixels / kRows;
    float* output = output_ + row * plane_.out_row + column * plane_.out_step;
    const auto at = [&](size_t pixel, size_t step) __attribute__((always_inline)) {
      return output + pixel / kColumns * plane_.out_row + pixel % kColumns * step;
    };
    if (plane_.out_step != kBlock) {
      return store_apart(
          sums, [&](size_t pixel)
                    __attribute__((always_inline)) { return at(pixel, plane_.out_step); });
    }
    store_pixels<Vector>(
        plane_.ending,
        sums, [&](size_t pixel) __attribute__((always_inline)) { return at(pixel, kBlock); },
        plane_.out_plane);
    if (!plane_.ending.acts_on_stored()) return;
    for (size_t block = 0; block < kWidth / kBlock; ++block) {
      for (size_t r = 0; r < kRows; ++r) {
        plane_.ending.stored(at(r * kColumns, kBlock) + block * plane_.out_plane,
                             kColumns * kBlock);
      }
    }
  }

  template <size_t kPixels, typename At>
  [[gnu::always_inline]] void store_apart(Register (&sums)[kVectors][kPixels],
                                          At at) const noexcept {
    store_pixels<Vector>(plane_.ending, sums, at, plane_.out_plane);
    if (!plane_.ending.acts_on_stored()) return;
    for (size_t pixel = 0; pixel < kPixels; ++pixel) {
      for (size_t block = 0; block < kWidth / kBlock; ++block) {
        plane_.ending.stored(at(pixel) + block * plane_.out_plane, kBlock);
      }
    }
  }

  // A tile of a window of one pixel, which lies in the picture.
  template <size_t kRows, size_t kColumns, size_t kStride>
  [[gnu::noinline]] void run_points(int64_t first, size_t row, size_t column) noexcept {
    Register sums[kVectors][kRows * kColumns];
    begin_sums<Vector>(bias_, sums);
    const float* weight = weight_;
    const float* lines[kRows];
    for (size_t r = 0; r < kRows; ++r) {
      lines[r] =
          input_ + (first + signed_of(r * plane_.y.stride * plane_.x.inputs)) * signed_of(kBlock);
    }
    const char* next = next_;
    for (size_t k = 0; k < plane_.in_blocks; ++k) {
      add_tap(
          weight,
          [&](size_t pixel) __attribute__((always_inline)) {
            return lines[pixel / kColumns] + pixel % kColumns * kStride * kBlock;
          },
          next, sums);
      weight += kTap;
      unrolled<kRows>(QRT_UNROLLED(r) { lines[r] += plane_.in_plane; });
    }
    next_ = next;
    store<kRows>(sums, row, column);
  }

  template <size_t kRows, size_t kColumns, size_t kStride>
  [[gnu::noinline]] void run_rows(size_t row, size_t column) noexcept {
    constexpr int64_t kSigned = kBlock;
    constexpr size_t kLast = kColumns - 1;
    const auto edge_pixel = [](size_t edge) __attribute__((always_inline)) {
      return edge < kEdge ? edge : kColumns - 2 * kEdge + edge;
    };
    alignas(64) static constexpr float kNoRow[kColumns * kStride * kBlock] = {};
    const int64_t top = signed_of(row * plane_.y.stride) - plane_.y.padding;
    const int64_t left = signed_of(column * kStride) - plane_.x.padding;
    const int64_t width = signed_of(plane_.x.inputs);
    const WindowPlaces rows =
        places_of(plane_.y, top, top + signed_of((kRows - 1) * plane_.y.stride));
    const WindowPlaces columns = places_of(plane_.x, left, left + signed_of(kLast * kStride));
    Register sums[kVectors][kRows * kColumns];
    begin_sums<Vector>(bias_, sums);
    const float* weight = weight_;
    const float* input = input_;
    const char* next = next_;
    for (size_t k = 0; k < plane_.in_blocks; ++k) {
      for (size_t y = rows.begin; y < rows.end; ++y) {
        const float* lines[kRows];  // null outside
        unrolled<kRows>(QRT_UNROLLED(r) {
          const int64_t line = top + signed_of(r * plane_.y.stride + y * plane_.y.dilation);
          const bool is_inside = line >= 0 && line < signed_of(plane_.y.inputs);
          lines[r] = is_inside ? input + line * width * kSigned : nullptr;
        });
        const float* weights = weight + (y * plane_.x.kernel + columns.begin) * kTap;
        int64_t first = left + signed_of(columns.begin * plane_.x.dilation);
        for (size_t x = columns.begin; x < columns.end; ++x) {
          const float *middle[kRows], *edges[kRows][2 * kEdge];
          unrolled<kRows>(QRT_UNROLLED(r) {
            middle[r] = lines[r] == nullptr ? kNoRow : lines[r] + first * kSigned;
            unrolled<2 * kEdge>(QRT_UNROLLED(edge) {
              const auto place = static_cast<size_t>(first + signed_of(edge_pixel(edge) * kStride));
              edges[r][edge] = place < plane_.x.inputs ? middle[r] : kNoRow;
            });
          });
          add_tap(
              weights,
              [&](size_t pixel) __attribute__((always_inline)) {
                const size_t r = pixel / kColumns;
                const size_t at = pixel % kColumns;
                const float* from = at < kEdge               ? edges[r][at]
                                    : at + kEdge >= kColumns ? edges[r][at + 2 * kEdge - kColumns]
                                                             : middle[r];
                return from + at * kStride * kBlock;
              },
              next, sums);
          weights += kTap;
          first += signed_of(plane_.x.dilation);
        }
      }
      weight += plane_.taps() * kTap;
      input += plane_.in_plane;
    }
    next_ = next;
    store<kRows>(sums, row, column);
  }

  // A tile of which any pixel may reach outside, and whose pixels may stand in several rows.
  template <size_t kPixels>
  [[gnu::noinline]] void run_anywhere(size_t pixel) noexcept {
    const WindowAxis& rows = plane_.y;
    const WindowAxis& columns = plane_.x;
    int64_t top[kPixels], left[kPixels];
    float* output[kPixels];
    for (size_t i = 0; i < kPixels; ++i) {
      const size_t row = (pixel + i) / columns.outputs;
      const size_t column = (pixel + i) % columns.outputs;
      top[i] = signed_of(row * rows.stride) - rows.padding;
      left[i] = signed_of(column * columns.stride) - columns.padding;
      output[i] = output_ + row * plane_.out_row + column * plane_.out_step;
    }
    int64_t leftmost = left[0], rightmost = left[0];
    for (size_t i = 1; i < kPixels; ++i) {
      if (left[i] < leftmost) leftmost = left[i];
      if (left[i] > rightmost) rightmost = left[i];
    }
    const WindowPlaces used_rows = places_of(rows, top[0], top[kPixels - 1]);
    const WindowPlaces used_columns = places_of(columns, leftmost, rightmost);
    Register sums[kVectors][kPixels];
    begin_sums<Vector>(bias_, sums);
    const float* weight = weight_;
    const float* input = input_;
    const char* next = next_;
    for (size_t k = 0; k < plane_.in_blocks; ++k) {
      for (size_t y = used_rows.begin; y < used_rows.end; ++y) {
        const float* weights = weight + (y * columns.kernel + used_columns.begin) * kTap;
        for (size_t x = used_columns.begin; x < used_columns.end; ++x) {
          const float* at[kPixels];
          for (size_t i = 0; i < kPixels; ++i) {
            const auto line = static_cast<size_t>(top[i] + signed_of(y * rows.dilation));
            const auto place = static_cast<size_t>(left[i] + signed_of(x * columns.dilation));
            const bool is_inside = line < rows.inputs && place < columns.inputs;
            at[i] = is_inside ? input + (line * columns.inputs + place) * kBlock : kNoPixel;
          }
          add_tap(
              weights, [&](size_t i) __attribute__((always_inline)) { return at[i]; }, next, sums);
          weights += kTap;
        }
      }
      weight += plane_.taps() * kTap;
      input += plane_.in_plane;
    }
    next_ = next;
    if (plane_.is_dense()) {
      return store_tile<Vector>(plane_.ending, sums, output[0], plane_.out_plane);
    }
    store_apart(
        sums, [&](size_t i) __attribute__((always_inline)) { return output[i]; });
  }

  const WindowPlane& plane_;
  const float* input_;
  const float* weight_;
  const float* bias_;
  float* output_;
  const char* next_;  // what the next tile begins to fetch, behind the weights of these channels
  size_t next_step_ = 0;  // bytes from one fetch to the next
};

/// Calls `run(band)` for the parts of a plane whose inputs stay in L2 while all output channels
/// pass over them.
template <typename Plane, typename Run>
void for_each_band(const Plane& plane, size_t resident, Run run) noexcept {
  const size_t channels = plane.in_blocks * kChannelBlock;
  if (plane.y.outputs == 1) {
    const size_t most = resident / (channels * plane.x.stride) / 28 * 28;
    for_each_part(plane.x.outputs, most < 28 ? 28 : most, [&](size_t first, size_t count) {
      run(WindowBand{0, 1, first, first + count});
    });
    return;
  }
  // Lines that windows pass over aren't read.
  const size_t lines = smaller_of(plane.y.stride, plane.y.kernel * plane.y.dilation);
  const size_t step = channels * plane.x.inputs * lines;
  size_t most = plane.y.outputs;
  if (step != 0) most = step > resident ? 1 : resident / step;
  for_each_part(plane.y.outputs, most, [&](size_t first, size_t count) {
    run(WindowBand{first, first + count, 0, plane.x.outputs});
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

  /// Two widths at a time, where results are made of single pixels.
  template <typename Vector, size_t kPacked>
  [[gnu::always_inline]] void take_points(const WindowPlane& plane,
                                          const WindowBand& band) noexcept {
    using Channels = PointChannels<Vector, kPacked>;
    constexpr size_t kBlocks = Channels::kWidth / kChannelBlock;
    if (!plane.is_row_of_points) return;
    while (blocks >= kBlocks) {
      Channels(plane, input, weight, bias, output).run(band.column, band.end_column);
      weight += plane.in_blocks * kChannelBlock * Channels::kWidth;
      if (bias != nullptr) bias += Channels::kWidth;
      output += kBlocks * plane.out_plane;
      blocks -= kBlocks;
    }
  }

  /// Windows in parts, of a transposed convolution, are taken as others are.
  template <typename Vector, size_t kPacked, typename Plane>
  [[gnu::always_inline]] void take_points(const Plane& /*plane*/,
                                          const WindowBand& /*band*/) noexcept {}

  template <typename Vector, size_t kVectors, typename Plane>
  [[gnu::always_inline]] void take(const Plane& plane, const WindowBand& band) noexcept {
    constexpr size_t kWidth = kVectors * Vector::kLanes;
    constexpr size_t kBlocks = kWidth / kChannelBlock;
    const size_t tap = kWidth * plane.in_blocks * kChannelBlock;
    while (blocks >= kBlocks) {
      plane.for_each_part([&](const WindowPlane& part) {
        const WindowBand rest = {band.row, smaller_of(band.end_row, part.y.outputs), band.column,
                                 smaller_of(band.end_column, part.x.outputs)};
        if (rest.row >= rest.end_row || rest.column >= rest.end_column) return;
        WindowChannels<Vector, kVectors>(part, input, weight + part.first_tap * tap, bias,
                                         output + part.first_output)
            .run(rest);
      });
      weight += plane.all_taps * tap;
      if (bias != nullptr) bias += kWidth;
      output += kBlocks * plane.out_plane;
      blocks -= kBlocks;
    }
  }
};

/// A whole convolution. `take(range, plane, band)` takes all output channels, in the widths by which
/// their weights are packed. @param resident floats of inputs that L2 holds beside weights
template <typename Plane, typename Take>
void run_window(const ConvTask& task, size_t resident, Take take) noexcept {
  const Plane plane(task);
  // Many weights come from beyond L2 for each band: better fewer bands, which leave little of it.
  constexpr size_t kMostResident = 128 * 1024;
  const size_t weights = task.out_blocks * kChannelBlock * plane.all_taps;  // of an input channel
  if (weights > plane.y.inputs * plane.x.inputs) resident = kMostResident;
  for_each_group(task, plane.all_taps,
                 [&](const float* input, const float* weight, const float* bias, float* output) {
                   for_each_band(plane, resident, [&](const WindowBand& band) {
                     take(ChannelRange{input, weight, bias, output, task.out_blocks}, plane, band);
                   });
                 });
}

}  // namespace
}  // namespace marlo::kernel::conv
