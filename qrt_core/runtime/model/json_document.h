#pragma once

// Every use of RapidJSON goes through this header: its assertions throw instead of aborting, so
// that no text that a document holds can end the process.

#include <cstdint>
#include <cstdlib>

#include "qrt_core/utility/log.h"

namespace marlo::runtime::json {

/// Throws for a condition of RapidJSON that doesn't hold.
[[noreturn, gnu::cold, gnu::noinline]] inline void fail(const char* condition) {
  utility::Assert(false, "JSON: %s", condition);
  std::abort();
}

}  // namespace marlo::runtime::json

// The test itself is inline, because the parser makes one for each character.
#define RAPIDJSON_ASSERT(condition)                       \
  (__builtin_expect(static_cast<bool>(condition), 1) != 0 \
       ? static_cast<void>(0)                             \
       : ::marlo::runtime::json::fail(#condition))
// Assertions inside functions that can't throw concern RapidJSON's own state, not a document's.
#define RAPIDJSON_NOEXCEPT_ASSERT(condition) static_cast<void>(0)
#define RAPIDJSON_HAS_STDSTRING 0

#include <rapidjson/allocators.h>
#include <rapidjson/internal/swap.h>

// An empty stack is a null pointer that offsets are added to, which a sanitizer would report.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((no_sanitize("pointer-overflow"))), apply_to = function)
#endif
#include <rapidjson/internal/stack.h>
#if defined(__clang__)
#pragma clang attribute pop
#endif

#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <string>

namespace marlo::runtime::json {

using Value = rapidjson::Value;
using Document = rapidjson::Document;
using Allocator = rapidjson::Document::AllocatorType;

/// Parses NUL-terminated text. A text that isn't JSON leaves a null document.
///
/// The parser is the iterative one: nesting costs heap and not stack, so that a file of brackets
/// can't overflow the stack.
inline void parse(Document& document, const char* text) {
  document.Parse<rapidjson::kParseIterativeFlag>(text);
  if (document.HasParseError()) document.SetNull();
}

/// The same into the text's own memory, which the document's strings are parts of.
inline void parse_in_place(Document& document, char* text) {
  document.ParseInsitu<rapidjson::kParseIterativeFlag>(text);
  if (document.HasParseError()) document.SetNull();
}

/// So many steps the walk of a document of so many bytes may take. A document whose parts are each
/// read once stays below this, as do the objects that an empty one stands for.
inline uint64_t steps_for(uint64_t bytes) {
  constexpr uint64_t kSpare = 1000;
  return kSpare + 2 * bytes;
}

/// What kind of value this is, for messages.
inline const char* kind_of(const Value& value) {
  switch (value.GetType()) {
    case rapidjson::kNullType:
      return "null";
    case rapidjson::kFalseType:
    case rapidjson::kTrueType:
      return "a boolean";
    case rapidjson::kObjectType:
      return "an object";
    case rapidjson::kArrayType:
      return "an array";
    case rapidjson::kStringType:
      return "a string";
    case rapidjson::kNumberType:
      return "a number";
  }
  return "unknown";
}

}  // namespace marlo::runtime::json
