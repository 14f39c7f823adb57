#pragma once

#include "qrt_core/kernel/conv/steps/conv_params.h"
#include "qrt_core/kernel/vectors_internal.h"

// Convolutions with a window over a padded input, whose weights have the output channel fastest:
// each input is broadcast and meets a vector of output channels. Internal to the file that includes
// it.

namespace marlo::kernel::conv {
namespace {

/// The pixels of an output plane in memory order, and where the window of each begins in the
/// padded input. Distances are in floats.
class WindowWalk {
 public:
  WindowWalk(const ConvTask& task, size_t in_block) noexcept
      : width_(task.out_width),
        step_(task.params.stride_x * in_block),
        row_step_(size_t{task.in_width} * task.params.stride_y * in_block),
        row_(task.input),
        next_(task.input) {}

  const float* next() noexcept {
    const float* window = next_;
    next_ += step_;
    if (++x_ == width_) {
      x_ = 0;
      row_ += row_step_;
      next_ = row_;
    }
    return window;
  }

 private:
  size_t width_;
  size_t step_;
  size_t row_step_;
  const float* row_;
  const float* next_;
  size_t x_ = 0;
};

/// How the weights of a tile reach the registers that all pixels share.
enum class Sweep {
  /// So many input blocks at a time that their weights stay in L1 while a plane passes over them;
  /// sums wait in the output.
  planes,
  /// All input blocks for one tile of pixels; sums never leave their registers.
  depth,
};

/// Adds a convolution onto its output, in tiles of up to `kMostBlocks` output blocks by as many
/// pixels as keep 12 sums in registers. Pixels are taken in memory order over the ends of rows, so
/// that only the end of a plane has a small tile. A sum takes the input blocks in order, within
/// them the window's rows, columns and channels.
///
/// With `kFromBias` the sums start from the bias or zero instead of the output. Then the window's
/// weights of all input blocks must fit into one sweep, as those of a few planes do.
///
/// An output block that is half as wide as a vector shares it with the next one, and `kMostBlocks`
/// counts pairs; there must be an even number.
template <typename Vector, size_t kInBlock, size_t kOutBlock, size_t kMostBlocks,
          Sweep kSweep = Sweep::planes, bool kFromBias = false>
class WindowTiles {
  using Register = typename Vector::Register;
  static constexpr bool kPaired = kOutBlock < Vector::kLanes;
  static constexpr size_t kParts = kPaired ? 1 : kOutBlock / Vector::kLanes;
  static constexpr size_t kStep = kPaired ? 2 : 1;  // output blocks that a "block" here stands for
  static constexpr size_t kBlockWeights = kInBlock * kOutBlock;
  static constexpr size_t kResident = 6144;  // floats of weights that leave room in L1

  static constexpr size_t most_pixels(size_t blocks) {
    const size_t most = 12 / (blocks * kParts);
    return most < 8 ? most : 8;
  }

 public:
  explicit WindowTiles(const ConvTask& task) noexcept
      : task_(task),
        in_row_(size_t{task.in_width} * kInBlock),
        in_plane_(in_row_ * task.in_height),
        taps_(size_t{task.params.kernel_y} * task.params.kernel_x),
        weight_plane_(taps_ * kBlockWeights * task.in_blocks),
        pixels_(size_t{task.out_height} * task.out_width),
        out_plane_(pixels_ * kOutBlock) {}

  void run() const noexcept {
    const size_t blocks = task_.out_blocks / kStep;
    const size_t resident = kResident / (kMostBlocks * kStep * taps_ * kBlockWeights);
    const size_t depth = kSweep == Sweep::depth ? task_.in_blocks : (resident == 0 ? 1 : resident);
    for_even_parts(blocks, kMostBlocks, [&](size_t begin, size_t count) {
      for (size_t first = 0; first < task_.in_blocks; first += depth) {
        with_static<kMostBlocks>(count, [&](auto kBlocks) {
          sweep<kBlocks.value>(begin * kStep, first, smaller_of(task_.in_blocks - first, depth));
        });
      }
    });
  }

