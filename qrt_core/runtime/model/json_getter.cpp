#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>
#include <type_traits>
#include <unordered_map>

#include "qrt_core/runtime/model/json_document.h"
#include "qrt_core/runtime/model/json_visitor.h"
#include "qrt_core/runtime/model/serializable.h"
#include "qrt_core/runtime/model/weight_places_internal.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {

using utility::Assert;

namespace {

constexpr char kVersionKey[] = "serialization_protocol_version";

// Objects of no more members are searched one by one.
constexpr uint32_t kScannedMembers = 32;

// Whether a number is whole, however it is written: 3, 3.0 and 3e0 are one number.
bool is_integer(const JSONValue& value) {
  if (value.IsInt64() || value.IsUint64()) return true;
  if (!value.IsDouble()) return false;
  const double number = value.GetDouble();
  return number >= -0x1p63 && number < 0x1p64 && number == std::trunc(number);
}

// The integer that a number is, before it is cut to an attribute's width.
uint64_t integer_in(const JSONValue& value) {
  if (value.IsUint64()) return value.GetUint64();
  if (value.IsInt64()) return static_cast<uint64_t>(value.GetInt64());
  const double number = value.GetDouble();
  return number < 0 ? static_cast<uint64_t>(static_cast<int64_t>(number))
                    : static_cast<uint64_t>(number);
}

}  // namespace

// What the getters of one document share: the steps left to them, and where the members of its
// large objects are. An object is scanned once however often it is read.
class JSONNodeGetter::Walk {
 public:
  explicit Walk(uint64_t steps) : steps_left_(steps) {}

  bool take(uint64_t steps) {
    if (steps > steps_left_) return false;
    steps_left_ -= steps;
    return true;
  }

  WeightPlaces* places = nullptr;  // of weights that are left in the file; may be null
  bool has_met_mark = false;       // where no weight was expected

  // The first member of that name, or null.
  JSONValue* find(JSONValue& object, const char* key) {
    auto [entry, is_new] = members_.try_emplace(&object);
    if (is_new) {
      for (auto& member : object.GetObject()) {
        const std::string_view name(member.name.GetString(), member.name.GetStringLength());
        entry->second.emplace(name, &member.value);
      }
    }
    const auto found = entry->second.find(key);
    return found == entry->second.end() ? nullptr : found->second;
  }

 private:
  uint64_t steps_left_;
  std::unordered_map<const JSONValue*, std::unordered_map<std::string_view, JSONValue*>> members_;
};

JSONNodeGetter::JSONNodeGetter(JSONValue& value, uint32_t version) : value_(value) {
  if (version != 0) {
    _serialization_protocol_version = version;
    return;
  }
  const JSONValue* found = find(kVersionKey);
  if (found == nullptr) return;
  _serialization_protocol_version = number_in<uint32_t>(*found, kVersionKey);
  Assert(_serialization_protocol_version <= __SERIALIZATION_PROTOCOL_VERSION__,
         "_serialization_protocol_version > __SERIALIZATION_PROTOCOL_VERSION__.");
}

// A nested object carries no version of its own.
JSONNodeGetter::JSONNodeGetter(JSONValue& value, const JSONNodeGetter& parent, const char* key)
    : value_(value), parent_(&parent), key_(key), walk_(parent.walk_) {
  _serialization_protocol_version = parent._serialization_protocol_version;
}

uint32_t JSONNodeGetter::MemberCount() const {
  return value_.IsObject() ? value_.MemberCount() : 0;
}

void JSONNodeGetter::LimitSteps(uint64_t steps) { walk_ = std::make_shared<Walk>(steps); }

void JSONNodeGetter::LeaveWeights(WeightPlaces& places) {
  Assert(walk_ != nullptr, "a walk without a limit of steps leaves no weights");
  walk_->places = &places;
}

bool JSONNodeGetter::HasMetMark() const { return walk_ != nullptr && walk_->has_met_mark; }

bool JSONNodeGetter::is_mark(const char* text) const {
  return walk_ != nullptr && walk_->places != nullptr && *text == kLeftInFile;
}

