#include <type_traits>

#include "qrt_core/runtime/model/json_document.h"
#include "qrt_core/runtime/model/json_visitor.h"
#include "qrt_core/runtime/model/serializable.h"

namespace marlo::runtime {
namespace {

// A number in the form that its JSON text keeps: integers by sign, everything else as a double.
template <typename T>
JSONValue value_of(T number) {
  if constexpr (!std::is_integral_v<T>) {
    return JSONValue(static_cast<double>(static_cast<float>(number)));
  } else if constexpr (std::is_signed_v<T>) {
    return JSONValue(static_cast<int64_t>(number));
  } else {
    return JSONValue(static_cast<uint64_t>(number));
  }
}

template <>
JSONValue value_of(double number) {
  return JSONValue(number);
}

template <typename T>
JSONValue array_of(const std::vector<T>& values, JSONAllocator& allocator) {
  JSONValue array(rapidjson::kArrayType);
  array.Reserve(static_cast<rapidjson::SizeType>(values.size()), allocator);
  for (const T& value : values) array.PushBack(value_of(value), allocator);
  return array;
}

// A JSON string ends at the first NUL of the text.
JSONValue text_of(const char* text, JSONAllocator& allocator) { return JSONValue(text, allocator); }

}  // namespace

JSONNodeSetter::JSONNodeSetter(JSONValue& object, JSONAllocator& allocator, bool write_version)
    : object_(object), allocator_(allocator) {
  if (write_version) {
    append_number("serialization_protocol_version", _serialization_protocol_version);
  }
}

void JSONNodeSetter::append(const char* key, JSONValue& value) {
  object_.AddMember(text_of(key, allocator_), value, allocator_);
}

template <typename T>
void JSONNodeSetter::append_number(const char* key, T value) {
  JSONValue number = value_of(value);
  append(key, number);
}

template <typename T>
void JSONNodeSetter::append_numbers(const char* key, const std::vector<T>& values) {
  JSONValue array = array_of(values, allocator_);
  append(key, array);
}

void JSONNodeSetter::Visit(std::vector<std::vector<uint16_t>>* value, const char* key) {
  JSONValue outer(rapidjson::kArrayType);
  for (const auto& inner : *value) outer.PushBack(array_of(inner, allocator_), allocator_);
  append(key, outer);
}

void JSONNodeSetter::Visit(std::vector<std::string>* value, const char* key) {
  JSONValue array(rapidjson::kArrayType);
  for (const std::string& text : *value) {
    array.PushBack(text_of(text.c_str(), allocator_), allocator_);
  }
  append(key, array);
}

void JSONNodeSetter::Visit(Serializable* value, const char* key) {
  JSONValue object(rapidjson::kObjectType);
  value->VisitAttr(std::make_shared<JSONNodeSetter>(object, allocator_, false));
  append(key, object);
}

void JSONNodeSetter::Visit(std::string* value, const char* key) {
  JSONValue text = text_of(value->c_str(), allocator_);
  append(key, text);
}

// A char attribute is the first character of a NUL-terminated text.
void JSONNodeSetter::Visit(char* value, const char* key) {
  JSONValue text = text_of(value, allocator_);
  append(key, text);
}

void JSONNodeSetter::Visit(bool* value, const char* key) {
  JSONValue boolean(*value);
  append(key, boolean);
}

#define QRT_WRITE_NUMBERS(type)                                           \
  void JSONNodeSetter::Visit(std::vector<type>* value, const char* key) { \
    append_numbers(key, *value);                                          \
  }
QRT_WRITE_NUMBERS(uint64_t)
QRT_WRITE_NUMBERS(uint32_t)
QRT_WRITE_NUMBERS(int64_t)
QRT_WRITE_NUMBERS(int32_t)
QRT_WRITE_NUMBERS(int16_t)
QRT_WRITE_NUMBERS(uint16_t)
QRT_WRITE_NUMBERS(half_float::half)
QRT_WRITE_NUMBERS(float)
#undef QRT_WRITE_NUMBERS

#define QRT_WRITE_NUMBER(type) \
  void JSONNodeSetter::Visit(type* value, const char* key) { append_number(key, *value); }
QRT_WRITE_NUMBER(uint64_t)
QRT_WRITE_NUMBER(int64_t)
QRT_WRITE_NUMBER(uint32_t)
QRT_WRITE_NUMBER(int32_t)
QRT_WRITE_NUMBER(uint16_t)
QRT_WRITE_NUMBER(int16_t)
QRT_WRITE_NUMBER(uint8_t)
QRT_WRITE_NUMBER(int8_t)
QRT_WRITE_NUMBER(double)
QRT_WRITE_NUMBER(half_float::half)
QRT_WRITE_NUMBER(float)
#undef QRT_WRITE_NUMBER

}  // namespace marlo::runtime
