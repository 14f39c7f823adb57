#include <xmmintrin.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>

#include "qrt_core/kernel/conv/winograd/winograd_cores.h"
#include "qrt_core/kernel/layout/crop.h"
#include "qrt_core/kernel/layout/padding.h"

namespace marlo::kernel::conv {
namespace {

constexpr size_t kLanes = 4;
constexpr size_t kElements = 16;  // of a tile, element 4 u + v in vector u and lane v
constexpr size_t kTiles = 4;      // of a block of tiles, which are multiplied together
constexpr size_t kBlockFloats = kTiles * kElements;
constexpr size_t kChannelsAtOnce = 128;     // keeps two output channels' filters in L1
constexpr size_t kSweptFloats = 64 * 1024;  // of transformed inputs, which stay in L2
constexpr size_t kBlocksAtOnce = 16;

struct Vectors {
  __m128 v[4];

  __m128& operator[](size_t i) { return v[i]; }
  const __m128& operator[](size_t i) const { return v[i]; }
};

// A combination of four rows, the same for inputs in both directions.
Vectors combine_inputs(const Vectors& d) {
  return {{_mm_sub_ps(d[0], d[2]), _mm_add_ps(d[1], d[2]), _mm_sub_ps(d[2], d[1]),
           _mm_sub_ps(d[1], d[3])}};
}

struct Pair {
  __m128 first;
  __m128 second;
};

Pair combine_outputs(const Vectors& x) {
  return {_mm_add_ps(_mm_add_ps(x[0], x[1]), x[2]), _mm_sub_ps(_mm_sub_ps(x[1], x[2]), x[3])};
}

// One patch of 4 x 4 inputs; the vectors of the result lie `step` floats apart.
void transform_patch(const float* patch, size_t width, float* to, size_t step) {
  Vectors e = combine_inputs({{_mm_loadu_ps(patch), _mm_loadu_ps(patch + width),
                               _mm_loadu_ps(patch + 2 * width), _mm_loadu_ps(patch + 3 * width)}});
  _MM_TRANSPOSE4_PS(e[0], e[1], e[2], e[3]);
  const Vectors transformed = combine_inputs(e);
  for (size_t u = 0; u < kLanes; ++u) _mm_store_ps(to + u * step, transformed[u]);
}

// Adds the products of `channels` channels onto vector u of the elements of four tiles. `tiles`
// holds that vector alone, [channels, tiles, lanes]; filters and sums hold whole elements.
template <size_t kFilters>
void add_products(const float* tiles, const float* filters, size_t filter_step, size_t channels,
                  float* sums) {
  __m128 sum[kFilters][kTiles];
  for (size_t f = 0; f < kFilters; ++f) {
    for (size_t t = 0; t < kTiles; ++t)
      sum[f][t] = _mm_load_ps(sums + f * kBlockFloats + t * kElements);
  }
  for (size_t c = 0; c < channels; ++c) {
    __m128 filter[kFilters];
    for (size_t f = 0; f < kFilters; ++f) filter[f] = _mm_load_ps(filters + f * filter_step);
    for (size_t t = 0; t < kTiles; ++t) {
      const __m128 tile = _mm_load_ps(tiles + t * kLanes);
      for (size_t f = 0; f < kFilters; ++f) {
        sum[f][t] = _mm_add_ps(sum[f][t], _mm_mul_ps(tile, filter[f]));
      }
    }
    filters += kElements;
    tiles += kTiles * kLanes;
  }
  for (size_t f = 0; f < kFilters; ++f) {
    for (size_t t = 0; t < kTiles; ++t)
      _mm_store_ps(sums + f * kBlockFloats + t * kElements, sum[f][t]);
  }
}

void add_pair(float* to, __m128 low_lanes) {
  auto* pair = reinterpret_cast<__m64*>(to);
  _mm_storel_pi(pair, _mm_add_ps(_mm_loadl_pi(_mm_setzero_ps(), pair), low_lanes));
}

// Blocks of four tiles, some of them at a time: their patches of all input channels are transformed
// into a tensor that stays in cache while the output channels pass over it.
template <size_t kFilters>
class Sweep {
 public:
  Sweep(const ConvTask& task, float* output, runtime::DeviceCPU& device)
      : task_(task),
        output_(output),
        width_(task.in_width - 2),
        plane_(width_ * (task.in_height - 2)),
        tiles_in_row_(width_ / 2),
        tiles_(plane_ / 4),
        blocks_((tiles_ + kTiles - 1) / kTiles),
        channels_(task.in_blocks) {
    blocks_at_once_ = std::clamp<size_t>(kSweptFloats / (channels_ * kBlockFloats + 1), 1,
                                         std::min(kBlocksAtOnce, blocks_));
    patches_ = device.CreateF32FlexiableMainMemory(
        {static_cast<uint32_t>(blocks_at_once_), task.in_blocks, kBlockFloats}, nullptr);
  }

  void run() {
    for (size_t block = 0; block < blocks_; block += blocks_at_once_) {
      const size_t count = std::min(blocks_at_once_, blocks_ - block);
      for (size_t i = 0; i < count; ++i) transform_inputs(block + i, patches_of(i));
      size_t filter = 0;
      for (; filter + kFilters <= task_.out_blocks; filter += kFilters) {
        run_filters<kFilters>(filter, block, count);
      }
      for (; filter < task_.out_blocks; ++filter) run_filters<1>(filter, block, count);
    }
  }

 private:
  float* patches_of(size_t i) const {
    return static_cast<float*>(patches_->RawPointer()) + i * channels_ * kBlockFloats;
  }

