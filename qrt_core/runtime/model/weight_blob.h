#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/visitor.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

/// Trained numbers as they are held in memory: the Base64 text of a little-endian float32 array.
using WeightBlob = std::string;

/// The text of `count` numbers.
QRT_API WeightBlob MakeWeightBlob(const float* numbers, size_t count);

/// The numbers of a text. Bytes at its end that make no whole number are left out.
QRT_API std::vector<float> WeightNumbers(const WeightBlob& blob);

/// One weight attribute: its member and its JSON key. One walk, and so one thread, makes and uses
/// it.
struct BlobAttribute {
  WeightBlob* blob;  ///< the member
  const char* key;   ///< its name in JSON
};

/// One attribute that is a list of weights, one per stacked layer. One walk, and so one thread,
/// makes and uses it.
struct BlobListAttribute {
  std::vector<WeightBlob>* blobs;  ///< the member
  const char* key;                 ///< its name in JSON
};

/// What becomes of weights in a visitor that is neither of the JSON form nor of the binary one.
enum class ForeignVisitor {
  refuse,         ///< throws
  visit_as_text,  ///< takes them as plain strings
};

/// Beside `Visitor`, on its thread: takes weights as texts, as the JSON forms do.
class WeightsAsText {
 public:
  virtual ~WeightsAsText() = default;
};

/// Visits weights: as Base64 strings in JSON; in the binary form as a count of numbers and that
/// many halves, truncated from the floats.
QRT_API void VisitBlobs(const std::shared_ptr<Visitor>& visitor,
                        std::initializer_list<BlobAttribute> attributes,
                        ForeignVisitor foreign = ForeignVisitor::refuse);

/// Visits lists of weights; in the binary form each as a count of weights, then these.
QRT_API void VisitBlobLists(const std::shared_ptr<Visitor>& visitor,
                            std::initializer_list<BlobListAttribute> attributes);

/// One of a layer's weights. It belongs to the layer, and is used on its thread.
struct LayerWeight {
  std::string key;      ///< its name in JSON
  size_t index = 0;     ///< its place in a list of weights
  bool listed = false;  ///< whether the attribute is a list
  WeightBlob* blob;     ///< the layer's own
};

class LayerInfo;

/// The weights of a layer in the order of its attributes: all that the binary form holds as halves.
/// (The slopes of an activation, which no form changes, are not among them.)
QRT_API std::vector<LayerWeight> WeightsOf(LayerInfo& layer);

}  // namespace marlo::runtime
