#include <sys/stat.h>

#include <algorithm>
#include <typeinfo>

#include "qrt_core/runtime/model/file_visitor.h"
#include "qrt_core/runtime/model/serializable.h"
#include "qrt_core/runtime/model/type_name.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {

using utility::Assert;

namespace {

// How much is read at a time where the length can't be compared with the size of a file.
constexpr uint64_t kChunkBytes = 1 << 20;

template <typename T>
[[noreturn]] void fail_to_read(std::FILE* stream) {
  Assert(false, "failed to read a %s value, error code is %d.\n",
         demangled(typeid(T).name()).c_str(), std::ferror(stream));
  std::abort();
}

int64_t size_of_file(std::FILE* stream) {
  struct stat status {};
  const int descriptor = fileno(stream);
  const bool known =
      descriptor >= 0 && fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) != 0;
  return known ? static_cast<int64_t>(status.st_size) : -1;
}

}  // namespace

FILEReader::FILEReader(std::FILE* stream, uint32_t version) : stream_(stream) {
  Assert(stream != nullptr, "cant construct FILEReader object using a NULL ptr.");
  size_ = size_of_file(stream);
  if (version != 0) {
    _serialization_protocol_version = version;
    return;
  }
  // An empty file keeps the current version; its first value fails.
  uint32_t header = 0;
  if (std::fread(&header, sizeof header, 1, stream) == 1) _serialization_protocol_version = header;
  Assert(_serialization_protocol_version <= __SERIALIZATION_PROTOCOL_VERSION__,
         "_serialization_protocol_version > __SERIALIZATION_PROTOCOL_VERSION__.");
}

// Of a nested object, which has no header in any version.
FILEReader::FILEReader(const FILEReader& parent)
    : Visitor(parent), stream_(parent.stream_), size_(parent.size_), places_(parent.places_) {}

FILEReader::~FILEReader() {
  if (!borrowed_) std::fclose(stream_);
}

uint64_t FILEReader::BytesLeft() const {
  if (size_ < 0) return 0;
  const int64_t position = ftello(stream_);
  return position < 0 ? 0 : static_cast<uint64_t>(std::max<int64_t>(size_ - position, 0));
}

bool FILEReader::fits(uint64_t count, uint64_t bytes) const {
  return size_ < 0 || count <= BytesLeft() / bytes;
}

template <typename T>
void FILEReader::Require(uint64_t count, uint64_t bytes) const {
  if (!fits(count, bytes)) fail_to_read<T>(stream_);
}
template void FILEReader::Require<half_float::half>(uint64_t, uint64_t) const;
template void FILEReader::Require<Serializable>(uint64_t, uint64_t) const;
template void FILEReader::Require<std::string>(uint64_t, uint64_t) const;

void FILEReader::ReadHalves(half_float::half* values, uint64_t count) {
  if (std::fread(values, sizeof *values, count, stream_) != count) {
    fail_to_read<half_float::half>(stream_);
  }
}

uint64_t FILEReader::SkipHalves(uint64_t count) {
  const off_t begin = ftello(stream_);
  if (begin < 0) fail_to_read<half_float::half>(stream_);
  if (size_ >= 0) {
    const auto bytes = static_cast<off_t>(count * sizeof(half_float::half));
    if (fseeko(stream_, bytes, SEEK_CUR) != 0) fail_to_read<half_float::half>(stream_);
    return static_cast<uint64_t>(begin);
  }
  // Nothing but reading tells whether they are there.
  std::vector<half_float::half> part(std::min<uint64_t>(count, 1 << 14));
  for (uint64_t done = 0; done < count; done += part.size()) {
    part.resize(std::min<uint64_t>(part.size(), count - done));
    ReadHalves(part.data(), part.size());
  }
  return static_cast<uint64_t>(begin);
}

template <typename T>
void FILEReader::read(T* value) {
  if (std::fread(value, sizeof(T), 1, stream_) != 1) fail_to_read<T>(stream_);
}

uint64_t FILEReader::read_count() {
  uint64_t count = 0;
  read(&count);
  return count;
}

