#include "qrt_core/runtime/model/serializable.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "qrt_core/runtime/model/file_visitor.h"
#include "qrt_core/runtime/model/json_document.h"
#include "qrt_core/runtime/model/json_visitor.h"
#include "qrt_core/runtime/model/type_name.h"
#include "qrt_core/runtime/model/write_check_internal.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {

using utility::Assert;
using utility::Log;

namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

constexpr char kJsonType[] = "json";
constexpr char kBinaryType[] = "bin";
constexpr char kPath[] = "path";
constexpr char kType[] = "type";

File open_file(const char* path, const char* mode) {
  return File(std::fopen(path, mode), &std::fclose);
}

bool has_suffix(const std::string& path, const std::string& suffix) {
  return path.substr(path.size() - suffix.size()) == suffix;
}

void require(const char* text, const char* what) {
  Assert(text != nullptr, "a null pointer was given for the %s", what);
}

// The document's strings are the text's own bytes: of weights there is no second copy.
void read_json_text(Serializable& object, std::string text) {
  const uint64_t size = text.size();
  json::Document document;
  json::parse_in_place(document, text.data());
  Assert(document.IsObject(), nullptr);
  auto getter = std::make_shared<JSONNodeGetter>(document, 0);
  getter->LimitSteps(json::steps_for(size));
  object.VisitAttr(getter);
}

// The text of a file up to its first NUL, held once.
std::string read_text(const char* path) {
  require(path, kPath);
  const File file = open_file(path, "rb");
  Assert(file != nullptr, "Error in opening the file [%s].", path);
  long size = -1;
  if (std::fseek(file.get(), 0, SEEK_END) == 0) size = std::ftell(file.get());
  // A directory opens, and reports a size that no file has.
  const bool sized = size >= 0 && size != std::numeric_limits<long>::max() &&
                     std::fseek(file.get(), 0, SEEK_SET) == 0;
  Assert(sized, "Error in read the whole file [%s].", path);
  std::string text(static_cast<size_t>(size), '\0');
  const size_t count = std::fread(text.data(), 1, text.size(), file.get());
  Assert(count == text.size(), "Error in read the whole file [%s].", path);
  if (const size_t end = text.find('\0'); end != std::string::npos) text.resize(end);
  return text;
}

void log_not_opened(const char* path) {
  Log(utility::LOG_ERROR, "Failed to open model file, file path: %s.", path);
}

void log_not_written(const char* path) {
  Log(utility::LOG_ERROR, "Failed to write model file, file path: %s.", path);
}

// Where a text goes that is only tried.
struct NoText {
  using Ch = char;
  void Put(Ch) {}
  void Flush() {}
};

// A text that goes to a file as it is made.
class FileText {
 public:
  using Ch = char;
  explicit FileText(std::ostream& stream) : stream_(stream) {}
  void Put(Ch character) {
    if (used_ == sizeof buffer_) Flush();
    buffer_[used_++] = character;
  }
  void Flush() { stream_.write(buffer_, static_cast<std::streamsize>(std::exchange(used_, 0))); }

 private:
  std::ostream& stream_;
  size_t used_ = 0;
  char buffer_[1 << 14];
};

template <typename Text>
bool write_text(const json::Document& document, Text& text) {
  rapidjson::PrettyWriter<Text> writer(text);
  writer.SetIndent(' ', 4);
  const bool is_written = document.Accept(writer);
  text.Flush();
  return is_written;
}

bool write_json_file(Serializable& object, const char* path) {
  json::Document document(rapidjson::kObjectType);
  object.VisitAttr(std::make_shared<JSONNodeSetter>(document, document.GetAllocator(), true));
  NoText nothing;
  if (!write_text(document, nothing)) {
    Log(utility::LOG_ERROR, "Infinite or not-a-number value has no JSON form, file path: %s.",
        path);
    return false;
  }
  std::ofstream stream(path, std::ios::binary);
  if (!stream.is_open()) {
    log_not_opened(path);
    return true;  // the documented result; only the log tells
  }
  FileText text(stream);
  write_text(document, text);
  stream.close();
  if (stream.fail()) {
    log_not_written(path);
    return false;
  }
  return true;
}

