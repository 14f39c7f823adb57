#include "qrt_core/runtime/model/weight_blob.h"

#include <algorithm>
#include <cstring>
#include <list>

#include "qrt_core/runtime/model/base64.h"
#include "qrt_core/runtime/model/file_visitor.h"
#include "qrt_core/runtime/model/json_visitor.h"
#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/runtime/model/weight_places_internal.h"
#include "qrt_core/runtime/model/write_check_internal.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {

using utility::Assert;

namespace {

constexpr uint64_t kChunkNumbers = 1 << 14;

// An empty count leaves the blob as it is.
void read_half_weights(FILEReader& reader, WeightBlob& blob) {
  uint64_t count = 0;
  reader.Visit(&count, nullptr);
  if (count == 0) return;
  reader.Require<half_float::half>(count, sizeof(half_float::half));
  if (reader.places() != nullptr) {
    reader.places()->note(blob, {reader.SkipHalves(count), count, false});
    return;
  }
  std::vector<float> numbers;
  std::vector<half_float::half> chunk;
  // A stream of unknown size may hold less than it says: memory follows what has come.
  for (uint64_t done = 0; done < count; done += chunk.size()) {
    chunk.resize(std::min(kChunkNumbers, count - done));
    reader.ReadHalves(chunk.data(), chunk.size());
    numbers.insert(numbers.end(), chunk.begin(), chunk.end());
  }
  blob = MakeWeightBlob(numbers.data(), numbers.size());
}

void write_half_weights(FILEWriter& writer, const WeightBlob& blob) {
  const std::vector<float> numbers = WeightNumbers(blob);
  uint64_t count = numbers.size();
  writer.Visit(&count, nullptr);
  for (const float number : numbers) {
    half_float::half truncated(number);
    writer.Visit(&truncated, nullptr);
  }
}

void read_half_weight_list(FILEReader& reader, std::vector<WeightBlob>& blobs) {
  if (reader.places() != nullptr) reader.places()->forget(blobs);
  blobs.clear();
  uint64_t count = 0;
  reader.Visit(&count, nullptr);
  reader.Require<std::string>(count, sizeof(uint64_t));
  // A list in place, as the places of weights are told by their addresses: memory for the empty texts
  // of a stream of unknown size follows what has come.
  std::list<WeightBlob> read;
  for (uint64_t i = 0; i < count; ++i) read_half_weights(reader, read.emplace_back());
  blobs.resize(read.size());
  size_t place = 0;
  for (WeightBlob& blob : read) {
    if (reader.places() != nullptr) reader.places()->move(blob, blobs[place]);
    blobs[place++] = std::move(blob);
  }
}

void write_half_weight_list(FILEWriter& writer, const std::vector<WeightBlob>& blobs) {
  uint64_t count = blobs.size();
  writer.Visit(&count, nullptr);
  for (const WeightBlob& blob : blobs) write_half_weights(writer, blob);
}

bool takes_text(const std::shared_ptr<Visitor>& visitor) {
  return std::dynamic_pointer_cast<JSONNodeSetter>(visitor) != nullptr ||
         std::dynamic_pointer_cast<WriteCheck>(visitor) != nullptr ||
         std::dynamic_pointer_cast<WeightsAsText>(visitor) != nullptr;
}

// Passes over all attributes but weights.
class WeightCollector final : public Visitor {
 public:
#define QRT_PASS_OVER(type) \
  void Visit(type*, const char*) override {}
  QRT_FOR_EACH_ATTRIBUTE_TYPE(QRT_PASS_OVER)
#undef QRT_PASS_OVER

  void collect(const BlobAttribute& attribute) {
    weights.push_back({attribute.key, 0, false, attribute.blob});
  }

  void collect(const BlobListAttribute& attribute) {
    for (WeightBlob& blob : *attribute.blobs) {
      const auto index = static_cast<size_t>(&blob - attribute.blobs->data());
      weights.push_back({attribute.key, index, true, &blob});
    }
  }

  std::vector<LayerWeight> weights;
};

}  // namespace

WeightBlob MakeWeightBlob(const float* numbers, size_t count) {
  return Base64Encode(reinterpret_cast<const unsigned char*>(numbers), count * sizeof(float));
}

std::vector<float> WeightNumbers(const WeightBlob& blob) {
  const std::string bytes = Base64Decode(blob);
  std::vector<float> numbers(bytes.size() / sizeof(float));
  if (!numbers.empty()) std::memcpy(numbers.data(), bytes.data(), numbers.size() * sizeof(float));
  return numbers;
}

void VisitBlobs(const std::shared_ptr<Visitor>& visitor,
                std::initializer_list<BlobAttribute> attributes, ForeignVisitor foreign) {
  if (const auto reader = std::dynamic_pointer_cast<FILEReader>(visitor)) {
    for (const auto& [blob, key] : attributes) read_half_weights(*reader, *blob);
  } else if (const auto writer = std::dynamic_pointer_cast<FILEWriter>(visitor)) {
    for (const auto& [blob, key] : attributes) write_half_weights(*writer, *blob);
  } else if (const auto getter = std::dynamic_pointer_cast<JSONNodeGetter>(visitor)) {
    for (const auto& [blob, key] : attributes) getter->VisitWeight(blob, key);
  } else if (const auto collector = std::dynamic_pointer_cast<WeightCollector>(visitor)) {
    for (const BlobAttribute& attribute : attributes) collector->collect(attribute);
  } else {
    Assert(foreign == ForeignVisitor::visit_as_text || takes_text(visitor), "Not Implemented.");
    for (const auto& [blob, key] : attributes) visitor->Visit(blob, key);
  }
}

void VisitBlobLists(const std::shared_ptr<Visitor>& visitor,
                    std::initializer_list<BlobListAttribute> attributes) {
  if (const auto reader = std::dynamic_pointer_cast<FILEReader>(visitor)) {
    for (const auto& [blobs, key] : attributes) read_half_weight_list(*reader, *blobs);
  } else if (const auto writer = std::dynamic_pointer_cast<FILEWriter>(visitor)) {
    for (const auto& [blobs, key] : attributes) write_half_weight_list(*writer, *blobs);
  } else if (const auto getter = std::dynamic_pointer_cast<JSONNodeGetter>(visitor)) {
    for (const auto& [blobs, key] : attributes) getter->VisitWeights(blobs, key);
  } else if (const auto collector = std::dynamic_pointer_cast<WeightCollector>(visitor)) {
    for (const BlobListAttribute& attribute : attributes) collector->collect(attribute);
  } else {
    Assert(takes_text(visitor), "Not Implemented.");
    for (const auto& [blobs, key] : attributes) visitor->Visit(blobs, key);
  }
}

std::vector<LayerWeight> WeightsOf(LayerInfo& layer) {
  const auto collector = std::make_shared<WeightCollector>();
  // A walk gives an object its class's name; one that only looks leaves the name that was read.
  const std::string name = layer.serializable_type;
  layer.VisitAttr(collector);
  layer.serializable_type = name;
  return std::move(collector->weights);
}

}  // namespace marlo::runtime
