#include <cmath>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/runtime/model/json_document.h"
#include "qrt_core/runtime/model/layer_catalogue.h"
#include "qrt_core/runtime/model/visitor.h"
#include "qrt_core/runtime/model/weight_blob.h"
#include "qrt_core/utility/check_model_internal.h"
#include "qrt_core/utility/nearest_name_internal.h"

#include <rapidjson/error/en.h>
#include <rapidjson/writer.h>

namespace marlo::utility {
namespace {

using runtime::LayerInfo;
using runtime::Serializable;
using runtime::Visitor;
namespace json = runtime::json;

constexpr char kVersionKey[] = "serialization_protocol_version";
constexpr char kClassKey[] = "serializable_type";

// Numbers that JSON reads as 0 where they are absent, and that a description by hand has as 1.
const std::set<std::string> kOneByDefault = {"stride_x",   "stride_y", "stride", "dilation_x",
                                             "dilation_y", "dilation", "groups", "num_layers"};

std::string text_of(const json::Value& value) {
  if (value.IsString()) return "\"" + std::string(value.GetString()) + "\"";
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return std::string(buffer.GetString(), buffer.GetSize());
}

template <typename T>
constexpr bool is_vector = false;
template <typename T>
constexpr bool is_vector<std::vector<T>> = true;

/// What the objects of one walk share.
struct Walk {
  const json::Value& document;
  FindingList& findings;
  bool was_read;
};

// The kernel that a document names for a layer; empty if it names none.
std::string kernel_in(const json::Value& document, const std::string& network,
                      const std::string& layer) {
  const json::Value* at = &document;
  for (const std::string& key : {std::string("config_arr"), network, std::string("cpu_sse"), layer,
                                 std::string("kernel"), std::string("kernel_type")}) {
    if (!at->IsObject()) return "";
    const auto found = at->FindMember(key.c_str());
    if (found == at->MemberEnd()) return "";
    at = &found->value;
  }
  return at->IsString() ? at->GetString() : "";
}

/// Compares the members of one JSON object with the attributes of the object read from it. Changes
/// neither.
class Examiner final : public Visitor, public runtime::WeightsAsText {
 public:
  Examiner(const json::Value& object, Walk& walk, FindingList::Place place, std::string name)
      : object_(object), walk_(walk), place_(std::move(place)), name_(std::move(name)) {}

#define QRT_EXAMINE(type) \
  void Visit(type* value, const char* key) override { examine(*value, key); }
  QRT_FOR_EACH_ATTRIBUTE_TYPE(QRT_EXAMINE)
#undef QRT_EXAMINE

  /// Walks an object's attributes and then looks for members that none of them is.
  void examine_object(Serializable& value) {
    owner_ = dynamic_cast<LayerInfo*>(&value);
    network_ = dynamic_cast<runtime::QRModelInfo*>(&value);
    converters_ = dynamic_cast<runtime::KernelCfgArr*>(&value) != nullptr;
    // A walk gives an object its class's name; what was read stays.
    const std::string name = value.serializable_type;
    value.VisitAttr(std::shared_ptr<Visitor>(std::shared_ptr<Visitor>(), this));
    value.serializable_type = name;
    find_unread_members();
  }

 private:
  const json::Value* find(const char* key) {
    keys_.insert(key);
    if (!object_.IsObject()) return nullptr;
    const auto found = object_.FindMember(key);
    return found == object_.MemberEnd() || found->value.IsNull() ? nullptr : &found->value;
  }

  std::string member(const std::string& key) const {
    const bool is_place = name_.empty() || name_ == place_.id || name_ == place_.network;
    return is_place ? key : name_ + "." + key;
  }

  void add(FindingCode code, Severity severity, const std::string& key, const std::string& expected,
           const std::string& found, const std::string& change) {
    walk_.findings.add(place_, code, severity, member(key), expected, found, change);
  }

  void expect(bool is_right, const char* key, const char* kind, const json::Value& value) {
    // What reading accepted is right, whatever its kind.
    if (is_right || walk_.was_read) return;
    add(FindingCode::unreadable, Severity::error, key, kind,
        std::string(json::kind_of(value)) +
            (value.IsObject() || value.IsArray() ? "" : ", " + text_of(value)),
        "");
  }

  template <typename T>
  void examine(T& value, const char* key) {
    if constexpr (std::is_base_of_v<Serializable, T>) {
      examine_nested(value, key);
    } else {
      const json::Value* found = find(key);
      if constexpr (std::is_same_v<T, std::string>) {
        examine_text(value, key, found);
      } else if (found == nullptr) {
        if (owner_ != nullptr && kOneByDefault.count(key) != 0) {
          add(FindingCode::missing_member, Severity::warning, key, "1 as a rule",
              "nothing, which JSON reads as 0", "write the member");
        }
      } else if constexpr (is_vector<T>) {
        expect(found->IsArray(), key, "an array", *found);
        if (found->IsArray()) examine_elements(value, key, *found);
      } else {
        examine_number<T>(key, *found);
      }
    }
  }