 private:
  template <size_t kBlocks>
  void sweep(size_t block, size_t first, size_t depth) const noexcept {
    constexpr size_t kMostPixels = most_pixels(kBlocks);
    const float* weight = task_.weight + block * weight_plane_ + first * taps_ * kBlockWeights;
    const float* bias = task_.bias == nullptr ? nullptr : task_.bias + block * kOutBlock;
    float* output = task_.output + block * out_plane_;
    WindowWalk walk(task_, kInBlock);
    for_even_parts(pixels_, kMostPixels, [&](size_t begin, size_t count) {
      with_static<kMostPixels>(count, [&](auto kPixels) {
        run_tile<kBlocks, kPixels.value>(walk, first * in_plane_, depth, weight, bias,
                                         output + begin * kOutBlock);
      });
    });
  }

  [[gnu::always_inline]] static Register load(const float* from, size_t plane, size_t v) noexcept {
    if constexpr (kPaired) {
      return Vector::load_halves(from + 2 * v * plane, from + (2 * v + 1) * plane);
    } else {
      return Vector::load(from + v / kParts * plane + v % kParts * Vector::kLanes);
    }
  }

  [[gnu::always_inline]] static void store(float* to, size_t plane, size_t v, Register x) noexcept {
    if constexpr (kPaired) {
      Vector::store_halves(to + 2 * v * plane, to + (2 * v + 1) * plane, x);
    } else {
      Vector::store(to + v / kParts * plane + v % kParts * Vector::kLanes, x);
    }
  }

  template <size_t kBlocks, size_t kPixels>
  [[gnu::noinline]] void run_tile(WindowWalk& walk, size_t offset, size_t depth,
                                  const float* weight, const float* bias,
                                  float* output) const noexcept {
    constexpr size_t kVectors = kBlocks * kParts;
    const float* windows[kPixels];
    unrolled<kPixels>(QRT_UNROLLED(pixel) { windows[pixel] = walk.next() + offset; });
    Register sums[kVectors][kPixels];
    unrolled<kVectors>(QRT_UNROLLED(v) {
      if constexpr (kFromBias) {
        const Register start = bias == nullptr ? Vector::zero() : load(bias, kOutBlock, v);
        unrolled<kPixels>(QRT_UNROLLED(pixel) { sums[v][pixel] = start; });
      } else {
        unrolled<kPixels>(QRT_UNROLLED(pixel) {
          sums[v][pixel] = load(output + pixel * kOutBlock, out_plane_, v);
        });
      }
    });
    const size_t weight_plane = weight_plane_;
    const size_t run = task_.params.kernel_x;
    const size_t rows = task_.params.kernel_y;
    size_t plane = 0;
    for (size_t k = 0; k < depth; ++k, plane += in_plane_) {
      size_t at = plane;
      for (size_t row = 0; row < rows; ++row, at += in_row_ - run * kInBlock) {
        for (size_t column = 0; column < run; ++column) {
          unrolled<kInBlock>(QRT_UNROLLED(lane) {
            Register weights[kVectors];
            unrolled<kVectors>(
                QRT_UNROLLED(v) { weights[v] = load(weight + lane * kOutBlock, weight_plane, v); });
            unrolled<kPixels>(QRT_UNROLLED(pixel) {
              const Register x = Vector::splat(windows[pixel] + at + lane);
              unrolled<kVectors>(QRT_UNROLLED(v) {
                sums[v][pixel] = Vector::plus_product(sums[v][pixel], x, weights[v]);
              });
            });
          });
          weight += kBlockWeights;
          at += kInBlock;
        }
      }
    }
    unrolled<kVectors>(QRT_UNROLLED(v) {
      unrolled<kPixels>(QRT_UNROLLED(pixel) {
        store(output + pixel * kOutBlock, out_plane_, v, sums[v][pixel]);
      });
    });
  }

  const ConvTask& task_;
  size_t in_row_;
  size_t in_plane_;
  size_t taps_;
  size_t weight_plane_;  // from the weights of one output block to those of the next
  size_t pixels_;
  size_t out_plane_;
};

}  // namespace
}  // namespace marlo::kernel::conv
