#pragma once

#include "qrt_core/kernel/vectors_internal.h"

// The product of a matrix of weights with whole planes: a 1x1 convolution of tensors that aren't
// blocked, whose vectors are neighbouring pixels. Internal to the file that includes it.

namespace marlo::kernel::conv {
namespace {

/// One product: plane n = bias n, or zero, plus the sum over k of weight [n][k] times plane k.
/// Distances are in floats.
struct PlaneProduct {
  const float* input = nullptr;
  size_t in_plane = 0;
  size_t in_row = 0;
  size_t in_planes = 0;
  const float* weight = nullptr;  ///< [out_planes, in_planes]
  const float* bias = nullptr;    ///< null for none
  float* output = nullptr;
  size_t out_plane = 0;
  size_t out_row = 0;
  size_t out_planes = 0;
  size_t rows = 1;
  size_t pixels = 0;  ///< of a row
};

/// Pixels that stand side by side.
template <typename Vector>
struct EachPixel {
  static constexpr size_t kStep = 1;
  static typename Vector::Register load(const float* from) noexcept { return Vector::load(from); }
  static typename Vector::Register load_first(const float* from, size_t count) noexcept {
    return Vector::load_first(from, count);
  }
};

/// Every other pixel: the even lanes of eight floats. They come from a copy of the input that has
/// room for a vector behind its end.
struct EvenPixels {
  static constexpr size_t kStep = 2;
  static __m128 load(const float* from) noexcept {
    return _mm_shuffle_ps(_mm_loadu_ps(from), _mm_loadu_ps(from + 4), _MM_SHUFFLE(2, 0, 2, 0));
  }
  static __m128 load_first(const float* from, size_t) noexcept { return load(from); }
};

/// Computes products in tiles of four planes by three vectors, 12 sums in registers. Each sum
/// begins with the bias and runs over the planes in order, whatever its tile. The last vector of a
/// row holds what is in the row.
template <typename Vector, typename Pixels>
class PlaneProductTiles {
  using Register = typename Vector::Register;
  static constexpr size_t kLanes = Vector::kLanes;
  static constexpr size_t kMostPlanes = 4;
  static constexpr size_t kMostVectors = 3;
  // So many planes of so many tiles stay in L1 while all output planes pass over them.
  static constexpr size_t kDepth = 128;
  static constexpr size_t kPanelTiles = 24 / kLanes;

  struct Tile {
    const float* input;
    const float* weight;
    const float* bias;
    float* output;
    size_t depth;
    size_t pixels;  // to the end of the row
    bool is_first;
  };

 public:
  explicit PlaneProductTiles(const PlaneProduct& product) noexcept : product_(product) {}

  void run() const noexcept {
    for_each_part(product_.in_planes, kDepth, [this](size_t first, size_t depth) {
      for (size_t row = 0; row < product_.rows; ++row) run_row(row, first, depth);
    });
  }

 private:
  void run_row(size_t row, size_t first, size_t depth) const noexcept {
    const size_t vectors = parts_of(product_.pixels, kLanes);
    const size_t tiles = parts_of(vectors, kMostVectors);
    for (size_t panel = 0; panel < tiles; panel += kPanelTiles) {
      const size_t end_tile = smaller_of(panel + kPanelTiles, tiles);
      for_even_parts(product_.out_planes, kMostPlanes, [&](size_t plane, size_t planes) {
        for (size_t index = panel; index < end_tile; ++index) {
          const size_t begin = part_begin(index, tiles, vectors);
          const size_t end = part_begin(index + 1, tiles, vectors);
          run_sized(planes, end - begin, tile_at(row, begin * kLanes, plane, first, depth));
        }
      });
    }
  }

  Tile tile_at(size_t row, size_t pixel, size_t plane, size_t first, size_t depth) const noexcept {
    const PlaneProduct& p = product_;
    return {p.input + first * p.in_plane + row * p.in_row + pixel * Pixels::kStep,
            p.weight + plane * p.in_planes + first,
            p.bias == nullptr ? nullptr : p.bias + plane,
            p.output + plane * p.out_plane + row * p.out_row + pixel,
            depth,
            p.pixels - pixel,
            first == 0};
  }

  void run_sized(size_t planes, size_t vectors, const Tile& tile) const noexcept {
    with_static<kMostPlanes>(planes, [&](auto kPlanes) {
      with_static<kMostVectors>(vectors, [&](auto kVectors) {
        if (tile.pixels >= vectors * kLanes) {
          run_tile<kPlanes.value, kVectors.value, true>(tile);
        } else {
          run_tile<kPlanes.value, kVectors.value, false>(tile);
        }
      });
    });
  }

  // `kWhole` says that the last vector is full, too.
  template <size_t kPlanes, size_t kVectors, bool kWhole>
  [[gnu::noinline]] void run_tile(const Tile& tile) const noexcept {
    const size_t in_plane = product_.in_plane;
    const size_t out_plane = product_.out_plane;
    const size_t weight_row = product_.in_planes;
    const size_t rest = tile.pixels - (kVectors - 1) * kLanes;  // of the last vector
    Register sums[kPlanes][kVectors];
    unrolled<kPlanes>(QRT_UNROLLED(n) {
      const Register bias = tile.bias == nullptr ? Vector::zero() : Vector::splat(tile.bias + n);
      const float* output = tile.output + n * out_plane;
      unrolled<kVectors>(QRT_UNROLLED(v) {
        if (tile.is_first) {
          sums[n][v] = bias;
        } else if (kWhole || v + 1 < kVectors) {
          sums[n][v] = Vector::load(output + v * kLanes);
        } else {
          sums[n][v] = Vector::load_first(output + v * kLanes, rest);
        }
      });
    });
    const float* input = tile.input;
    const float* weight = tile.weight;
    for (size_t k = 0; k < tile.depth; ++k) {
      Register x[kVectors];
      unrolled<kVectors>(QRT_UNROLLED(v) {
        const float* from = input + v * kLanes * Pixels::kStep;
        x[v] = kWhole || v + 1 < kVectors ? Pixels::load(from) : Pixels::load_first(from, rest);
      });
      unrolled<kPlanes>(QRT_UNROLLED(n) {
        const Register w = Vector::splat(weight + n * weight_row);
        unrolled<kVectors>(
            QRT_UNROLLED(v) { sums[n][v] = Vector::plus_product(sums[n][v], x[v], w); });
      });
      input += in_plane;
      ++weight;
    }
    unrolled<kPlanes>(QRT_UNROLLED(n) {
      float* output = tile.output + n * out_plane;
      unrolled<kVectors>(QRT_UNROLLED(v) {
        if (kWhole || v + 1 < kVectors) {
          Vector::store(output + v * kLanes, sums[n][v]);
        } else {
          Vector::store_first(output + v * kLanes, rest, sums[n][v]);
        }
      });
    });
  }

  const PlaneProduct& product_;
};

}  // namespace
}  // namespace marlo::kernel::conv