  template <typename T>
  void examine_elements(std::vector<T>&, const char* key, const json::Value& found) {
    for (const json::Value& element : found.GetArray()) {
      if constexpr (std::is_same_v<T, std::string>) {
        expect(element.IsString(), key, "an array of texts", element);
      } else if constexpr (!is_vector<T>) {
        examine_number<T>(key, element);
      }
    }
  }

  template <typename T>
  void examine_number(const char* key, const json::Value& found) {
    if constexpr (std::is_same_v<T, bool>) {
      expect(found.IsBool(), key, "true or false", found);
    } else if constexpr (std::is_integral_v<T> && !std::is_same_v<T, char>) {
      expect(found.IsInt64() || found.IsUint64(), key, "an integer", found);
      if (found.IsInt64() || found.IsUint64()) examine_range<T>(key, found);
      if (network_ == nullptr && owner_ != nullptr && std::string(key) == "type") {
        examine_code(found);
      }
    } else {
      expect(found.IsNumber(), key, "a number", found);
    }
  }

  template <typename T>
  void examine_range(const char* key, const json::Value& found) {
    constexpr T low = std::numeric_limits<T>::min();
    constexpr T high = std::numeric_limits<T>::max();
    bool fits = true;
    uint64_t bits = 0;
    if (found.IsInt64()) {
      const int64_t number = found.GetInt64();
      bits = static_cast<uint64_t>(number);
      fits = number >= 0 ? static_cast<uint64_t>(number) <= static_cast<uint64_t>(high)
                         : std::is_signed_v<T> && number >= static_cast<int64_t>(low);
    } else {
      bits = found.GetUint64();
      fits = bits <= static_cast<uint64_t>(high);
    }
    if (fits) return;
    add(FindingCode::cut_number, Severity::error, key,
        std::to_string(low) + " to " + std::to_string(high), text_of(found),
        "it is read as " + std::to_string(static_cast<T>(bits)));
  }

  void examine_code(const json::Value& found) {
    if (!found.IsUint64() || found.GetUint64() == owner_->type) return;
    add(FindingCode::wrong_class, Severity::error, "type",
        std::to_string(owner_->type) + ", as \"squential_types\" says", text_of(found),
        "make both the code of the description");
  }

  void examine_text(const std::string& value, const char* key, const json::Value* found) {
    if (found == nullptr) {
      if (!walk_.was_read) {
        add(FindingCode::missing_member, Severity::error, key, "a text", "nothing",
            "texts have no default: write \"\" for none");
      }
      return;
    }
    expect(found->IsString(), key, "a text", *found);
    if (owner_ == nullptr || std::string(key) != kClassKey || !found->IsString()) return;
    // The walk has just given the attribute its class's name.
    if (value == found->GetString()) return;
    add(FindingCode::wrong_class, Severity::error, key,
        value + ", the class of code " + std::to_string(owner_->type), text_of(*found),
        "make \"squential_types\" the code of the description");
  }

  template <typename T>
  void examine_nested(T& value, const char* key) {
    // A list that names one object many times reads it as many times; once is enough here.
    if (keys_.count(key) != 0) return;
    const json::Value* found = find(key);
    FindingList::Place place = place_;
    const bool is_network = dynamic_cast<runtime::QRModelInfo*>(&value) != nullptr ||
                            dynamic_cast<runtime::QRModelMultiBackendCfgs*>(&value) != nullptr;
    if (is_network) place.network = key;
    auto* info = dynamic_cast<LayerInfo*>(&value);
    if (info != nullptr) {
      place.id = key;
      place.kind = kind_of(*info);
      if (network_ != nullptr) place.layer = position_of(key);
      place.kernel = kernel_in(walk_.document, place.network, key);
    } else if (dynamic_cast<runtime::LayerCfg*>(&value) != nullptr) {
      place.id = key;
      place.kernel = kernel_in(walk_.document, place.network, key);
    }
    if (found == nullptr) {
      if (dynamic_cast<runtime::NetExtraInfo*>(&value) != nullptr) {
        add(FindingCode::missing_member, Severity::warning, key,
            "a header with the height and the width of the input", "nothing",
            "write it, so that programs can tell what the network takes");
      }
      if (info != nullptr) {
        walk_.findings.add(place, FindingCode::unknown_id, Severity::error, "squential_ids",
                           "the id of a layer of the network", "\"" + std::string(key) + "\"",
                           nearest_advice(key, unlisted_members(), "describe the layer"));
      }
      return;
    }
    expect(found->IsObject(), key, "an object", *found);
    if (!found->IsObject()) return;
    Examiner nested(*found, walk_, place, key);
    nested._serialization_protocol_version = _serialization_protocol_version;
    nested.examine_object(value);
  }

