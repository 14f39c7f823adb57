#include "tools/qrt/npy.h"

#include <cstring>
#include <limits>
#include <map>

#include "qrt_core/utility/half.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::DataType;

namespace {

constexpr char kMagic[] = "\x93NUMPY";
constexpr size_t kMagicSize = 6;
constexpr size_t kPrefixSize = kMagicSize + 2;
constexpr size_t kMostHeader = 1 << 20;
constexpr size_t kMostDims = 8;

[[noreturn]] void refuse(const std::string& text) { throw ToolError(kInputError, text); }

/// The header: a Python dictionary of three entries, written in any order.
class HeaderParser {
 public:
  explicit HeaderParser(const std::string& text) : text_(text) {}

  std::map<std::string, std::string> entries() {
    std::map<std::string, std::string> found;
    expect('{');
    while (!accept('}')) {
      const std::string key = string();
      expect(':');
      found[key] = value();
      if (!accept(',')) {
        expect('}');
        break;
      }
    }
    return found;
  }

 private:
  void skip_blanks() { at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size()); }

  bool accept(char c) {
    skip_blanks();
    if (at_ >= text_.size() || text_[at_] != c) return false;
    ++at_;
    return true;
  }

  void expect(char c) {
    if (!accept(c)) refuse(std::string("the header is malformed: expected '") + c + "'");
  }

  std::string string() {
    skip_blanks();
    const char quote = at_ < text_.size() ? text_[at_] : '\0';
    if (quote != '\'' && quote != '"') refuse("the header is malformed: expected a quoted name");
    const size_t end = text_.find(quote, at_ + 1);
    if (end == std::string::npos) refuse("the header is malformed: a quoted name has no end");
    std::string found = text_.substr(at_ + 1, end - at_ - 1);
    at_ = end + 1;
    return found;
  }

  // A quoted text, a word, or what stands between parentheses or brackets, which is kept as it is.
  std::string value() {
    skip_blanks();
    const char first = at_ < text_.size() ? text_[at_] : '\0';
    if (first == '\'' || first == '"') return string();
    const bool bracketed = first == '(' || first == '[';
    const size_t end = bracketed ? text_.find(first == '(' ? ')' : ']', at_)
                                 : text_.find_first_of(",} \t\r\n", at_);
    if (end == std::string::npos) refuse("the header is malformed: a value has no end");
    std::string found = text_.substr(at_, end - at_ + (bracketed ? 1 : 0));
    at_ = end + (bracketed ? 1 : 0);
    return found;
  }

  const std::string& text_;
  size_t at_ = 0;
};

std::vector<uint32_t> parse_sizes(const std::string& text) {
  if (text.size() < 2 || text.front() != '(') refuse("the header's shape is not a tuple");
  std::vector<uint32_t> sizes;
  const std::string inner = text.substr(1, text.size() - 2);
  for (size_t at = 0; at < inner.size();) {
    at = inner.find_first_not_of(" \t", at);
    if (at == std::string::npos) break;
    const size_t end = std::min(inner.find_first_not_of("0123456789", at), inner.size());
    const std::string digits = inner.substr(at, end - at);
    if (digits.empty() || digits.size() > 10 ||
        std::stoull(digits) > std::numeric_limits<uint32_t>::max() || sizes.size() == kMostDims) {
      refuse("the header's shape " + printable(text) + " is not a list of up to 8 sizes");
    }
    sizes.push_back(static_cast<uint32_t>(std::stoull(digits)));
    at = std::min(inner.find_first_not_of(" \t", end), inner.size());
    if (at < inner.size() && inner[at++] != ',') {
      refuse("the header's shape " + printable(text) + " is malformed");
    }
  }
  return sizes;
}

template <typename T, typename Number>
void convert(const char* from, std::vector<Number>& to) {
  for (size_t i = 0; i < to.size(); ++i) {
    T value;
    std::memcpy(&value, from + i * sizeof value, sizeof value);
    to[i] = static_cast<Number>(value);
  }
}

/// A boolean: any byte but 0 is 1.
struct Bit {
  char byte;
  explicit operator float() const { return byte != 0 ? 1.0f : 0.0f; }
  explicit operator double() const { return byte != 0 ? 1.0 : 0.0; }
};

struct NumberType {
  const char* code;  // without the mark of the byte order
  size_t size;
  void (*to_floats)(const char* from, std::vector<float>& to);
  void (*to_doubles)(const char* from, std::vector<double>& to);

  void convert(const char* from, std::vector<float>& to) const { to_floats(from, to); }
  void convert(const char* from, std::vector<double>& to) const { to_doubles(from, to); }
};

template <typename T>
constexpr NumberType type_of(const char* code) {
  return {code, sizeof(T), convert<T, float>, convert<T, double>};
}

constexpr NumberType kNumberTypes[] = {
    type_of<float>("f4"),    type_of<double>("f8"),   type_of<half_float::half>("f2"),
    type_of<uint8_t>("u1"),  type_of<int8_t>("i1"),   type_of<uint16_t>("u2"),
    type_of<int16_t>("i2"),  type_of<uint32_t>("u4"), type_of<int32_t>("i4"),
    type_of<uint64_t>("u8"), type_of<int64_t>("i8"),  type_of<Bit>("b1"),
};

