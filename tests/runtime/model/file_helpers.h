#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/json_document.h"
#include "qrt_core/runtime/model/serializable.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_folder.h"

namespace marlo::test {

using runtime::json::Document;
using runtime::json::Value;

inline void write_file(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

inline std::string contents(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

/// `value` in `width` bytes, the lowest first.
inline std::string le(uint64_t value, int width) {
  std::string bytes;
  for (int i = 0; i < width; ++i) bytes += static_cast<char>(value >> (8 * i));
  return bytes;
}

/// A string as the binary form has it.
inline std::string counted(const std::string& text) { return le(text.size(), 8) + text; }

/// The whole text of the std::runtime_error that a step throws; a failure if it throws none.
template <typename Step>
std::string error_of(Step step) {
  const LogCapture silent;
  try {
    step();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  ADD_FAILURE() << "nothing was thrown";
  return "";
}

/// What an object writes, in either form.
inline std::string written(runtime::Serializable& object, const char* type) {
  const TemporaryFolder folder;
  const std::string path = folder.file("object");
  EXPECT_TRUE(object.ToFile(path.c_str(), type));
  return contents(path);
}

/// Reads an object from the bytes of a file.
inline bool read_bytes(runtime::Serializable& object, const std::string& bytes) {
  const TemporaryFolder folder;
  write_file(folder.file("object"), bytes);
  return object.FromFile(folder.file("object").c_str(), "bin");
}

/// The header of the current protocol version, then `body`.
inline std::string binary_file(const std::string& body, uint32_t version = 20015) {
  return le(version, 4) + body;
}

inline const Value::Member& member_at(const Value& object, size_t index) {
  return *(object.MemberBegin() + static_cast<std::ptrdiff_t>(index));
}

/// The first place where two JSON values differ, or an empty text. Members are compared in their
/// order; numbers with a fraction as floats.
inline std::string difference(const Value& expected, const Value& found, const std::string& path) {
  const auto size = [](const Value& value) -> size_t {
    return value.IsObject() ? value.MemberCount() : value.IsArray() ? value.Size() : 0;
  };
  if (expected.IsDouble() && found.IsNumber()) {
    return static_cast<float>(expected.GetDouble()) == static_cast<float>(found.GetDouble())
               ? ""
               : path + " is another number";
  }
  if (expected.GetType() != found.GetType()) return path + " is of another kind";
  if (size(expected) != size(found)) return path + " has another number of parts";
  if (expected.IsObject()) {
    for (size_t i = 0; i < size(expected); ++i) {
      const std::string name = member_at(expected, i).name.GetString();
      const std::string other = member_at(found, i).name.GetString();
      if (name != other) return path + " has \"" + other + "\" in the place of \"" + name + "\"";
      const std::string inner =
          difference(member_at(expected, i).value, member_at(found, i).value, path + "." + name);
      if (!inner.empty()) return inner;
    }
    return "";
  }
  if (expected.IsArray()) {
    for (rapidjson::SizeType i = 0; i < expected.Size(); ++i) {
      const std::string inner =
          difference(expected[i], found[i], path + "[" + std::to_string(i) + "]");
      if (!inner.empty()) return inner;
    }
    return "";
  }
  return expected == found ? "" : path + " has another value";
}

inline std::string difference(const std::string& expected, const std::string& found) {
  Document one, other;
  runtime::json::parse(one, expected.c_str());
  runtime::json::parse(other, found.c_str());
  if (!one.IsObject()) return "the expected text is no object";
  return difference(one, other, "root");
}

}  // namespace marlo::test