  uint32_t position_of(const std::string& id) {
    if (positions_.empty()) {
      for (uint32_t p = 0; p < network_->squential_ids.size(); ++p) {
        positions_.emplace(network_->squential_ids[p], p);
      }
    }
    const auto found = positions_.find(id);
    return found != positions_.end() ? found->second : 0;
  }

  // Members that are objects and that no attribute has asked for, nor any list of layers.
  std::vector<std::string> unlisted_members() {
    std::vector<std::string> names;
    if (walk_.findings.is_full()) return names;
    const std::set<std::string> listed =
        network_ != nullptr
            ? std::set<std::string>(network_->squential_ids.begin(), network_->squential_ids.end())
            : std::set<std::string>();
    for (const auto& entry : object_.GetObject()) {
      const std::string name = entry.name.GetString();
      if (entry.value.IsObject() && keys_.count(name) == 0 && listed.count(name) == 0) {
        names.push_back(name);
      }
    }
    return names;
  }

  void find_unread_members() {
    std::vector<std::string> missing;
    for (const std::string& key : keys_) {
      if (object_.FindMember(key.c_str()) == object_.MemberEnd()) missing.push_back(key);
    }
    const std::vector<std::string> known(keys_.begin(), keys_.end());
    std::set<std::string> seen;
    for (const auto& entry : object_.GetObject()) {
      const std::string name = entry.name.GetString();
      if (!seen.insert(name).second) {
        add(FindingCode::repeated_id, Severity::warning, name, "each member once", "it again",
            "the first one is read");
      }
      if (keys_.count(name) != 0 || name == kVersionKey || name == kClassKey) continue;
      if (converters_) {
        add(FindingCode::unused_configuration, Severity::error, name,
            "a converter that \"kernel_ids\" lists", "one that it doesn't",
            "add \"" + name + "\" to \"kernel_ids\"");
        continue;
      }
      // The likeliest slip is a member that is missing now.
      const std::string meant = nearest_name(name, missing);
      add(FindingCode::unknown_member, Severity::warning, name, "a member that is read",
          entry.value.IsObject() || entry.value.IsArray() ? json::kind_of(entry.value)
                                                          : text_of(entry.value).substr(0, 40),
          meant.empty() ? nearest_advice(name, known, "nothing reads it: remove it")
                        : "did you mean \"" + meant + "\"?");
    }
  }

  const json::Value& object_;
  Walk& walk_;
  FindingList::Place place_;
  std::string name_;
  LayerInfo* owner_ = nullptr;
  runtime::QRModelInfo* network_ = nullptr;
  bool converters_ = false;
  std::set<std::string> keys_;
  std::map<std::string, uint32_t> positions_;
};

// Reads the text as the library does, up to its first NUL byte.
void parse(json::Document& document, const std::string& text) {
  document.Parse<rapidjson::kParseIterativeFlag>(text.c_str());
}

}  // namespace

bool check_json_syntax(const std::string& text, FindingList& findings) {
  Finding place;
  const bool has_mark = text.compare(0, 3, "\xEF\xBB\xBF") == 0;
  json::Document document;
  parse(document, text);
  if (!document.HasParseError() && document.IsObject()) return true;
  size_t at = 0;
  std::string found = document.HasParseError()
                          ? rapidjson::GetParseError_En(document.GetParseError())
                          : json::kind_of(document);
  if (document.HasParseError()) at = document.GetErrorOffset();
  if (has_mark) found = "a byte order mark";
  place.line = 1;
  place.column = 1;
  for (size_t i = 0; i < at && i < text.size(); ++i) {
    ++place.column;
    if (text[i] == '\n') {
      ++place.line;
      place.column = 1;
    }
  }
  findings.add(place, FindingCode::unreadable, Severity::error, "", "a JSON object", found,
               has_mark ? "write the file as UTF-8 without a mark" : "");
  return false;
}

void examine_json(const std::string& text, runtime::QRTModel& model, bool was_read,
                  FindingList& findings) {
  json::Document document;
  parse(document, text);
  if (!document.IsObject()) return;
  Walk walk{document, findings, was_read};
  Examiner examiner(document, walk, {}, "");
  const auto version = document.FindMember(kVersionKey);
  if (version != document.MemberEnd() && version->value.IsUint()) {
    examiner._serialization_protocol_version = version->value.GetUint();
  }
  examiner.examine_object(model);
}

}  // namespace marlo::utility