bool read_binary_file(Serializable& object, const char* path) {
  const File file = open_file(path, "rb");
  if (file == nullptr) {
    log_not_opened(path);
    return false;
  }
  const auto reader = std::make_shared<FILEReader>(file.get(), 0);
  object.VisitAttr(reader);
  if (const uint64_t left = reader->BytesLeft(); left != 0) {
    Log(utility::LOG_WARNING,
        "%llu bytes follow the object, which may be another one than was written, file path: %s.",
        static_cast<unsigned long long>(left), path);
  }
  return true;
}

bool write_binary_file(Serializable& object, const char* path) {
  File file = open_file(path, "wb+");
  if (file == nullptr) {
    log_not_opened(path);
    return false;
  }
  object.VisitAttr(std::make_shared<FILEWriter>(file.get(), true));
  if (std::fclose(file.release()) != 0) {
    log_not_written(path);
    return false;
  }
  return true;
}

// What the walk of an object would throw for is thrown before the file is touched.
bool can_be_read_again(Serializable& object, const char* path, bool as_json) {
  const std::string fault = WriteFault(object, as_json);
  if (fault.empty()) return true;
  Log(utility::LOG_ERROR, "What is written could not be read again: %s, file path: %s.",
      fault.c_str(), path);
  return false;
}

bool refuse_type(const char* path) {
  Log(utility::LOG_ERROR, "Unknow file type, file path: %s.", path);
  return false;
}

}  // namespace

Serializable::Serializable() : serializable_type("Serializable") {}
Serializable::Serializable(const Serializable&) = default;
Serializable::Serializable(Serializable&&) noexcept = default;
Serializable& Serializable::operator=(const Serializable&) = default;
Serializable& Serializable::operator=(Serializable&&) noexcept = default;
Serializable::~Serializable() = default;

void Serializable::VisitAttr(std::shared_ptr<Visitor> visitor) {
  const std::string name = GetClassTypeName();
  serializable_type = name;
  visitor->Visit(&serializable_type, "serializable_type");
  if (serializable_type == name || serializable_type.empty()) return;
  // A binary file has no other mark that tells one object from another.
  if (std::dynamic_pointer_cast<FILEReader>(visitor) == nullptr) return;
  Log(utility::LOG_WARNING, "what is read as a %s calls itself \"%.64s\" in the file", name.c_str(),
      serializable_type.c_str());
}

std::string Serializable::GetClassTypeName() {
  serializable_type = GetClassTypeNameWithNamespace();
  return serializable_type.substr(serializable_type.rfind(':') + 1);
}

std::string Serializable::GetClassTypeNameWithNamespace() {
  return demangled(typeid(*this).name());
}

bool Serializable::FromFile(const char* path, const char* type) {
  require(path, kPath);
  require(type, kType);
  if (std::strcmp(type, kJsonType) == 0) {
    read_json_text(*this, read_text(path));
    return true;
  }
  if (std::strcmp(type, kBinaryType) == 0) return read_binary_file(*this, path);
  return refuse_type(path);
}

bool Serializable::FromFile(const char* path) {
  require(path, kPath);
  const std::string name = path;
  if (has_suffix(name, ".json")) return FromFile(path, kJsonType);
  if (has_suffix(name, ".qrmod") || has_suffix(name, ".qrcfg") || has_suffix(name, ".qrmods") ||
      has_suffix(name, ".qrcfgs")) {
    return FromFile(path, kBinaryType);
  }
  Assert(false, "Unknow nets file type, file path: %s.", path);
  return false;
}

bool Serializable::FromJsonString(const char* text) {
  require(text, "JSON text");
  read_json_text(*this, text);
  return true;
}

bool Serializable::ToFile(const char* path, const char* type) {
  require(path, kPath);
  require(type, kType);
  const bool as_json = std::strcmp(type, kJsonType) == 0;
  if (!as_json && std::strcmp(type, kBinaryType) != 0) return refuse_type(path);
  if (!can_be_read_again(*this, path, as_json)) return false;
  return as_json ? write_json_file(*this, path) : write_binary_file(*this, path);
}

std::stringstream ReadJsonFile2StrStream(const char* path) {
  std::stringstream stream;
  stream << read_text(path);
  return stream;
}

}  // namespace marlo::runtime
