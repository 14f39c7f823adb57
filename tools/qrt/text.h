#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Text for people: safe to print, and of a known width.

namespace qrt_tool {

/// Whether the locale's character set is UTF-8. `main` sets the locale.
bool locale_is_utf8();

/// `text` with control characters and malformed UTF-8 replaced by '?', so that a name out of a file
/// can't steer a terminal.
std::string printable(const std::string& text);

/// Characters of a well-formed UTF-8 text. Each is taken to fill one cell.
size_t width_of(const std::string& text);

/// The first `count` characters.
std::string first_characters(const std::string& text, size_t count);

/// `text` in at most `width` characters: what is too much is cut out of the middle.
std::string shortened(const std::string& text, size_t width);

/// `text` with the letters A to Z made small.
std::string lower_case(std::string text);

/// "text" between quotation marks, made printable.
std::string in_quotes(const std::string& text);

/// "16x14x14"; "scalar" for no sizes.
std::string sizes_text(const std::vector<uint32_t>& sizes);

/// `value` with a fixed number of decimals.
std::string decimal(double value, int decimals);

/// `value` in two significant digits: "0.00098", "1.5e-07".
std::string short_decimal(double value);

/// `value` in as few digits as identify a float.
std::string float_text(double value);

/// "3 of 10 numbers are NaN, 1 is infinite"; empty where all are finite.
std::string strange_numbers(const std::vector<float>& values);
std::string strange_numbers(const std::vector<double>& values);

/// "1 layer", "2 layers".
std::string counted(uint64_t count, const std::string& noun);

/// The parts with `separator` between them.
std::string joined(const std::vector<std::string>& parts, const std::string& separator);

}  // namespace qrt_tool
