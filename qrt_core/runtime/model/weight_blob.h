#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/visitor.h"

namespace marlo::runtime {

/// Trained numbers as they are held in memory: the Base64 text of a little-endian float32 array.
using WeightBlob = std::string;

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

/// Visits weights: as Base64 strings in JSON; in the binary form as a count of numbers and that
/// many halves, truncated from the floats.
void VisitBlobs(const std::shared_ptr<Visitor>& visitor,
                std::initializer_list<BlobAttribute> attributes,
                ForeignVisitor foreign = ForeignVisitor::refuse);

/// Visits lists of weights; in the binary form each as a count of weights, then these.
void VisitBlobLists(const std::shared_ptr<Visitor>& visitor,
                    std::initializer_list<BlobListAttribute> attributes);

}  // namespace marlo::runtime
