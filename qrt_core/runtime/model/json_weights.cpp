#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "qrt_core/runtime/model/json_document.h"
#include "qrt_core/runtime/model/json_visitor.h"
#include "qrt_core/runtime/model/serializable.h"
#include "qrt_core/runtime/model/weight_places_internal.h"
#include "qrt_core/utility/errors.h"

// Weights are nearly all of a JSON model. Long strings are left out of the text that is parsed: a mark stands
// for each, which tells where it is in the file.

namespace marlo::runtime {
namespace {

// The mark is a character that texts of models don't hold. One that does is read whole.
constexpr std::string_view kEscapedMarks[] = {"\\u007f", "\\u007F"};
constexpr size_t kLeastLength = 4096;
constexpr size_t kPart = size_t{1} << 18;

/// Whether a string's characters stand for themselves, and none is the mark.
bool is_plain(const char* text, size_t size) {
  unsigned odd = 0;
  for (size_t i = 0; i < size; ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    odd |= static_cast<unsigned>(c < 0x20) | static_cast<unsigned>(c >= 0x7f) |
           static_cast<unsigned>(c == '\\');
  }
  return odd == 0;
}

/// Copies a JSON text part by part, but for long strings.
class Shortener {
 public:
  explicit Shortener(std::FILE* file) : file_(file) {}

  /// @return whether all of the text has been copied
  bool run() {
    std::string part(kPart, '\0');
    for (size_t size = 0; (size = std::fread(part.data(), 1, part.size(), file_)) != 0;) {
      if (!take(part.data(), size)) return false;
      length_ += size;
    }
    for (const std::string_view mark : kEscapedMarks) {
      if (text_.find(mark) != std::string::npos) return false;
    }
    return std::ferror(file_) == 0 && state_ == State::outside;
  }

  ShortJson take() { return {std::move(text_), length_}; }

 private:
  enum class State {
    outside,      // of strings
    inside,       // of a string
    left_out,     // in a long string that has become a mark
    behind_mark,  // it must not be a name
  };

  bool take(const char* part, size_t size) {
    if (std::memchr(part, '\0', size) != nullptr) return false;
    for (const char *at = part, *const end = part + size; at != end;) {
      const auto* const quote =
          static_cast<const char*>(std::memchr(at, '"', static_cast<size_t>(end - at)));
      const char* const stop = quote != nullptr ? quote : end;
      if (!take_run(at, stop, length_ + static_cast<uint64_t>(at - part))) return false;
      at = stop;
      if (quote == nullptr) break;
      take_quote(length_ + static_cast<uint64_t>(at - part));
      ++at;
    }
    return true;
  }

  // Characters that are no quotes.
  bool take_run(const char* begin, const char* end, uint64_t place) {
    const auto size = static_cast<size_t>(end - begin);
    if (state_ == State::left_out) return is_plain(begin, size);
    if (state_ == State::behind_mark) {
      const char* const next = std::find_if_not(
          begin, end, [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; });
      if (next != end && *next == ':') return false;
      if (next != end) state_ = State::outside;
    }
    if (std::memchr(begin, kLeftInFile, size) != nullptr) return false;
    text_.append(begin, end);
    if (state_ != State::inside) return true;
    for (const char* at = begin; at != end; ++at) is_escaped_ = *at == '\\' && !is_escaped_;
    is_plain_ = is_plain_ && is_plain(begin, size);
    const size_t length = text_.size() - opened_at_;
    if (!is_plain_ || length < kLeastLength) return true;
    begin_ = place + size - length;
    text_.resize(opened_at_);
    state_ = State::left_out;
    return true;
  }

  void take_quote(uint64_t place) {
    switch (state_) {
      case State::outside:
      case State::behind_mark:
        text_ += '"';
        opened_at_ = text_.size();
        is_escaped_ = false;
        is_plain_ = true;
        state_ = State::inside;
        break;
      case State::inside:
        text_ += '"';
        if (!is_escaped_) state_ = State::outside;
        is_escaped_ = false;
        break;
      case State::left_out:
        text_ += kLeftInFile + std::to_string(begin_) + ' ' + std::to_string(place - begin_) + '"';
        state_ = State::behind_mark;
    }
  }

  std::FILE* file_;
  std::string text_;
  uint64_t length_ = 0;
  State state_ = State::outside;
  size_t opened_at_ = 0;     // in `text_`: where the string begins
  bool is_escaped_ = false;  // the next character
  bool is_plain_ = true;     // the string so far
  uint64_t begin_ = 0;       // in the file: where the string that is left out begins
};

}  // namespace

std::optional<ShortJson> ReadShortJson(std::FILE* file) {
  Shortener shortener(file);
  if (!shortener.run()) return std::nullopt;
  return shortener.take();
}

bool ReadJsonWithoutWeights(Serializable& object, const ShortJson& json, WeightPlaces& places) {
  json::Document document;
  json::parse(document, json.text.c_str());
  if (!document.IsObject()) return false;
  auto getter = std::make_shared<JSONNodeGetter>(document, 0);
  getter->LimitSteps(json::steps_for(json.length));
  getter->LeaveWeights(places);
  try {
    object.VisitAttr(getter);
  } catch (const utility::Error&) {
    if (!getter->HasMetMark()) throw;
  }
  return !getter->HasMetMark();
}

}  // namespace marlo::runtime
