#pragma once

#include "qrt_core/kernel/conv/steps/conv_params.h"
#include "qrt_core/kernel/conv/steps/plane_product_internal.h"

// Convolutions with a window over padded planes, whose vectors are neighbouring pixels of a row.
// Internal to the file that includes it.

namespace marlo::kernel::conv {
namespace {

/// Adds a convolution onto its output, in tiles of up to four planes by three vectors. `Pixels` is
/// the stride. Weights are [out, in, taps]. A sum takes the input planes in order, and within them
/// the window's rows and columns. The last vector of a row may load a vector of inputs past its
/// end, for which the padded copy has room, and loads and stores outputs that are in the row.
///
/// Sums stay in registers over all input planes, unless planes are so large that their windows
/// would push each other out of L1: then they wait in the output after every few.
template <typename Vector, typename Pixels>
class WindowPlanes {
  using Register = typename Vector::Register;
  static constexpr size_t kLanes = Vector::kLanes;
  static constexpr size_t kMostPlanes = 3;
  static constexpr size_t kMostVectors = 3;
  static constexpr size_t kLargePlane = 16384;  // floats
  static constexpr size_t kLargePlanes = 8;     // at a time

  struct Planes {
    size_t first;
    size_t count;
  };

  struct Place {
    const float* window;
    float* output;
    size_t pixels;
  };

  // The vectors of an output plane row by row; the last of a row may have fewer pixels.
  class Walk {
   public:
    Walk(const ConvTask& task, float* output) noexcept
        : width_(task.out_width),
          row_step_(size_t{task.params.stride_y} * task.in_width),
          left_(width_),
          row_(task.input),
          window_(task.input),
          output_(output) {}

    Place next() noexcept {
      const Place place = {window_, output_, smaller_of(left_, kLanes)};
      output_ += place.pixels;
      window_ += kLanes * Pixels::kStep;
      left_ -= place.pixels;
      if (left_ == 0) {
        left_ = width_;
        row_ += row_step_;
        window_ = row_;
      }
      return place;
    }

   private:
    size_t width_;
    size_t row_step_;
    size_t left_;  // pixels of the row
    const float* row_;
    const float* window_;
    float* output_;
  };

 public:
  explicit WindowPlanes(const ConvTask& task) noexcept
      : task_(task),
        in_plane_(size_t{task.in_height} * task.in_width),
        out_plane_(size_t{task.out_height} * task.out_width),
        taps_(size_t{task.params.kernel_y} * task.params.kernel_x) {}

  void run() const noexcept {
    for_even_parts(task_.out_blocks, kMostPlanes, [this](size_t plane, size_t planes) {
      with_static<kMostPlanes>(planes, [&](auto kPlanes) { sweep<kPlanes.value>(plane); });
    });
  }

 private:
  template <size_t kPlanes>
  void sweep(size_t plane) const noexcept {
    const size_t count = parts_of(task_.out_width, kLanes) * task_.out_height;
    const size_t depth = in_plane_ < kLargePlane ? task_.in_blocks : kLargePlanes;
    for (size_t k = 0; k < task_.in_blocks; k += depth) {
      const Planes inputs = {k, smaller_of(task_.in_blocks - k, depth)};
      Walk walk(task_, task_.output + plane * out_plane_);
      for_even_parts(count, kMostVectors, [&](size_t, size_t vectors) {
        with_static<kMostVectors>(vectors, [&](auto kVectors) {
          run_tile<kPlanes, kVectors.value>(plane, inputs, walk);
        });
      });
    }
  }

  template <size_t kPlanes, size_t kVectors>
  [[gnu::noinline]] void run_tile(size_t plane, const Planes& inputs, Walk& walk) const noexcept {
    Place places[kVectors];
    const float* windows[kVectors];
    unrolled<kVectors>(QRT_UNROLLED(v) {
      places[v] = walk.next();
      windows[v] = places[v].window;
    });
    Register sums[kPlanes][kVectors];
    const auto output = [&](size_t o, size_t v) __attribute__((always_inline)) {
      return places[v].output + o * out_plane_;
    };
    const bool whole = are_whole(places);
    unrolled<kPlanes>(QRT_UNROLLED(o) {
      unrolled<kVectors>(QRT_UNROLLED(v) {
        sums[o][v] =
            whole ? Vector::load(output(o, v)) : Vector::load_first(output(o, v), places[v].pixels);
      });
    });
    const size_t run = task_.params.kernel_x;
    const size_t rows = task_.params.kernel_y;
    const size_t out_step = taps_ * task_.in_blocks;
    const float* weight = task_.weight + plane * out_step + inputs.first * taps_;
    size_t offset = inputs.first * in_plane_;
    for (size_t k = 0; k < inputs.count; ++k, offset += in_plane_) {
      size_t at = offset;
      for (size_t row = 0; row < rows; ++row, at += task_.in_width - run) {
        for (size_t column = 0; column < run; ++column, ++at, ++weight) {
          Register x[kVectors];
          unrolled<kVectors>(QRT_UNROLLED(v) { x[v] = Pixels::load(windows[v] + at); });
          unrolled<kPlanes>(QRT_UNROLLED(o) {
            const Register w = Vector::splat(weight + o * out_step);
            unrolled<kVectors>(
                QRT_UNROLLED(v) { sums[o][v] = Vector::plus_product(sums[o][v], w, x[v]); });
          });
        }
      }
    }
    unrolled<kPlanes>(QRT_UNROLLED(o) {
      unrolled<kVectors>(QRT_UNROLLED(v) {
        if (whole) {
          Vector::store(output(o, v), sums[o][v]);
        } else {
          Vector::store_first(output(o, v), places[v].pixels, sums[o][v]);
        }
      });
    });
  }

  template <size_t kVectors>
  static bool are_whole(const Place (&places)[kVectors]) noexcept {
    size_t pixels = 0;
    for (const Place& place : places) pixels += place.pixels;
    return pixels == kVectors * kLanes;
  }

  const ConvTask& task_;
  size_t in_plane_;
  size_t out_plane_;
  size_t taps_;
};

}  // namespace
}  // namespace marlo::kernel::conv