// `Container` is a string or a vector of fixed-size elements.
template <typename Container>
static void read_contents(Container* values, uint64_t count, bool bounded, std::FILE* stream) {
  constexpr uint64_t kElementBytes = sizeof(typename Container::value_type);
  const uint64_t step = bounded ? count : kChunkBytes / kElementBytes;
  values->clear();
  for (uint64_t done = 0; done < count;) {
    const uint64_t part = std::min(step, count - done);
    values->resize(done + part);
    if (std::fread(values->data() + done, kElementBytes, part, stream) != part) {
      fail_to_read<Container>(stream);
    }
    done += part;
  }
}

template <typename T>
void FILEReader::read_vector(std::vector<T>* values) {
  const uint64_t count = read_count();
  if (!fits(count, sizeof(T))) fail_to_read<std::vector<T>>(stream_);
  read_contents(values, count, size_ >= 0, stream_);
}

// Inner vectors without elements leave a trace only in the empty vectors that stand first.
void FILEReader::Visit(std::vector<std::vector<uint16_t>>* value, const char*) {
  const uint64_t count = read_count();
  if (!fits(count, sizeof(uint64_t)) || (size_ < 0 && count > kChunkBytes)) {
    fail_to_read<std::vector<std::vector<uint16_t>>>(stream_);
  }
  value->resize(count);
  for (uint64_t i = 0; i < count; ++i) {
    std::vector<uint16_t> inner;
    read_vector(&inner);
    if (!inner.empty()) value->push_back(std::move(inner));
  }
}

void FILEReader::Visit(std::vector<std::string>* value, const char*) {
  value->clear();
  const uint64_t count = read_count();
  // The count compares as a signed number: one with the sign bit set reads nothing.
  const auto signed_count = static_cast<int64_t>(count);
  if (signed_count > 0 && !fits(count, sizeof(uint64_t))) {
    fail_to_read<std::vector<std::string>>(stream_);
  }
  for (int64_t i = 0; i < signed_count; ++i) {
    std::string text;
    Visit(&text, nullptr);
    value->push_back(std::move(text));
  }
}

void FILEReader::Visit(Serializable* value, const char*) {
  value->VisitAttr(std::shared_ptr<FILEReader>(new FILEReader(*this)));
}

void FILEReader::Visit(std::string* value, const char*) {
  const uint64_t length = read_count();
  if (!fits(length, 1)) fail_to_read<std::string>(stream_);
  read_contents(value, length, size_ >= 0, stream_);
}

// A byte of another value than 0 and 1 isn't a bool in memory; every non-zero byte is true.
void FILEReader::Visit(bool* value, const char*) {
  uint8_t byte = 0;
  if (std::fread(&byte, sizeof byte, 1, stream_) != 1) fail_to_read<bool>(stream_);
  *value = byte != 0;
}

#define QRT_READ_VECTOR(type) \
  void FILEReader::Visit(std::vector<type>* value, const char*) { read_vector(value); }
QRT_READ_VECTOR(uint64_t)
QRT_READ_VECTOR(uint32_t)
QRT_READ_VECTOR(int64_t)
QRT_READ_VECTOR(int32_t)
QRT_READ_VECTOR(int16_t)
QRT_READ_VECTOR(uint16_t)
QRT_READ_VECTOR(half_float::half)
QRT_READ_VECTOR(float)
#undef QRT_READ_VECTOR

#define QRT_READ_VALUE(type) \
  void FILEReader::Visit(type* value, const char*) { read(value); }
QRT_READ_VALUE(char)
QRT_READ_VALUE(uint64_t)
QRT_READ_VALUE(int64_t)
QRT_READ_VALUE(uint32_t)
QRT_READ_VALUE(int32_t)
QRT_READ_VALUE(uint16_t)
QRT_READ_VALUE(int16_t)
QRT_READ_VALUE(uint8_t)
QRT_READ_VALUE(int8_t)
QRT_READ_VALUE(double)
QRT_READ_VALUE(half_float::half)
QRT_READ_VALUE(float)
#undef QRT_READ_VALUE

}  // namespace marlo::runtime