const NumberType& number_type(const std::string& descr) {
  const std::string shown = in_quotes(descr);
  if (!descr.empty() && descr[0] == '>') {
    refuse("the numbers are big-endian (" + shown + "); expected little-endian ones");
  }
  for (const NumberType& type : kNumberTypes) {
    const bool marked = !descr.empty() && (descr[0] == '<' || descr[0] == '|' || descr[0] == '=');
    if (marked && descr.compare(1, std::string::npos, type.code) == 0) return type;
  }
  refuse("numbers of type " + shown + " are not supported; expected float, int, uint or bool");
}

// The header's text; `data` receives where the numbers begin.
std::string header_of(const std::string& bytes, size_t& data) {
  if (bytes.size() < kPrefixSize || bytes.compare(0, kMagicSize, kMagic) != 0) {
    refuse("this is not an .npy file: it doesn't begin with \\x93NUMPY");
  }
  const int major = static_cast<unsigned char>(bytes[kMagicSize]);
  const int minor = static_cast<unsigned char>(bytes[kMagicSize + 1]);
  if ((major != 1 && major != 2) || minor != 0) {
    refuse("version " + std::to_string(major) + "." + std::to_string(minor) +
           " of the format is not supported; expected 1.0 or 2.0");
  }
  const size_t width = major == 1 ? 2 : 4;
  size_t length = 0;
  for (size_t i = 0; i < width && kPrefixSize + i < bytes.size(); ++i) {
    length |= static_cast<size_t>(static_cast<unsigned char>(bytes[kPrefixSize + i])) << (8 * i);
  }
  data = kPrefixSize + width + length;
  if (length > kMostHeader || data > bytes.size()) refuse("the file ends inside its header");
  return bytes.substr(kPrefixSize + width, length);
}

std::string entry(const std::map<std::string, std::string>& entries, const char* key) {
  const auto found = entries.find(key);
  if (found == entries.end()) refuse(std::string("the header has no entry '") + key + "'");
  return found->second;
}

const char* npy_code(DataType type) {
  switch (type) {
    case DataType::FLOAT32:
      return "<f4";
    case DataType::FLOAT16:
      return "<f2";
    case DataType::INT32:
      return "<i4";
    case DataType::INT16:
      return "<i2";
    case DataType::INT8:
      return "|i1";
    case DataType::UINT32:
      return "<u4";
    case DataType::UINT16:
      return "<u2";
    case DataType::UINT8:
      return "|u1";
  }
  return nullptr;
}

template <typename Array>
Array parse_as(const std::string& bytes) {
  size_t data = 0;
  const std::string header = header_of(bytes, data);
  const auto entries = HeaderParser(header).entries();
  const NumberType& type = number_type(entry(entries, "descr"));
  if (entry(entries, "fortran_order") != "False") {
    refuse("the array is in Fortran order; expected C order (numpy.ascontiguousarray makes it so)");
  }
  Array array;
  array.sizes = parse_sizes(entry(entries, "shape"));

  const uint64_t present = bytes.size() - data;
  uint64_t count = 1;
  for (const uint32_t size : array.sizes) {
    if (size == 0) refuse("the array is empty: its shape is " + sizes_text(array.sizes));
    // What is more than the file holds is refused before it can overflow.
    if (count <= present) count *= size;
  }
  if (count > present || count * type.size != present) {
    refuse("an array of shape " + sizes_text(array.sizes) + " needs " +
           (count > present ? "more" : std::to_string(count * type.size)) + " bytes, but " +
           std::to_string(present) + " follow the header");
  }
  array.values.resize(count);
  type.convert(bytes.data() + data, array.values);
  return array;
}

}  // namespace

NumberArray parse_npy(const std::string& bytes) { return parse_as<NumberArray>(bytes); }

ExactArray parse_npy_exactly(const std::string& bytes) { return parse_as<ExactArray>(bytes); }

std::string npy_bytes(const marlo::runtime::Tensor& tensor) {
  return npy_bytes(tensor.shape, tensor.handle.cpu);
}

std::string npy_bytes(const marlo::runtime::TensorShape& shape, const void* numbers) {
  const char* code = npy_code(shape.data_type);
  if (code == nullptr || shape.location != marlo::runtime::LocationType::MainMemory) {
    throw ToolError(kRunError, "the output is not an array of numbers in main memory");
  }
  std::string sizes;
  for (const uint32_t size : shape.dims) sizes += std::to_string(size) + ", ";
  if (shape.dims.size() > 1) sizes.erase(sizes.size() - 2);
  if (shape.dims.size() == 1) sizes.pop_back();
  std::string header =
      std::string("{'descr': '") + code + "', 'fortran_order': False, 'shape': (" + sizes + "), }";
  // The numbers begin at a multiple of 64 bytes, and a newline stands before them.
  constexpr size_t kAlignment = 64;
  const size_t used = kPrefixSize + 2 + header.size() + 1;
  header.append((kAlignment - used % kAlignment) % kAlignment, ' ');
  header += '\n';

  std::string bytes(kMagic, kMagicSize);
  bytes += '\x01';
  bytes += '\x00';
  bytes += static_cast<char>(header.size() & 0xFF);
  bytes += static_cast<char>(header.size() >> 8);
  bytes += header;
  bytes.append(static_cast<const char*>(numbers), ByteSize(shape));
  return bytes;
}

}  // namespace qrt_tool