// A text that isn't a weight.
const char* JSONNodeGetter::unmarked(const char* text) const {
  if (is_mark(text)) walk_->has_met_mark = true;
  return text;
}

void JSONNodeGetter::take_weight(const char* text, std::string& weight) const {
  if (!is_mark(text)) {
    weight = text;
    return;
  }
  weight.clear();
  char* rest = nullptr;
  const uint64_t begin = std::strtoull(text + 1, &rest, 10);
  walk_->places->note(weight, {begin, std::strtoull(rest, nullptr, 10), true});
}

void JSONNodeGetter::VisitWeight(std::string* weight, const char* key) {
  if (walk_ != nullptr && walk_->places != nullptr) walk_->places->forget(*weight);
  take_weight(text_at(key), *weight);
}

void JSONNodeGetter::VisitWeights(std::vector<std::string>* weights, const char* key) {
  if (walk_ != nullptr && walk_->places != nullptr) walk_->places->forget(*weights);
  weights->clear();
  const JSONValue* array = array_at(key);
  if (array == nullptr) return;
  weights->resize(array->Size());
  for (uint32_t i = 0; i < array->Size(); ++i) {
    take_weight(text_in((*array)[i], key), (*weights)[i]);
  }
}

void JSONNodeGetter::take_steps(uint64_t steps, const char* key) const {
  if (walk_ == nullptr || walk_->take(steps)) return;
  Assert(false, "\"%s\" in %s: the parts of this document are read again too often",
         key == nullptr ? "" : key, path().c_str());
}

// The value of a key, or null where it is absent.
JSONValue* JSONNodeGetter::find(const char* key) const {
  if (key == nullptr || !value_.IsObject()) return nullptr;
  if (walk_ != nullptr && value_.MemberCount() > kScannedMembers) {
    JSONValue* const found = walk_->find(value_, key);
    return found == nullptr || found->IsNull() ? nullptr : found;
  }
  const auto member = value_.FindMember(key);
  if (member == value_.MemberEnd() || member->value.IsNull()) return nullptr;
  return &member->value;
}

const JSONValue* JSONNodeGetter::array_at(const char* key) const {
  const JSONValue* found = find(key);
  if (found == nullptr) return nullptr;
  if (!found->IsArray()) refuse(*found, key, "an array");
  take_steps(found->Size(), key);
  return found;
}

void JSONNodeGetter::refuse(const JSONValue& value, const char* key, const char* expected) const {
  Assert(false, "\"%s\" in %s: expected %s, found %s", key, path().c_str(), expected,
         json::kind_of(value));
  std::abort();
}

// The object's place in the document, for messages.
std::string JSONNodeGetter::path() const {
  if (parent_ == nullptr) return "the document";
  if (parent_->parent_ == nullptr) return key_;
  return parent_->path() + "." + key_;
}

const char* JSONNodeGetter::text_in(const JSONValue& value, const char* key) const {
  if (!value.IsString()) refuse(value, key, "a string");
  return value.GetString();
}

template <typename T>
T JSONNodeGetter::number_in(const JSONValue& value, const char* key) const {
  if (value.IsNull()) return T();
  if constexpr (std::is_integral_v<T>) {
    if (!is_integer(value)) refuse(value, key, "an integer");
    return static_cast<T>(integer_in(value));
  } else {
    if (!value.IsNumber()) refuse(value, key, "a number");
    if constexpr (std::is_same_v<T, half_float::half>) {
      return half_float::half(static_cast<float>(value.GetDouble()));
    } else {
      return static_cast<T>(value.GetDouble());
    }
  }
}

template <typename T>
void JSONNodeGetter::read_number(T& value, const char* key) const {
  const JSONValue* found = find(key);
  value = found == nullptr ? T() : number_in<T>(*found, key);
}

template <typename T>
void JSONNodeGetter::read_numbers(std::vector<T>& values, const char* key) const {
  const JSONValue* array = array_at(key);
  if (array == nullptr) return;
  for (const JSONValue& element : array->GetArray()) values.push_back(number_in<T>(element, key));
}

