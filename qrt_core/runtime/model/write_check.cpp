#include <cstdarg>
#include <cstdio>
#include <memory>

#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/runtime/model/write_check_internal.h"

namespace marlo::runtime {
namespace {

// Only these hold parts whose class or key follows from data. An application's own classes may
// refuse a visitor that they don't know.
template <typename... Classes>
bool is_one_of(const Serializable& object) {
  return ((dynamic_cast<const Classes*>(&object) != nullptr) || ...);
}

}  // namespace

std::string WriteFault(Serializable& object, bool as_json) {
  if (!is_one_of<QRTModel, QRModelInfoArr, QRModelInfo, QRModelMultiBackendCfgsArr,
                 QRModelMultiBackendCfgs, QRModelCfg, LayerCfg, KernelCfgArr, KernelCfg>(object)) {
    return "";
  }
  const auto check = std::make_shared<WriteCheck>(as_json);
  object.VisitAttr(check);
  return check->fault();
}

WriteCheck::WriteCheck(bool as_json) : as_json_(as_json) {
  note(this, "serialization_protocol_version");
}

WriteCheck::WriteCheck(WriteCheck& parent, const char* key)
    : as_json_(parent.as_json_), parent_(&parent), key_(key) {}

void WriteCheck::Refuse(const char* format, ...) {
  WriteCheck* root = this;
  while (root->parent_ != nullptr) root = root->parent_;
  if (!root->fault_.empty()) return;
  char why[1024];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(why, sizeof why, format, arguments);
  va_end(arguments);
  root->fault_ = path() + why;
}

// The place of the object that is being walked, as the beginning of a message.
std::string WriteCheck::path() const {
  if (parent_ == nullptr) return "";
  std::string place = key_;
  for (const WriteCheck* above = parent_; above->parent_ != nullptr; above = above->parent_) {
    place.insert(0, ".").insert(0, above->key_);
  }
  return place + ": ";
}

// A reader takes the first of equal keys. One object may stand under its key twice.
void WriteCheck::note(const void* value, const char* key) {
  if (!as_json_ || key == nullptr) return;
  const auto [entry, is_new] = members_.try_emplace(key, value);
  if (is_new || entry->second == value) return;
  Refuse("two of its members would have the name \"%s\"", key);
}

void WriteCheck::Visit(Serializable* value, const char* key) {
  note(value, key);
  value->VisitAttr(std::make_shared<WriteCheck>(*this, key));
}

#define QRT_NOTE(type) \
  void WriteCheck::Visit(type* value, const char* key) { note(value, key); }
QRT_NOTE(std::vector<std::vector<uint16_t>>)
QRT_NOTE(std::vector<uint64_t>)
QRT_NOTE(std::vector<uint32_t>)
QRT_NOTE(std::vector<int64_t>)
QRT_NOTE(std::vector<int32_t>)
QRT_NOTE(std::vector<std::string>)
QRT_NOTE(std::vector<int16_t>)
QRT_NOTE(std::vector<uint16_t>)
QRT_NOTE(std::vector<half_float::half>)
QRT_NOTE(std::vector<float>)
QRT_NOTE(std::string)
QRT_NOTE(char)
QRT_NOTE(bool)
QRT_NOTE(uint64_t)
QRT_NOTE(int64_t)
QRT_NOTE(uint32_t)
QRT_NOTE(int32_t)
QRT_NOTE(uint16_t)
QRT_NOTE(int16_t)
QRT_NOTE(uint8_t)
QRT_NOTE(int8_t)
QRT_NOTE(double)
QRT_NOTE(half_float::half)
QRT_NOTE(float)
#undef QRT_NOTE

}  // namespace marlo::runtime
