#pragma once

#include <cstddef>
#include <string>

#include "qrt_core/utility/export.h"

namespace marlo::runtime {

/// The Base64 text (RFC 4648, with padding) of `size` bytes.
QRT_API std::string Base64Encode(const unsigned char* data, size_t size);

/// The bytes of a Base64 text, up to the first character outside the alphabet: padding, white space
/// and anything invalid end the text. A last group of k characters gives k - 1 bytes.
QRT_API std::string Base64Decode(const std::string& text);

/// The same to memory of the caller's own, as far as it has room.
/// @param bytes receives them
/// @param room how many it takes at the most
/// @return how many there were
QRT_API size_t Base64DecodeTo(const std::string& text, char* bytes, size_t room);

/// The number of these bytes.
QRT_API size_t Base64DecodedSize(const std::string& text) noexcept;

}  // namespace marlo::runtime
