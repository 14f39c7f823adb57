#include "tools/qrt/text.h"

#include <langinfo.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string_view>

namespace qrt_tool {
namespace {

bool is_continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// Bytes of the well-formed character at the front, or 0.
size_t character_length(std::string_view text) {
  const auto first = static_cast<unsigned char>(text[0]);
  size_t length = 1;
  if (first >= 0x80) length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if ((first >= 0x80 && first < 0xC2) || first > 0xF4 || text.size() < length) return 0;
  for (size_t i = 1; i < length; ++i) {
    if (!is_continuation(text[i])) return 0;
  }
  if (length < 3) return length;
  // Overlong forms, surrogates, and what lies beyond the last code point.
  const auto second = static_cast<unsigned char>(text[1]);
  const bool bad = (first == 0xE0 && second < 0xA0) || (first == 0xED && second >= 0xA0) ||
                   (first == 0xF0 && second < 0x90) || (first == 0xF4 && second >= 0x90);
  return bad ? 0 : length;
}

bool is_control(std::string_view character) {
  const auto first = static_cast<unsigned char>(character[0]);
  if (character.size() == 1) return first < 0x20 || first == 0x7F;
  return first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

std::string last_characters(const std::string& text, size_t count) {
  size_t begin = text.size();
  for (; count > 0 && begin > 0; --count) {
    do {
      --begin;
    } while (begin > 0 && is_continuation(text[begin]));
  }
  return text.substr(begin);
}

}  // namespace

bool locale_is_utf8() { return std::string_view(nl_langinfo(CODESET)) == "UTF-8"; }

std::string printable(const std::string& text) {
  std::string clean;
  clean.reserve(text.size());
  for (size_t at = 0; at < text.size();) {
    const std::string_view rest = std::string_view(text).substr(at);
    const size_t length = character_length(rest);
    if (length == 0 || is_control(rest.substr(0, length))) {
      clean += '?';
    } else {
      clean += rest.substr(0, length);
    }
    at += length == 0 ? 1 : length;
  }
  return clean;
}

size_t width_of(const std::string& text) {
  size_t width = 0;
  for (const char c : text) width += is_continuation(c) ? 0 : 1;
  return width;
}

std::string first_characters(const std::string& text, size_t count) {
  size_t end = 0;
  for (; count > 0 && end < text.size(); --count) {
    do {
      ++end;
    } while (end < text.size() && is_continuation(text[end]));
  }
  return text.substr(0, end);
}

std::string shortened(const std::string& text, size_t width) {
  constexpr size_t kDots = 2;
  if (width_of(text) <= width) return text;
  if (width <= kDots) return first_characters(text, width);
  const size_t back = (width - kDots) / 2;
  return first_characters(text, width - kDots - back) + ".." + last_characters(text, back);
}

std::string lower_case(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

std::string in_quotes(const std::string& text) { return '"' + printable(text) + '"'; }

std::string sizes_text(const std::vector<uint32_t>& sizes) {
  if (sizes.empty()) return "scalar";
  std::vector<std::string> parts;
  parts.reserve(sizes.size());
  for (const uint32_t size : sizes) parts.push_back(std::to_string(size));
  return joined(parts, "x");
}

std::string decimal(double value, int decimals) {
  char buffer[400];
  std::snprintf(buffer, sizeof buffer, "%.*f", decimals, value);
  return buffer;
}

std::string short_decimal(double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.2g", value);
  return buffer;
}

std::string float_text(double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.9g", value);
  return buffer;
}

namespace {

template <typename T>
std::string strange_numbers_of(const std::vector<T>& values) {
  const auto nans = std::count_if(values.begin(), values.end(), [](T v) { return std::isnan(v); });
  const auto infinite =
      std::count_if(values.begin(), values.end(), [](T v) { return std::isinf(v); });
  std::vector<std::string> parts;
  const auto add = [&](auto count, const char* what) {
    if (count == 0) return;
    const std::string whole = parts.empty() ? " of " + counted(values.size(), "number") : "";
    parts.push_back(std::to_string(count) + whole + (count == 1 ? " is " : " are ") + what);
  };
  add(nans, "NaN");
  add(infinite, "infinite");
  return joined(parts, ", ");
}

}  // namespace

std::string strange_numbers(const std::vector<float>& values) { return strange_numbers_of(values); }
std::string strange_numbers(const std::vector<double>& values) {
  return strange_numbers_of(values);
}

std::string counted(uint64_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string joined(const std::vector<std::string>& parts, const std::string& separator) {
  std::string text;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i != 0) text += separator;
    text += parts[i];
  }
  return text;
}

}  // namespace qrt_tool
