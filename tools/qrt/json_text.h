#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace qrt_tool {

/// JSON text, written member by member.
///
/// Texts are made well-formed. A number that is infinite or not a number, for which JSON has no
/// form, is written as null.
class JsonText {
 public:
  JsonText();
  JsonText(const JsonText&) = delete;
  JsonText& operator=(const JsonText&) = delete;
  ~JsonText();

  void begin_object();
  void begin_object(const char* key);
  void end_object();
  void begin_array(const char* key);
  /// An array of numbers stands on one line.
  void numbers(const char* key, const std::vector<double>& values);
  void sizes(const char* key, const std::vector<uint32_t>& values);
  void end_array();

  void text(const std::string& value);
  void text(const char* key, const std::string& value);
  void integer(const char* key, uint64_t value);
  void number(const char* key, double value);
  void boolean(const char* key, bool value);
  void null(const char* key);

  /// The whole text, with a newline at its end.
  std::string finish() const;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

/// A text as a JSON string, with its quotation marks.
std::string json_string(const std::string& text);

/// What is wrong with a text that should be one JSON object: where, and what was expected. Empty
/// for an object.
std::string json_fault(const std::string& text);

/// The names of the members of a JSON object. Empty for anything else.
std::vector<std::string> json_member_names(const std::string& text);

}  // namespace qrt_tool
