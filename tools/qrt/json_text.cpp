#include "tools/qrt/json_text.h"

#include <algorithm>
#include <cmath>

#include "tools/qrt/text.h"

// In a namespace of its own: the library instantiates the same templates with other assertions, and
// a program holds only one copy of each name.
#define RAPIDJSON_NAMESPACE qrt_tool_rapidjson
#define RAPIDJSON_NAMESPACE_BEGIN namespace qrt_tool_rapidjson {
#define RAPIDJSON_NAMESPACE_END }
#include <rapidjson/error/en.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>

namespace qrt_tool {

namespace json = qrt_tool_rapidjson;

struct JsonText::Parts {
  json::StringBuffer buffer;
  json::PrettyWriter<json::StringBuffer> writer{buffer};

  // Some are names out of files.
  void key(const char* name) { writer.Key(printable(name).c_str()); }

  void number(double value) {
    if (std::isfinite(value)) {
      writer.RawValue(float_text(value).c_str(), float_text(value).size(), json::kNumberType);
    } else {
      writer.Null();
    }
  }
};

JsonText::JsonText() : parts_(std::make_unique<Parts>()) {
  parts_->writer.SetIndent(' ', 2);
  parts_->writer.SetFormatOptions(json::kFormatSingleLineArray);
}

JsonText::~JsonText() = default;

void JsonText::begin_object() { parts_->writer.StartObject(); }

void JsonText::begin_object(const char* key) {
  parts_->key(key);
  parts_->writer.StartObject();
}

void JsonText::end_object() { parts_->writer.EndObject(); }

void JsonText::begin_array(const char* key) {
  parts_->key(key);
  parts_->writer.StartArray();
}

void JsonText::end_array() { parts_->writer.EndArray(); }

void JsonText::numbers(const char* key, const std::vector<double>& values) {
  begin_array(key);
  for (const double value : values) parts_->number(value);
  end_array();
}

void JsonText::sizes(const char* key, const std::vector<uint32_t>& values) {
  begin_array(key);
  for (const uint32_t value : values) parts_->writer.Uint(value);
  end_array();
}

void JsonText::text(const std::string& value) {
  const std::string clean = printable(value);
  parts_->writer.String(clean.c_str(), static_cast<json::SizeType>(clean.size()));
}

void JsonText::text(const char* key, const std::string& value) {
  parts_->key(key);
  text(value);
}

void JsonText::integer(const char* key, uint64_t value) {
  parts_->key(key);
  parts_->writer.Uint64(value);
}

void JsonText::number(const char* key, double value) {
  parts_->key(key);
  parts_->number(value);
}

void JsonText::boolean(const char* key, bool value) {
  parts_->key(key);
  parts_->writer.Bool(value);
}

void JsonText::null(const char* key) {
  parts_->key(key);
  parts_->writer.Null();
}

std::string JsonText::finish() const { return std::string(parts_->buffer.GetString()) + '\n'; }

std::string json_string(const std::string& text) {
  json::StringBuffer buffer;
  json::Writer<json::StringBuffer> writer(buffer);
  const std::string clean = printable(text);
  writer.String(clean.c_str(), static_cast<json::SizeType>(clean.size()));
  return buffer.GetString();
}

namespace {

/// Notes what the root is and the names of its members.
struct RootHandler : json::BaseReaderHandler<json::UTF8<>, RootHandler> {
  bool Default() {
    if (depth == 0) root = "a single value";
    return true;
  }
  bool Key(const char* name, json::SizeType length, bool) {
    if (depth == 1) names.emplace_back(name, length);
    return true;
  }
  bool StartObject() { return open("an object"); }
  bool EndObject(json::SizeType) { return close(); }
  bool StartArray() { return open("an array"); }
  bool EndArray(json::SizeType) { return close(); }

  bool open(const char* what) {
    if (depth++ == 0) root = what;
    return true;
  }
  bool close() {
    --depth;
    return true;
  }

  size_t depth = 0;
  std::string root;
  std::vector<std::string> names;
};

// Nesting costs heap and not stack.
json::ParseResult parse(const std::string& text, RootHandler& handler) {
  json::Reader reader;
  json::StringStream stream(text.c_str());
  return reader.Parse<json::kParseIterativeFlag>(stream, handler);
}

}  // namespace

std::string json_fault(const std::string& text) {
  if (text.find_first_not_of(" \t\r\n") == std::string::npos) return "the file is empty";
  RootHandler handler;
  const json::ParseResult result = parse(text, handler);
  if (result.IsError()) {
    const size_t offset = std::min(result.Offset(), text.size());
    const auto end = text.begin() + static_cast<std::ptrdiff_t>(offset);
    const auto lines = 1 + std::count(text.begin(), end, '\n');
    const size_t newline = offset == 0 ? std::string::npos : text.rfind('\n', offset - 1);
    const size_t column = newline == std::string::npos ? offset + 1 : offset - newline;
    return "line " + std::to_string(lines) + ", column " + std::to_string(column) + ": " +
           json::GetParseError_En(result.Code());
  }
  if (handler.root != "an object") return "expected an object, found " + handler.root;
  return "";
}

std::vector<std::string> json_member_names(const std::string& text) {
  RootHandler handler;
  if (parse(text, handler).IsError() || handler.root != "an object") return {};
  return handler.names;
}

}  // namespace qrt_tool