  size_t count_of(size_t block) const { return std::min(kTiles, tiles_ - block * kTiles); }

  // The first pixel of a tile in a picture so wide.
  size_t origin_of(size_t tile, size_t width) const {
    return tile / tiles_in_row_ * 2 * width + tile % tiles_in_row_ * 2;
  }

  // Writes [u, channels, tiles, v]; tiles beyond the last are zero.
  void transform_inputs(size_t block, float* to) const {
    const size_t count = count_of(block);
    const size_t step = channels_ * kTiles * kLanes;
    if (count < kTiles) std::fill_n(to, channels_ * kBlockFloats, 0.0f);
    std::array<size_t, kTiles> origins{};
    for (size_t t = 0; t < count; ++t) origins[t] = origin_of(block * kTiles + t, task_.in_width);
    const float* plane = task_.input;
    for (size_t c = 0; c < channels_; ++c) {
      for (size_t t = 0; t < count; ++t) {
        transform_patch(plane + origins[t], task_.in_width, to + (c * kTiles + t) * kLanes, step);
      }
      plane += size_t{task_.in_height} * task_.in_width;
    }
  }

  template <size_t kCount>
  void run_filters(size_t filter, size_t first_block, size_t blocks) const {
    alignas(16) float sums[kBlocksAtOnce * kCount * kBlockFloats];
    std::fill_n(sums, blocks * kCount * kBlockFloats, 0.0f);
    const size_t filter_step = channels_ * kElements;
    const float* filters = task_.weight + filter * filter_step;
    for (size_t c = 0; c < channels_; c += kChannelsAtOnce) {
      const size_t count = std::min(kChannelsAtOnce, channels_ - c);
      for (size_t i = 0; i < blocks; ++i) {
        for (size_t u = 0; u < kLanes; ++u) {
          const float* patches = patches_of(i) + (u * channels_ + c) * kTiles * kLanes;
          add_products<kCount>(patches, filters + c * kElements + u * kLanes, filter_step, count,
                               sums + i * kCount * kBlockFloats + u * kLanes);
        }
      }
    }
    for (size_t i = 0; i < blocks; ++i) {
      for (size_t f = 0; f < kCount; ++f) {
        transform_outputs(sums + (i * kCount + f) * kBlockFloats, first_block + i,
                          output_ + (filter + f) * plane_);
      }
    }
  }

  void transform_outputs(const float* sums, size_t block, float* plane) const {
    Vectors even;  // first of tile by tile, then of row by row of all tiles
    Vectors odd;
    for (size_t t = 0; t < kTiles; ++t) {
      const float* tile = sums + t * kElements;
      const Pair columns = combine_outputs({{_mm_load_ps(tile), _mm_load_ps(tile + 4),
                                             _mm_load_ps(tile + 8), _mm_load_ps(tile + 12)}});
      even[t] = columns.first;
      odd[t] = columns.second;
    }
    _MM_TRANSPOSE4_PS(even[0], even[1], even[2], even[3]);
    _MM_TRANSPOSE4_PS(odd[0], odd[1], odd[2], odd[3]);
    const Pair s = combine_outputs(even);
    const Pair q = combine_outputs(odd);
    const Vectors pairs_above = pairs_of(s.first, q.first);
    const Vectors pairs_below = pairs_of(s.second, q.second);
    const size_t count = count_of(block);
    for (size_t t = 0; t < count; ++t) {
      float* to = plane + origin_of(block * kTiles + t, width_);
      add_pair(to, pairs_above[t]);
      add_pair(to + width_, pairs_below[t]);
    }
  }

  // The two pixels of each tile, in the low lanes.
  static Vectors pairs_of(__m128 even, __m128 odd) {
    const __m128 low = _mm_unpacklo_ps(even, odd);
    const __m128 high = _mm_unpackhi_ps(even, odd);
    return {{low, _mm_movehl_ps(low, low), high, _mm_movehl_ps(high, high)}};
  }

  const ConvTask& task_;
  float* output_;  // of even size
  size_t width_;
  size_t plane_;
  size_t tiles_in_row_;
  size_t tiles_;
  size_t blocks_;
  size_t channels_;
  size_t blocks_at_once_ = 1;
  std::shared_ptr<runtime::TensorCPU> patches_;
};

template <size_t kFilters>
void winograd(const ConvTask& task, runtime::DeviceCPU& device) {
  const uint32_t height = task.in_height - 2;
  const uint32_t width = task.in_width - 2;
  if (height == task.out_height && width == task.out_width) {
    Sweep<kFilters>(task, task.output, device).run();
    return;
  }
  // The tiles of an odd picture reach beyond it.
  const auto even = device.CreateF32FlexiableMainMemory({task.out_blocks, height, width}, nullptr);
  auto* pixels = static_cast<float*>(even->RawPointer());
  const Frame frame = {0, width - task.out_width, 0, height - task.out_height};
  frame_planes(task.output, task.out_blocks, task.out_height, task.out_width, frame, 0.0f, pixels);
  Sweep<kFilters>(task, pixels, device).run();
  crop_planes(pixels, task.out_blocks, height, width, frame, task.output);
}

}  // namespace

void winograd_by_filter_sse(const ConvTask& task, runtime::DeviceCPU& device) {
  winograd<1>(task, device);
}

void winograd_by_filter_pairs_sse(const ConvTask& task, runtime::DeviceCPU& device) {
  winograd<2>(task, device);
}

}  // namespace marlo::kernel::conv
