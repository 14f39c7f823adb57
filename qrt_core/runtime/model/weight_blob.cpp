#include "qrt_core/runtime/model/weight_blob.h"

#include <algorithm>
#include <cstring>

#include "qrt_core/runtime/model/base64.h"
#include "qrt_core/runtime/model/file_visitor.h"
#include "qrt_core/runtime/model/json_visitor.h"
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
  std::vector<float> numbers;
  std::vector<half_float::half> chunk;
  // A stream of unknown size may hold less than it says: memory follows what has come.
  for (uint64_t done = 0; done < count; done += chunk.size()) {
    chunk.resize(std::min(kChunkNumbers, count - done));
    reader.ReadHalves(chunk.data(), chunk.size());
    numbers.insert(numbers.end(), chunk.begin(), chunk.end());
  }
  blob = Base64Encode(reinterpret_cast<const unsigned char*>(numbers.data()),
                      numbers.size() * sizeof(float));
}

void write_half_weights(FILEWriter& writer, const WeightBlob& blob) {
  const std::string bytes = Base64Decode(blob);
  uint64_t count = bytes.size() / sizeof(float);
  writer.Visit(&count, nullptr);
  for (uint64_t i = 0; i < count; ++i) {
    float number;
    std::memcpy(&number, bytes.data() + i * sizeof(float), sizeof number);
    half_float::half truncated(number);
    writer.Visit(&truncated, nullptr);
  }
}

void read_half_weight_list(FILEReader& reader, std::vector<WeightBlob>& blobs) {
  blobs.clear();
  uint64_t count = 0;
  reader.Visit(&count, nullptr);
  reader.Require<std::string>(count, sizeof(uint64_t));
  for (uint64_t i = 0; i < count; ++i) {
    WeightBlob blob;
    read_half_weights(reader, blob);
    blobs.push_back(std::move(blob));
  }
}

void write_half_weight_list(FILEWriter& writer, const std::vector<WeightBlob>& blobs) {
  uint64_t count = blobs.size();
  writer.Visit(&count, nullptr);
  for (const WeightBlob& blob : blobs) write_half_weights(writer, blob);
}

bool is_json(const std::shared_ptr<Visitor>& visitor) {
  return std::dynamic_pointer_cast<JSONNodeGetter>(visitor) != nullptr ||
         std::dynamic_pointer_cast<JSONNodeSetter>(visitor) != nullptr;
}

}  // namespace

void VisitBlobs(const std::shared_ptr<Visitor>& visitor,
                std::initializer_list<BlobAttribute> attributes, ForeignVisitor foreign) {
  if (const auto reader = std::dynamic_pointer_cast<FILEReader>(visitor)) {
    for (const auto& [blob, key] : attributes) read_half_weights(*reader, *blob);
  } else if (const auto writer = std::dynamic_pointer_cast<FILEWriter>(visitor)) {
    for (const auto& [blob, key] : attributes) write_half_weights(*writer, *blob);
  } else {
    Assert(foreign == ForeignVisitor::visit_as_text || is_json(visitor), "Not Implemented.");
    for (const auto& [blob, key] : attributes) visitor->Visit(blob, key);
  }
}

void VisitBlobLists(const std::shared_ptr<Visitor>& visitor,
                    std::initializer_list<BlobListAttribute> attributes) {
  if (const auto reader = std::dynamic_pointer_cast<FILEReader>(visitor)) {
    for (const auto& [blobs, key] : attributes) read_half_weight_list(*reader, *blobs);
  } else if (const auto writer = std::dynamic_pointer_cast<FILEWriter>(visitor)) {
    for (const auto& [blobs, key] : attributes) write_half_weight_list(*writer, *blobs);
  } else {
    Assert(is_json(visitor), "Not Implemented.");
    for (const auto& [blobs, key] : attributes) visitor->Visit(blobs, key);
  }
}

}  // namespace marlo::runtime
