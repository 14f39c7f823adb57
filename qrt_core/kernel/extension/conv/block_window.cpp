#include "qrt_core/kernel/extension/conv/block_window.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <vector>

#include "qrt_core/kernel/extension/conv/block_transposed.h"

namespace marlo::kernel {

using runtime::DataType;
using runtime::DeviceCPU;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorCPU;
using runtime::TensorShape;

namespace {

constexpr size_t kBlock = 8;

using TensorPointer = std::shared_ptr<TensorCPU>;
using DevicePointer = std::shared_ptr<DeviceCPU>;

// The weights of one group, and where those of a pair of channels begin.
struct GroupWeights {
  const float* from;
  size_t outs, ins, taps;
  bool has_inputs_first;

  const float* of(size_t out, size_t in) const {
    return from + (has_inputs_first ? in * outs + out : out * ins + in) * taps;
  }
};

// Output channels `first` to `first + width` of one group, with input channels in blocks of `in_block`.
float* pack_width(const GroupWeights& weights, const std::vector<uint32_t>& taps, size_t first,
                  size_t width, size_t in_block, float* to) {
  for (size_t block = 0; block < weights.ins; block += in_block) {
    for (const uint32_t tap : taps) {
      for (size_t c = block; c < block + in_block; ++c) {
        for (size_t n = first; n < first + width; ++n) *to++ = weights.of(n, c)[tap];
      }
    }
  }
  return to;
}

// The taps of each window, in the order in which it takes them.
using Windows = std::vector<std::vector<uint32_t>>;

struct Widths {
  size_t widest;
  size_t in_block;
  bool has_inputs_first;  // weights are [G, C, N, H, W]
};

TensorPointer pack_in_widths(const TensorCPU& weight, DeviceCPU& device, const Widths& widths,
                             const Windows& windows) {
  const TensorShape& shape = weight.shape;
  const size_t in_axis = widths.has_inputs_first ? 1 : 2;
  const size_t out_axis = 3 - in_axis;
  const bool packable =
      shape.layout == LayoutType::GNCHW && shape.location == LocationType::MainMemory &&
      shape.data_type == DataType::FLOAT32 && shape.dims.size() == 5 &&
      shape.dims[out_axis] % kBlock == 0 && shape.dims[in_axis] % widths.in_block == 0;
  if (!packable) return nullptr;
  GroupWeights group = {static_cast<const float*>(weight.RawPointer()), shape.dims[out_axis],
                        shape.dims[in_axis], size_t{shape.dims[3]} * shape.dims[4],
                        widths.has_inputs_first};
  const auto count = static_cast<uint32_t>(runtime::ElementCount(shape));
  auto packed = device.CreateTensor(
      TensorShape({count}, shape.data_type, LayoutType::FLEXIABLE, shape.location), nullptr);
  auto* to = static_cast<float*>(packed->RawPointer());
  for (size_t g = 0; g < shape.dims[0]; ++g, group.from += group.outs * group.ins * group.taps) {
    size_t first = 0;
    for (size_t width = widths.widest; width >= kBlock; width /= 2) {
      for (; first + width <= group.outs; first += width) {
        for (const auto& taps : windows) {
          to = pack_width(group, taps, first, width, widths.in_block, to);
        }
      }
    }
  }
  return packed;
}

// All taps in one window.
TensorPointer pack_whole(const TensorCPU& weight, DeviceCPU& device, const Widths& widths) {
  std::vector<uint32_t> taps;
  if (weight.shape.dims.size() == 5)
    taps.resize(size_t{weight.shape.dims[3]} * weight.shape.dims[4]);
  std::iota(taps.begin(), taps.end(), 0u);
  return pack_in_widths(weight, device, widths, {taps});
}

// The places of a filter in windows of places that are so far apart.
Windows places_apart(uint32_t kernel, uint32_t apart) {
  Windows windows;
  for (uint32_t first = 0; first < std::min(kernel, apart); ++first) {
    std::vector<uint32_t>& places = windows.emplace_back();
    for (uint32_t place = first; place < kernel; place += apart) places.push_back(place);
  }
  return windows;
}

TensorPointer pack_transposed(const TensorCPU& weight, const Conv2dParams& p, DeviceCPU& device,
                              size_t widest) {
  Windows windows;
  const Windows columns = places_apart(p.kernel_x, conv::taps_apart(p.stride_x, p.dilation_x));
  for (const auto& rows : places_apart(p.kernel_y, conv::taps_apart(p.stride_y, p.dilation_y))) {
    for (const auto& places : columns) {
      std::vector<uint32_t>& taps = windows.emplace_back();
      taps.reserve(rows.size() * places.size());
      // A later place meets an earlier tap.
      for (const uint32_t y : rows) {
        for (const uint32_t x : places) {
          taps.push_back((p.kernel_y - 1 - y) * p.kernel_x + (p.kernel_x - 1 - x));
        }
      }
    }
  }
  return pack_in_widths(weight, device, {widest, kBlock, true}, windows);
}

}  // namespace

TensorPointer pack_in_widths_of_16(TensorPointer weight, DevicePointer device) {
  return pack_whole(*weight, *device, {16, kBlock, false});
}

TensorPointer pack_in_widths_of_32(TensorPointer weight, DevicePointer device) {
  return pack_whole(*weight, *device, {32, kBlock, false});
}

TensorPointer pack_planes_in_widths_of_16(TensorPointer weight, DevicePointer device) {
  return pack_whole(*weight, *device, {16, 1, false});
}

TensorPointer pack_planes_in_widths_of_32(TensorPointer weight, DevicePointer device) {
  return pack_whole(*weight, *device, {32, 1, false});
}

TensorPointer pack_transposed_in_widths_of_16(TensorPointer weight, const Conv2dParams& params,
                                              DevicePointer device) {
  return pack_transposed(*weight, params, *device, 16);
}

TensorPointer pack_transposed_in_widths_of_32(TensorPointer weight, const Conv2dParams& params,
                                              DevicePointer device) {
  return pack_transposed(*weight, params, *device, 32);
}

}  // namespace marlo::kernel
