#include <cstring>

#include "qrt_core/runtime/model/legacy_file_internal.h"
#include "qrt_core/utility/half.h"

namespace marlo1 {

namespace {

float to_float(uint16_t bits) {
  half_float::half value;
  static_assert(sizeof value == sizeof bits);
  std::memcpy(static_cast<void*>(&value), &bits, sizeof bits);
  return static_cast<float>(value);
}

}  // namespace

File::File(const char* path) : stream_(path == nullptr ? nullptr : std::fopen(path, "rb")) {
  if (stream_ == nullptr || std::fseek(stream_.get(), 0, SEEK_END) != 0) throw BadFile();
  const long size = std::ftell(stream_.get());
  if (size < 0 || std::fseek(stream_.get(), 0, SEEK_SET) != 0) throw BadFile();
  left_ = static_cast<uint64_t>(size);
}

void File::read(void* to, size_t size) {
  if (size > left_ || std::fread(to, 1, size, stream_.get()) != size) throw BadFile();
  left_ -= size;
}

uint16_t File::word() {
  uint16_t value = 0;
  read(&value, sizeof value);
  return value;
}

bool File::next_word(uint16_t* value) {
  if (left_ < sizeof *value) return false;
  *value = word();
  return true;
}

float File::half() { return to_float(word()); }

std::vector<uint16_t> File::words(size_t count) {
  if (count > left_ / sizeof(uint16_t)) throw BadFile();
  std::vector<uint16_t> values(count);
  read(values.data(), count * sizeof(uint16_t));
  return values;
}

std::vector<float> File::halves(uint64_t count) {
  const std::vector<uint16_t> bits = words(count);
  std::vector<float> values(bits.size());
  for (size_t i = 0; i < bits.size(); ++i) values[i] = to_float(bits[i]);
  return values;
}

void File::skip(size_t size) {
  if (size > left_ || std::fseek(stream_.get(), static_cast<long>(size), SEEK_CUR) != 0) {
    throw BadFile();
  }
  left_ -= size;
}

}  // namespace marlo1
