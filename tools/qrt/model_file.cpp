#include "tools/qrt/model_file.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <vector>

#include "qrt_core/runtime/model/weight_places_internal.h"
#include "qrt_toolkit/memory_file_internal.h"
#include "tools/qrt/files.h"
#include "tools/qrt/json_text.h"
#include "tools/qrt/layer_facts.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/suggestion.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::Serializable;

namespace {

constexpr char kJsonForm[] = "json";
constexpr char kBinaryForm[] = "bin";

struct Kind {
  ObjectKind kind;
  const char* word;
  const char* suffix;  // of the binary form
};

constexpr std::array<Kind, 5> kKinds = {{{ObjectKind::model, "model", ".qrtmodel"},
                                         {ObjectKind::network, "network", ".qrmod"},
                                         {ObjectKind::networks, "networks", ".qrmods"},
                                         {ObjectKind::config, "config", ".qrcfg"},
                                         {ObjectKind::configs, "configs", ".qrcfgs"}}};

bool ends_with(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

[[noreturn]] void refuse_model(const std::string& path, const std::string& why) {
  throw ToolError(kModelError, shown(path) + ": " + why);
}

// The layer that was being read when a binary file came to a bad end: the last one in its list that
// is there.
std::string place_of_damage(const Serializable& object) {
  const auto last_layer = [](const marlo::runtime::QRModelInfo& info) {
    for (size_t i = info.squential_ids.size(); i-- > 0;) {
      const auto found = info.layers.find(info.squential_ids[i]);
      if (found == info.layers.end()) continue;
      return "layer " + std::to_string(i) + " " + in_quotes(found->first) + " (" +
             kind_of(*found->second) + "): ";
    }
    return std::string("the list of layers: ");
  };
  const auto last_network = [&](const marlo::runtime::QRModelInfoArr& networks) {
    for (size_t i = networks.squential_ids.size(); i-- > 0;) {
      const auto found = networks.infos.find(networks.squential_ids[i]);
      if (found == networks.infos.end()) continue;
      return "network " + in_quotes(found->first) + ", " + last_layer(*found->second);
    }
    return std::string("the list of networks: ");
  };
  if (const auto* info = dynamic_cast<const marlo::runtime::QRModelInfo*>(&object)) {
    return last_layer(*info);
  }
  if (const auto* networks = dynamic_cast<const marlo::runtime::QRModelInfoArr*>(&object)) {
    return last_network(*networks);
  }
  const auto* model = dynamic_cast<const marlo::runtime::QRTModel*>(&object);
  if (model == nullptr) return "";
  const bool in_configs = !model->config_arr->squential_ids.empty();
  return in_configs ? "the configurations: " : last_network(*model->model_arr);
}

// The library's words for a failed read, or our own where it has none.
std::string read_fault(const std::string& path, bool is_json, const std::exception& failure) {
  std::string fault = take_fault(failure);
  if (!fault.empty()) return fault;
  if (is_json) {
    std::string json = json_fault(read_file(rereadable(path, kModelError), kModelError));
    if (!json.empty()) return json;
  }
  return "the file is malformed";
}

// A JSON text, where it can be without its long strings. One with a fault is whole, which is then told of its
// own places.
std::string json_without_weights(const std::string& file) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(file.c_str(), "rb"),
                                                               &std::fclose);
  if (stream != nullptr) {
    auto json = marlo::runtime::ReadShortJson(stream.get());
    if (json && json_fault(json->text).empty()) return std::move(json->text);
  }
  return read_file(file, kModelError);
}

}  // namespace

FileFormat format_of_name(const std::string& path, ExitCode exit_code) {
  if (ends_with(path, ".json")) return {true, std::nullopt};
  std::vector<std::string> suffixes{".json"};
  for (const Kind& kind : kKinds) {
    if (ends_with(path, kind.suffix)) return {false, kind.kind};
    suffixes.emplace_back(kind.suffix);
  }
  std::error_code unknown;
  if (std::filesystem::is_directory(path, unknown)) {
    throw ToolError(exit_code, printable(path) + ": it is a folder; expected a file");
  }
  if (is_stream(path)) {
    const std::string bytes = read_file(rereadable(path, exit_code), exit_code);
    return {bytes[std::min(bytes.find_first_not_of(" \t\r\n"), bytes.size() - 1)] == '{',
            std::nullopt};
  }
  throw ToolError(exit_code, printable(path) +
                                 ": the name doesn't say what the file is; expected " +
                                 "it to end in " + joined(suffixes, ", "));
}

