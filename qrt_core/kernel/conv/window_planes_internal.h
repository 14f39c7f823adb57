#pragma once

#include "qrt_core/kernel/conv/conv_params.h"
#include "qrt_core/kernel/conv/plane_product_internal.h"

// Convolutions with a window over padded planes, whose vectors are neighbouring pixels of a row.
// Internal to the file that includes it.

namespace marlo::kernel::conv {
namespace {

/// Every other pixel of four: the even lanes of eight floats, of which the last may be the first
/// float behind the window.
struct EveryOtherPixel {
  static constexpr size_t kStep = 2;
  static __m128 load(const float* from) noexcept { return EvenPixels::load(from); }
};

/// Adds a convolution onto its output, in tiles of up to four planes by three vectors. `Pixels` is
/// the stride. Weights are [out, in, taps]. A sum takes the input planes in order, and within them
/// the window's rows and columns. The last vector of a row may load past its end, and stores what
/// is in the row.
template <typename Vector, typename Pixels>
class WindowPlanes {
  using Register = typename Vector::Register;
  static constexpr size_t kLanes = Vector::kLanes;
  static constexpr size_t kMostPlanes = 4;
  static constexpr size_t kMostVectors = 3;

  struct Place {
    const float* window;
    float* output;
    size_t pixels;
  };

 public:
  explicit WindowPlanes(const ConvTask& task) noexcept
      : task_(task),
        in_plane_(size_t{task.in_height} * task.in_width),
        out_plane_(size_t{task.out_height} * task.out_width),
        taps_(size_t{task.params.kernel_y} * task.params.kernel_x) {}

  void run() const noexcept {
    const size_t groups = parts_of(task_.out_blocks, kMostPlanes);
    for (size_t group = 0; group < groups; ++group) {
      const size_t begin = part_begin(group, groups, task_.out_blocks);
      const size_t end = part_begin(group + 1, groups, task_.out_blocks);
      sweep<kMostPlanes>(end - begin, begin);
    }
  }

 private:
  template <size_t kPlanes>
  void sweep(size_t planes, size_t plane) const noexcept {
    if constexpr (kPlanes > 1) {
      if (planes < kPlanes) return sweep<kPlanes - 1>(planes, plane);
    }
    const size_t in_row = parts_of(task_.out_width, kLanes);
    const size_t count = in_row * task_.out_height;
    const size_t tiles = parts_of(count, kMostVectors);
    size_t begin = 0;
    for (size_t tile = 1; tile <= tiles; ++tile) {
      const size_t end = part_begin(tile, tiles, count);
      sized_tile<kPlanes, kMostVectors>(end - begin, plane, begin, in_row);
      begin = end;
    }
  }

  template <size_t kPlanes, size_t kVectors>
  void sized_tile(size_t vectors, size_t plane, size_t first, size_t in_row) const noexcept {
    if constexpr (kVectors > 1) {
      if (vectors < kVectors) {
        return sized_tile<kPlanes, kVectors - 1>(vectors, plane, first, in_row);
      }
    }
    run_tile<kPlanes, kVectors>(plane, first, in_row);
  }

  Place place_at(size_t plane, size_t index, size_t in_row) const noexcept {
    const size_t row = index / in_row;
    const size_t column = index % in_row * kLanes;
    return {task_.input + row * task_.params.stride_y * task_.in_width + column * Pixels::kStep,
            task_.output + plane * out_plane_ + row * task_.out_width + column,
            smaller_of(task_.out_width - column, kLanes)};
  }

  template <size_t kPlanes, size_t kVectors>
  [[gnu::noinline]] void run_tile(size_t plane, size_t first, size_t in_row) const noexcept {
    const float* windows[kVectors];
    float* outputs[kVectors];
    unrolled<kVectors>(QRT_UNROLLED(v) {
      const Place place = place_at(plane, first + v, in_row);
      windows[v] = place.window;
      outputs[v] = place.output;
    });
    Register sums[kPlanes][kVectors];
    unrolled<kPlanes>(QRT_UNROLLED(o) {
      unrolled<kVectors>(
          QRT_UNROLLED(v) { sums[o][v] = Vector::load(outputs[v] + o * out_plane_); });
    });
    const size_t run = task_.params.kernel_x;
    const size_t rows = task_.params.kernel_y;
    const size_t out_step = taps_ * task_.in_blocks;
    const float* weight = task_.weight + plane * out_step;
    size_t offset = 0;
    for (size_t k = 0; k < task_.in_blocks; ++k, offset += in_plane_) {
      size_t at = offset;
      for (size_t row = 0; row < rows; ++row, at += task_.in_width - run) {
        for (size_t column = 0; column < run; ++column, ++at, ++weight) {
          Register inputs[kVectors];
          unrolled<kVectors>(QRT_UNROLLED(v) { inputs[v] = Pixels::load(windows[v] + at); });
          unrolled<kPlanes>(QRT_UNROLLED(o) {
            const Register w = Vector::splat(weight + o * out_step);
            unrolled<kVectors>(
                QRT_UNROLLED(v) { sums[o][v] = Vector::plus_product(sums[o][v], w, inputs[v]); });
          });
        }
      }
    }
    unrolled<kVectors>(QRT_UNROLLED(v) {
      const size_t pixels = place_at(plane, first + v, in_row).pixels;
      unrolled<kPlanes>(
          QRT_UNROLLED(o) { store_first(outputs[v] + o * out_plane_, pixels, sums[o][v]); });
    });
  }

  static void store_first(float* to, size_t pixels, Register x) noexcept {
    if (pixels == kLanes) return Vector::store(to, x);
    float lanes[kLanes];
    Vector::store(lanes, x);
    for (size_t i = 0; i < pixels; ++i) to[i] = lanes[i];
  }

  const ConvTask& task_;
  size_t in_plane_;
  size_t out_plane_;
  size_t taps_;
};

}  // namespace
}  // namespace marlo::kernel::conv
