#include <typeinfo>

#include "qrt_core/runtime/model/file_visitor.h"
#include "qrt_core/runtime/model/serializable.h"
#include "qrt_core/runtime/model/type_name.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {

using utility::Assert;

namespace {

template <typename T>
void fail_to_write(std::FILE* stream) {
  Assert(false, "failed to write a %s value, error code is %d.\n",
         demangled(typeid(T).name()).c_str(), std::ferror(stream));
}

}  // namespace

FILEWriter::FILEWriter(std::FILE* stream, bool write_header) : stream_(stream) {
  Assert(stream != nullptr, "cant construct FILEWriter object using a NULL ptr.");
  if (write_header) write(_serialization_protocol_version);
}

FILEWriter::~FILEWriter() {
  if (!borrowed_) std::fclose(stream_);
}

template <typename T>
void FILEWriter::write(const T& value) {
  if (std::fwrite(&value, sizeof(T), 1, stream_) != 1) fail_to_write<T>(stream_);
}

void FILEWriter::write_count(uint64_t count) {
  if (std::fwrite(&count, sizeof count, 1, stream_) == 1) return;
  Assert(false, "failed to write the %s value, error code is %d.\n",
         demangled(typeid(uint64_t).name()).c_str(), std::ferror(stream_));
}

template <typename T>
void FILEWriter::write_vector(const std::vector<T>& values) {
  write_count(values.size());
  // An empty vector may have no buffer, which fwrite must not be given.
  if (values.empty()) return;
  if (std::fwrite(values.data(), sizeof(T), values.size(), stream_) != values.size()) {
    fail_to_write<std::vector<T>>(stream_);
  }
}

void FILEWriter::Visit(std::vector<std::vector<uint16_t>>* value, const char*) {
  write_count(value->size());
  for (const auto& inner : *value) write_vector(inner);
}

void FILEWriter::Visit(std::vector<std::string>* value, const char* key) {
  write_count(value->size());
  for (std::string& text : *value) Visit(&text, key);
}

void FILEWriter::Visit(Serializable* value, const char*) {
  value->VisitAttr(std::make_shared<FILEWriter>(stream_, false));
}

void FILEWriter::Visit(std::string* value, const char*) {
  write_count(value->size());
  if (std::fwrite(value->data(), 1, value->size(), stream_) != value->size()) {
    fail_to_write<std::string>(stream_);
  }
}

#define QRT_WRITE_VECTOR(type) \
  void FILEWriter::Visit(std::vector<type>* value, const char*) { write_vector(*value); }
QRT_WRITE_VECTOR(uint64_t)
QRT_WRITE_VECTOR(uint32_t)
QRT_WRITE_VECTOR(int64_t)
QRT_WRITE_VECTOR(int32_t)
QRT_WRITE_VECTOR(int16_t)
QRT_WRITE_VECTOR(uint16_t)
QRT_WRITE_VECTOR(half_float::half)
QRT_WRITE_VECTOR(float)
#undef QRT_WRITE_VECTOR

#define QRT_WRITE_VALUE(type) \
  void FILEWriter::Visit(type* value, const char*) { write(*value); }
QRT_WRITE_VALUE(char)
QRT_WRITE_VALUE(bool)
QRT_WRITE_VALUE(uint64_t)
QRT_WRITE_VALUE(int64_t)
QRT_WRITE_VALUE(uint32_t)
QRT_WRITE_VALUE(int32_t)
QRT_WRITE_VALUE(uint16_t)
QRT_WRITE_VALUE(int16_t)
QRT_WRITE_VALUE(uint8_t)
QRT_WRITE_VALUE(int8_t)
QRT_WRITE_VALUE(double)
QRT_WRITE_VALUE(half_float::half)
QRT_WRITE_VALUE(float)
#undef QRT_WRITE_VALUE

}  // namespace marlo::runtime
