#pragma once

#include <map>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/visitor.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {

/// Why an object of a model file, once written, couldn't be read again, with the place of the part
/// that it is about. Empty for one that could, and for an object of another class.
/// @throws std::runtime_error as a walk that writes it would
std::string WriteFault(Serializable& object, bool as_json);

/// Walks as a writer does, writes nothing, and finds what its reader couldn't follow. Classes that
/// choose the class of a part by a name or a code compare the two when they are given one.
class WriteCheck final : public Visitor {
 public:
  explicit WriteCheck(bool as_json);
  /// For a part of `parent`, which outlives it.
  WriteCheck(WriteCheck& parent, const char* key);

  QRT_FOR_EACH_ATTRIBUTE_TYPE(QRT_DECLARE_VISIT)

  /// Notes a fault of the object that is being walked; the first one counts.
  void Refuse(const char* format, ...) QRT_PRINTF_LIKE(2);

  /// The first fault, or an empty text.
  const std::string& fault() const { return fault_; }

 private:
  std::string path() const;
  void note(const void* value, const char* key);

  bool as_json_;
  WriteCheck* parent_ = nullptr;
  std::string key_;
  std::map<std::string, const void*> members_;  // of a JSON object
  std::string fault_;                           // of the root
};

}  // namespace marlo::runtime
