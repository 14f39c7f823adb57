#include <cstdio>
#include <memory>

#include "qrt_core/runtime/model/file_visitor.h"
#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/utility/log.h"
#include "qrt_core/utility/model_source_internal.h"

namespace marlo::utility {
namespace {

struct Closer {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, Closer>;

}  // namespace

std::string read_bytes(const std::string& path) {
  const File file(std::fopen(path.c_str(), "rb"));
  Assert(file != nullptr, "Error in opening the file [%s].", path.c_str());
  std::string bytes;
  char part[65536];
  size_t count = 0;
  while ((count = std::fread(part, 1, sizeof part, file.get())) != 0) bytes.append(part, count);
  Assert(std::ferror(file.get()) == 0, "Error in read the whole file [%s].", path.c_str());
  return bytes;
}

bool is_json(const char* bytes, size_t size) {
  size_t at = 0;
  // A byte order mark is no JSON, but a text that was meant to be.
  if (size >= 3 && std::string(bytes, 3) == "\xEF\xBB\xBF") return true;
  while (at < size &&
         (bytes[at] == ' ' || bytes[at] == '\t' || bytes[at] == '\n' || bytes[at] == '\r')) {
    ++at;
  }
  return at < size && (bytes[at] == '{' || bytes[at] == '[' || bytes[at] == '"');
}

void read_model(runtime::QRTModel& model, const char* bytes, size_t size) {
  if (is_json(bytes, size)) {
    model.FromJsonString(std::string(bytes, size).c_str());
    return;
  }
  Assert(size != 0, "the model is empty");
  // Opened for reading only: the stream never writes to the bytes.
  const File file(fmemopen(const_cast<char*>(bytes), size, "rb"));
  Assert(file != nullptr, "the model can't be read from memory");
  model.VisitAttr(std::make_shared<runtime::FILEReader>(file.get(), 0));
}

}  // namespace marlo::utility
