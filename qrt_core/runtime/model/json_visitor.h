#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/visitor.h"
#include "qrt_core/utility/export.h"

namespace rapidjson {
class CrtAllocator;
template <typename CharType>
struct UTF8;
template <typename BaseAllocator>
class MemoryPoolAllocator;
template <typename Encoding, typename Allocator>
class GenericValue;
}  // namespace rapidjson

namespace marlo::runtime {

class WeightPlaces;

using JSONAllocator = rapidjson::MemoryPoolAllocator<rapidjson::CrtAllocator>;
using JSONValue = rapidjson::GenericValue<rapidjson::UTF8<char>, JSONAllocator>;

/// Reads attributes from a RapidJSON object.
///
/// An absent key, or one whose value is null, sets a number to 0 and a bool to false, empties a
/// vector of strings, and leaves other vectors and nested objects as they are. A number that
/// doesn't fit its attribute is cut to the attribute's width. Vectors of numbers are appended to.
/// An absent string, and a value of another kind than its attribute, throw std::runtime_error.
///
/// One object belongs to one thread.
class QRT_API JSONNodeGetter final : public Visitor {
 public:
  /// @param value the object to read, which must outlive the visitor
  /// @param version protocol version of the data; 0 takes it from the object's member
  ///   "serialization_protocol_version", or the current one without such a member
  /// @throws std::runtime_error for a version that is newer than this library
  JSONNodeGetter(JSONValue& value, uint32_t version);

  QRT_FOR_EACH_ATTRIBUTE_TYPE(QRT_DECLARE_VISIT)

  /// Members of the object being read; 0 for an array.
  uint32_t MemberCount() const;

  /// Lets the walk take at most `steps` steps in all; one step is an array element or a nested
  /// object.
  ///
  /// An id that a document lists many times is read as many times, arrays and all; the limit keeps
  /// a small text from growing into gigabytes or hours.
  void LimitSteps(uint64_t steps);

  /// Lets weights that the document only tells the places of stay where they are. For a walk whose
  /// steps are limited.
  /// @param places takes the places; it outlives the walk
  void LeaveWeights(WeightPlaces& places);
  /// Whether another text than a weight was such a place.
  bool HasMetMark() const;
  /// Reads a weight, or its place.
  void VisitWeight(std::string* weight, const char* key);
  /// Reads a list of them.
  void VisitWeights(std::vector<std::string>* weights, const char* key);

 private:
  class Walk;

  JSONNodeGetter(JSONValue& value, const JSONNodeGetter& parent, const char* key);

  JSONValue* find(const char* key) const;
  const JSONValue* array_at(const char* key) const;
  void take_steps(uint64_t steps, const char* key) const;
  [[noreturn]] void refuse(const JSONValue& value, const char* key, const char* expected) const;
  std::string path() const;
  const char* text_in(const JSONValue& value, const char* key) const;
  const char* text_at(const char* key) const;
  const char* unmarked(const char* text) const;
  bool is_mark(const char* text) const;
  void take_weight(const char* text, std::string& weight) const;

  template <typename T>
  T number_in(const JSONValue& value, const char* key) const;
  template <typename T>
  void read_number(T& value, const char* key) const;
  template <typename T>
  void read_numbers(std::vector<T>& values, const char* key) const;

  JSONValue& value_;
  const JSONNodeGetter* parent_ = nullptr;
  const char* key_ = nullptr;
  std::shared_ptr<Walk> walk_;
};

/// Appends attributes to a RapidJSON object. One object, and its document, belong to one thread.
class QRT_API JSONNodeSetter final : public Visitor {
 public:
  /// @param object the object to fill
  /// @param allocator of the document that `object` belongs to
  /// @param write_version whether the protocol version becomes the first member
  JSONNodeSetter(JSONValue& object, JSONAllocator& allocator, bool write_version);

  QRT_FOR_EACH_ATTRIBUTE_TYPE(QRT_DECLARE_VISIT)

 private:
  void append(const char* key, JSONValue& value);
  template <typename T>
  void append_number(const char* key, T value);
  template <typename T>
  void append_numbers(const char* key, const std::vector<T>& values);

  JSONValue& object_;
  JSONAllocator& allocator_;
};

}  // namespace marlo::runtime
