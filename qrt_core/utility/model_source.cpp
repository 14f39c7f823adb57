#include <cstdio>
#include <memory>
#include <utility>

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

File opened(const std::string& path) {
  File file(std::fopen(path.c_str(), "rb"));
  Assert(file != nullptr, "Error in opening the file [%s].", path.c_str());
  return file;
}

std::string all_of(std::FILE* file, const std::string& path) {
  std::string bytes;
  char part[65536];
  size_t count = 0;
  while ((count = std::fread(part, 1, sizeof part, file)) != 0) bytes.append(part, count);
  Assert(std::ferror(file) == 0, "Error in read the whole file [%s].", path.c_str());
  return bytes;
}

}  // namespace

std::string read_bytes(const std::string& path) { return all_of(opened(path).get(), path); }

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

ModelSource::ModelSource(const std::string& path) : file_(opened(path).release()) {
  std::string start(4096, '\0');
  start.resize(std::fread(start.data(), 1, start.size(), file_.get()));
  const long size = std::fseek(file_.get(), 0, SEEK_END) == 0 ? std::ftell(file_.get()) : -1;
  if (size < 0 || std::fseek(file_.get(), 0, SEEK_SET) != 0) {
    bytes_ = start + all_of(file_.get(), path);
    read_bytes(bytes_.data(), bytes_.size());
    return;
  }
  size_ = static_cast<size_t>(size);
  const bool is_text = is_json(start.data(), start.size());
  // What may be JSON behind much white space is read whole.
  const bool is_open = start.find_first_not_of(" \t\n\r") == std::string::npos;
  if (!is_open) read(is_text);
  if (places_ != nullptr) return;
  std::rewind(file_.get());
  bytes_ = all_of(file_.get(), path);
  read_model(*model_, bytes_.data(), bytes_.size());
}

ModelSource::ModelSource(const char* bytes, size_t size) { read_bytes(bytes, size); }

void ModelSource::read_bytes(const char* bytes, size_t size) {
  size_ = size;
  // Opened for reading only: the stream never writes to the bytes.
  if (size != 0) file_.reset(fmemopen(const_cast<char*>(bytes), size, "rb"));
  if (file_ != nullptr) read(is_json(bytes, size));
  if (places_ == nullptr) read_model(*model_, bytes, size);
}

// Leaves an empty tree and no places where it has to be read whole.
void ModelSource::read(bool is_text) {
  places_ = std::make_unique<runtime::WeightPlaces>(file_.get());
  if (!is_text) {
    const auto reader = std::make_shared<runtime::FILEReader>(file_.get(), 0);
    reader->LeaveWeights(*places_);
    model_->VisitAttr(reader);
    return;
  }
  auto json = runtime::ReadShortJson(file_.get());
  if (json && runtime::ReadJsonWithoutWeights(*model_, *json, *places_)) {
    text_ = std::move(json->text);
    return;
  }
  model_ = std::make_unique<runtime::QRTModel>();
  places_ = nullptr;
}

}  // namespace marlo::utility