const char* word_for(ObjectKind kind) { return kKinds[static_cast<size_t>(kind)].word; }

std::string phrase_for(ObjectKind kind) {
  const bool is_plural = kind == ObjectKind::networks || kind == ObjectKind::configs;
  return (is_plural ? "a file of " : "a ") + std::string(word_for(kind));
}

ObjectKind kind_for(const std::string& word) {
  std::vector<std::string> words;
  for (const Kind& kind : kKinds) {
    if (word == kind.word) return kind.kind;
    words.emplace_back(kind.word);
  }
  throw ToolError(kUsageError, "--kind " + printable(word) + ": expected one of " +
                                   joined(words, ", ") + did_you_mean(word, words));
}

std::shared_ptr<Serializable> make_object(ObjectKind kind) {
  switch (kind) {
    case ObjectKind::model:
      return std::make_shared<marlo::runtime::QRTModel>();
    case ObjectKind::network:
      return std::make_shared<marlo::runtime::QRModelInfo>();
    case ObjectKind::networks:
      return std::make_shared<marlo::runtime::QRModelInfoArr>();
    case ObjectKind::config:
      return std::make_shared<marlo::runtime::QRModelCfg>();
    case ObjectKind::configs:
      break;
  }
  return std::make_shared<marlo::runtime::QRModelMultiBackendCfgsArr>();
}

ObjectKind kind_of_json(const std::string& path) {
  check_readable(path, kModelError);
  const std::string text = json_without_weights(rereadable(path, kModelError));
  const std::string fault = json_fault(text);
  if (!fault.empty()) refuse_model(path, fault);
  const std::vector<std::string> names = json_member_names(text);
  const auto has = [&](const char* name) {
    return std::find(names.begin(), names.end(), name) != names.end();
  };
  if (has("squential_types")) return ObjectKind::network;
  if (has("sdk_type") || has("model_arr") || !has("squential_ids")) return ObjectKind::model;
  if (has("serializable_type")) return ObjectKind::networks;
  return has("summary") ? ObjectKind::config : ObjectKind::configs;
}

void read_object(Serializable& object, const std::string& path, bool is_json) {
  // The library doesn't say why a file can't be opened.
  check_readable(path, kModelError);
  bool read = false;
  try {
    read =
        object.FromFile(rereadable(path, kModelError).c_str(), is_json ? kJsonForm : kBinaryForm);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& failure) {
    refuse_model(path,
                 (is_json ? "" : place_of_damage(object)) + read_fault(path, is_json, failure));
  }
  if (!read) refuse_model(path, take_library_errors());
}

std::string json_text_of(Serializable& object) {
  // The library writes files only; this one has no name.
  const marlo::toolkit::MemoryFile file;
  const bool written = file.is_open() && object.ToFile(file.path().c_str(), kJsonForm);
  std::string text = written ? read_file(file.path(), kRunError) : "";
  if (!written) throw ToolError(kRunError, "the JSON text can't be made: " + take_library_errors());
  if (!text.empty() && text.back() != '\n') text += '\n';
  return text;
}

void write_object(Serializable& object, ObjectKind kind, const std::string& path, bool is_json) {
  replace_file(path, [&](const std::string& temporary) {
    const char* form = is_json ? kJsonForm : kBinaryForm;
    try {
      if (!object.ToFile(temporary.c_str(), form)) {
        throw ToolError(kRunError,
                        printable(path) + ": can't be written: " + take_library_errors());
      }
      // A disk that fills up while JSON is written goes unnoticed, so what was written is read.
      make_object(kind)->FromFile(temporary.c_str(), form);
    } catch (const std::runtime_error& failure) {
      if (dynamic_cast<const ToolError*>(&failure) != nullptr) throw;
      const std::string fault = take_fault(failure);
      throw ToolError(kRunError, printable(path) + ": can't be written whole" +
                                     (fault.empty() ? "" : ": " + fault));
    }
  });
}

}  // namespace qrt_tool