// Each inner vector begins with as many zeros as it has numbers; readers rely on the doubled
// length.
void JSONNodeGetter::Visit(std::vector<std::vector<uint16_t>>* value, const char* key) {
  const JSONValue* array = array_at(key);
  if (array == nullptr) return;
  for (const JSONValue& element : array->GetArray()) {
    if (!element.IsArray()) refuse(element, key, "an array of arrays");
    take_steps(element.Size(), key);
    std::vector<uint16_t> inner(element.Size());
    for (const JSONValue& number : element.GetArray()) {
      inner.push_back(number_in<uint16_t>(number, key));
    }
    value->push_back(std::move(inner));
  }
}

void JSONNodeGetter::Visit(std::vector<std::string>* value, const char* key) {
  value->clear();
  const JSONValue* array = array_at(key);
  if (array == nullptr) return;
  value->reserve(array->Size());
  for (const JSONValue& element : array->GetArray()) {
    value->emplace_back(unmarked(text_in(element, key)));
  }
}

void JSONNodeGetter::Visit(Serializable* value, const char* key) {
  take_steps(1, key);
  JSONValue* found = find(key);
  if (found == nullptr) return;
  Assert(found->IsObject() || found->IsArray(), "Created node is a unkown value.");
  value->VisitAttr(std::shared_ptr<JSONNodeGetter>(new JSONNodeGetter(*found, *this, key)));
}

// The text of a key that has to be there.
const char* JSONNodeGetter::text_at(const char* key) const {
  const JSONValue* found = find(key);
  if (found == nullptr) {
    Assert(false, "\"%s\" is missing in %s: expected a string", key == nullptr ? "" : key,
           path().c_str());
    return "";
  }
  return text_in(*found, key);
}

void JSONNodeGetter::Visit(std::string* value, const char* key) { *value = unmarked(text_at(key)); }

// A char attribute begins a text with a terminator, as writers take it, and what is read is laid
// over its beginning: no file can write beyond the text that stands there, or the one char.
void JSONNodeGetter::Visit(char* value, const char* key) {
  std::string text;
  Visit(&text, key);
  const size_t room = std::max<size_t>(std::strlen(value), 1);
  if (text.size() > room) {
    Assert(false, "\"%s\" in %s: a text of %zu characters, and room for %zu", key, path().c_str(),
           text.size(), room);
  }
  std::memcpy(value, text.data(), text.size());
}

void JSONNodeGetter::Visit(bool* value, const char* key) {
  const JSONValue* found = find(key);
  *value = found != nullptr && found->IsTrue();
}

#define QRT_READ_NUMBERS(type)                                            \
  void JSONNodeGetter::Visit(std::vector<type>* value, const char* key) { \
    read_numbers(*value, key);                                            \
  }
QRT_READ_NUMBERS(uint64_t)
QRT_READ_NUMBERS(uint32_t)
QRT_READ_NUMBERS(int64_t)
QRT_READ_NUMBERS(int32_t)
QRT_READ_NUMBERS(int16_t)
QRT_READ_NUMBERS(uint16_t)
QRT_READ_NUMBERS(half_float::half)
QRT_READ_NUMBERS(float)
#undef QRT_READ_NUMBERS

#define QRT_READ_NUMBER(type) \
  void JSONNodeGetter::Visit(type* value, const char* key) { read_number(*value, key); }
QRT_READ_NUMBER(uint64_t)
QRT_READ_NUMBER(int64_t)
QRT_READ_NUMBER(uint32_t)
QRT_READ_NUMBER(int32_t)
QRT_READ_NUMBER(uint16_t)
QRT_READ_NUMBER(int16_t)
QRT_READ_NUMBER(uint8_t)
QRT_READ_NUMBER(int8_t)
QRT_READ_NUMBER(double)
QRT_READ_NUMBER(half_float::half)
QRT_READ_NUMBER(float)
#undef QRT_READ_NUMBER

}  // namespace marlo::runtime
