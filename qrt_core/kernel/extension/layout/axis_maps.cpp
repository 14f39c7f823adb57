#include <algorithm>
#include <numeric>

#include "qrt_core/kernel/extension/layout/axis_map.h"

// Where the elements of each description's output come from.

namespace marlo::kernel::axes {

using runtime::BroadcastToInfo;
using runtime::GatherInfo;
using runtime::LayerInfo;
using runtime::PadInfo;
using runtime::PadMode;
using runtime::StridedSliceInfo;

namespace {

using Places = std::vector<int32_t>;

// No dim grows beyond this by a description: what a file says would otherwise be taken for memory.
constexpr int64_t kMostPlaces = int64_t{1} << 31;

Places whole(uint32_t size) {
  Places places(size);
  std::iota(places.begin(), places.end(), 0);
  return places;
}

void make_whole(const Dims& input, AxisMaps& maps) {
  maps.dims = input;
  maps.places.clear();
  for (const uint32_t size : input) maps.places.push_back(whole(size));
}

// The place of an element that may lie outside of an axis; -1 for a constant.
int32_t place_of(PadMode mode, int64_t place, int64_t size) {
  if (place >= 0 && place < size) return static_cast<int32_t>(place);
  switch (mode) {
    case PadMode::Edge:
      return static_cast<int32_t>(place < 0 ? 0 : size - 1);
    case PadMode::Wrap:
      return static_cast<int32_t>((place % size + size) % size);
    case PadMode::Reflect: {
      if (size == 1) return 0;
      const int64_t period = 2 * (size - 1);
      const int64_t folded = (place % period + period) % period;
      return static_cast<int32_t>(folded < size ? folded : period - folded);
    }
    default:
      return -1;
  }
}

}  // namespace

bool is_pad(const LayerInfo* info) {
  const auto* pad = dynamic_cast<const PadInfo*>(info);
  return pad != nullptr && pad->mode <= static_cast<uint32_t>(PadMode::Wrap) &&
         pad->before.size() == pad->after.size();
}

bool map_pad(const LayerInfo& info, const Dims& input, AxisMaps& maps) {
  const auto& pad = static_cast<const PadInfo&>(info);
  if (pad.before.size() != input.size()) return false;
  const auto mode = static_cast<PadMode>(pad.mode);
  make_whole(input, maps);
  maps.value = pad.value;
  for (size_t k = 0; k < input.size(); ++k) {
    const int64_t size = input[k];
    const int64_t count = size + pad.before[k] + pad.after[k];
    if (count < 0 || count >= kMostPlaces) return false;
    if (size == 0 && count != 0 && mode != PadMode::Constant) return false;
    maps.places[k].resize(static_cast<size_t>(count));
    for (int64_t i = 0; i < count; ++i) {
      maps.places[k][static_cast<size_t>(i)] = place_of(mode, i - pad.before[k], size);
    }
    maps.dims[k] = static_cast<uint32_t>(count);
  }
  return true;
}

bool is_gather(const LayerInfo* info) {
  const auto* gather = dynamic_cast<const GatherInfo*>(info);
  return gather != nullptr && gather->indices.size() == count_of(gather->index_dims);
}

bool map_gather(const LayerInfo& info, const Dims& input, AxisMaps& maps) {
  const auto& gather = static_cast<const GatherInfo&>(info);
  const size_t axis = axis_of(gather.axis, input.size());
  if (axis == input.size()) return false;
  make_whole(input, maps);
  maps.places[axis].clear();
  for (const int32_t index : gather.indices) {
    const size_t place = axis_of(index, input[axis]);
    if (place == input[axis]) return false;
    maps.places[axis].push_back(static_cast<int32_t>(place));
  }
  const auto at = maps.dims.erase(maps.dims.begin() + static_cast<std::ptrdiff_t>(axis));
  maps.dims.insert(at, gather.index_dims.begin(), gather.index_dims.end());
  return true;
}

bool is_broadcast_to(const LayerInfo* info) {
  return dynamic_cast<const BroadcastToInfo*>(info) != nullptr;
}

bool map_broadcast_to(const LayerInfo& info, const Dims& input, AxisMaps& maps) {
  const auto& spread = static_cast<const BroadcastToInfo&>(info);
  if (!broadcast(input, spread.dims, maps.dims)) return false;
  maps.places.clear();
  const size_t more = maps.dims.size() - input.size();
  for (size_t k = 0; k < maps.dims.size(); ++k) {
    const bool repeats = k < more || input[k - more] == 1;
    maps.places.push_back(repeats ? Places(maps.dims[k], 0) : whole(maps.dims[k]));
  }
  return true;
}

bool is_strided_slice(const LayerInfo* info) {
  const auto* slice = dynamic_cast<const StridedSliceInfo*>(info);
  if (slice == nullptr) return false;
  const size_t count = slice->axes.size();
  return slice->starts.size() == count && slice->ends.size() == count &&
         slice->steps.size() == count &&
         std::none_of(slice->steps.begin(), slice->steps.end(), [](int32_t s) { return s == 0; });
}

bool map_strided_slice(const LayerInfo& info, const Dims& input, AxisMaps& maps) {
  const auto& slice = static_cast<const StridedSliceInfo&>(info);
  make_whole(input, maps);
  for (size_t k = 0; k < slice.axes.size(); ++k) {
    const size_t axis = axis_of(slice.axes[k], input.size());
    if (axis == input.size()) return false;
    const int64_t size = input[axis];
    const int64_t step = slice.steps[k];
    // Cut to the axis: backward from its last element, and up to the one before its first.
    const auto cut = [size, step](int64_t place) {
      const int64_t from_front = place < 0 ? place + size : place;
      return step > 0 ? std::clamp<int64_t>(from_front, 0, size)
                      : std::clamp<int64_t>(from_front, -1, size - 1);
    };
    const int64_t end = cut(slice.ends[k]);
    Places& places = maps.places[axis];
    places.clear();
    for (int64_t i = cut(slice.starts[k]); step > 0 ? i < end : i > end; i += step) {
      places.push_back(static_cast<int32_t>(i));
    }
    maps.dims[axis] = static_cast<uint32_t>(places.size());
  }
  return true;
}

}  // namespace marlo::kernel::axes
