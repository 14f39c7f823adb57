#include <algorithm>

#include "qrt_core/runtime/model/base64.h"
#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/runtime/model/weight_places_internal.h"
#include "qrt_core/utility/half.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {
namespace {

// A multiple of three numbers ends where a group of four characters does.
constexpr uint64_t kNumbersAtOnce = 3 << 12;

void read_at(std::FILE* file, void* to, uint64_t size) {
  utility::Assert(std::fread(to, 1, size, file) == size,
                  "the file was cut short while it was loaded");
}

}  // namespace

void WeightPlaces::forget(const std::vector<WeightBlob>& blobs) {
  for (const WeightBlob& blob : blobs) places_.erase(&blob);
}

void WeightPlaces::move(const WeightBlob& from, const WeightBlob& to) {
  const auto found = places_.find(&from);
  if (found == places_.end()) return;
  const Place place = found->second;
  places_.erase(found);
  places_[&to] = place;
}

void WeightPlaces::read(const Place& place, WeightBlob& blob) const {
  utility::Assert(fseeko(file_, static_cast<off_t>(place.begin), SEEK_SET) == 0,
                  "the file can't be read again");
  if (place.is_text) {
    blob.resize(place.count);
    return read_at(file_, blob.data(), place.count);
  }
  blob.clear();
  blob.reserve((place.count * sizeof(float) + 2) / 3 * 4);
  std::vector<half_float::half> halves;
  std::vector<float> numbers;
  for (uint64_t done = 0; done < place.count; done += halves.size()) {
    halves.resize(std::min(kNumbersAtOnce, place.count - done));
    read_at(file_, halves.data(), halves.size() * sizeof(half_float::half));
    numbers.assign(halves.begin(), halves.end());
    blob += MakeWeightBlob(numbers.data(), numbers.size());
  }
}

void WeightPlaces::fill(LayerInfo& layer) const {
  for (const LayerWeight& weight : WeightsOf(layer)) {
    const auto found = places_.find(weight.blob);
    if (found != places_.end()) read(found->second, *weight.blob);
  }
}

void WeightPlaces::empty(LayerInfo& layer) const {
  for (const LayerWeight& weight : WeightsOf(layer)) {
    if (places_.count(weight.blob) != 0) WeightBlob().swap(*weight.blob);
  }
}

}  // namespace marlo::runtime
