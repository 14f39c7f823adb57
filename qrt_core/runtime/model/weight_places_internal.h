#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "qrt_core/runtime/model/weight_blob.h"

// Weights that stay in the file until their layer is made.

namespace marlo::runtime {

class LayerInfo;
class Serializable;

/// Where the weights of a tree stand that was read without them. It belongs to one thread.
class WeightPlaces {
 public:
  /// A weight in the file: halves, or Base64 text.
  struct Place {
    uint64_t begin = 0;    ///< its first byte
    uint64_t count = 0;    ///< so many halves, or bytes of text
    bool is_text = false;  ///< else halves
  };

  /// @param file that the tree is read from, which can be read again at any place; not owned
  explicit WeightPlaces(std::FILE* file) : file_(file) {}

  /// Remembers that an empty weight of the tree stands in the file.
  void note(const WeightBlob& blob, const Place& place) { places_[&blob] = place; }
  void forget(const WeightBlob& blob) { places_.erase(&blob); }
  /// A weight gets another address.
  void move(const WeightBlob& from, const WeightBlob& to);
  /// Forgets weights, before their memory may become that of others.
  void forget(const std::vector<WeightBlob>& blobs);

  /// Reads the weights of a layer that were left in the file.
  /// @throws utility::Error for a file that has been cut short meanwhile
  void fill(LayerInfo& layer) const;
  /// Takes them out of the tree again.
  void empty(LayerInfo& layer) const;

 private:
  void read(const Place& place, WeightBlob& blob) const;

  std::FILE* file_;
  std::unordered_map<const WeightBlob*, Place> places_;
};

/// A layer that has its weights while this lives, or for good where somebody keeps it meanwhile.
class FilledLayer {
 public:
  /// @param weights null where the tree holds them
  /// @param info may be null; outlives the object
  FilledLayer(const WeightPlaces* weights, const std::shared_ptr<LayerInfo>& info)
      : weights_(info != nullptr ? weights : nullptr), info_(info), owners_(info.use_count()) {
    if (weights_ != nullptr) weights_->fill(*info_);
  }
  FilledLayer(const FilledLayer&) = delete;
  FilledLayer& operator=(const FilledLayer&) = delete;
  ~FilledLayer() {
    if (weights_ != nullptr && info_.use_count() <= owners_) weights_->empty(*info_);
  }

 private:
  const WeightPlaces* weights_;
  const std::shared_ptr<LayerInfo>& info_;
  long owners_;
};

/// A JSON text whose long strings are left in the file, each with a mark and its place for it.
struct ShortJson {
  std::string text;
  uint64_t length = 0;  ///< bytes of the whole text
};

/// Reads a JSON text so. @return nothing where it has to be read whole
std::optional<ShortJson> ReadShortJson(std::FILE* file);

/// What the text of a weight begins with that was left in the file; its place follows.
constexpr char kLeftInFile = '\x7f';

/// Reads an object from a JSON text and leaves long weights in the file.
/// @return whether that could be done; else the object is to be thrown away, and read whole. It may
///   be that the text is no such object.
/// @throws utility::Error as `Serializable::FromJsonString`
bool ReadJsonWithoutWeights(Serializable& object, const ShortJson& json, WeightPlaces& places);

}  // namespace marlo::runtime
