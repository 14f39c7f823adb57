#include "qrt_toolkit/tune/summary.h"

#include <cpuid.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <array>
#include <cstring>
#include <sstream>

#include "qrt_core/runtime/tensor/shape_text.h"
#include "qrt_core/utility/application.h"

namespace marlo::toolkit {
namespace {

constexpr char kMark[] = "{\"qrt_tuned\":";

bool is_mark(const std::string& line) { return line.rfind(kMark, 0) == 0; }

std::string library_version() {
  unsigned int major = 0;
  unsigned int minor = 0;
  QRT_Get_Core_Version(major, minor);
  return "qrt_core " + std::to_string(major) + "." + std::to_string(minor);
}

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

void write_shapes(Writer& json, const std::map<std::string, runtime::TensorShape>& shapes) {
  json.StartObject();
  for (const auto& [id, shape] : shapes) {
    json.Key(id.c_str());
    json.String(runtime::ShapeText(shape).c_str());
  }
  json.EndObject();
}

/// What `write_shapes` wrote; nothing of what is no text.
std::map<std::string, std::string> read_shapes(const rapidjson::Value& object) {
  std::map<std::string, std::string> shapes;
  if (!object.IsObject()) return shapes;
  for (const auto& input : object.GetObject()) {
    if (input.value.IsString()) shapes[input.name.GetString()] = input.value.GetString();
  }
  return shapes;
}

std::string mark_of(const TuneOptions& options) {
  rapidjson::StringBuffer text;
  Writer json(text);
  json.StartObject();
  json.Key("qrt_tuned");
  json.Uint(1);
  json.Key("processor");
  json.String(options.processor.c_str());
  json.Key("kernels");
  json.String(word_of(options.assign.set));
  json.Key("tolerance");
  json.Double(options.assign.tolerance);
  json.Key("library");
  json.String(library_version().c_str());
  json.Key("inputs");
  write_shapes(json, options.assign.inputs);
  if (!options.further.empty()) {
    json.Key("further_inputs");
    json.StartArray();
    for (const TuneSize& size : options.further) write_shapes(json, size.inputs);
    json.EndArray();
  }
  if (!options.date.empty()) {
    json.Key("date");
    json.String(options.date.c_str());
  }
  json.EndObject();
  return text.GetString();
}

}  // namespace

std::string with_mark(const std::string& summary, const TuneOptions& options) {
  std::istringstream lines(summary);
  std::string kept;
  for (std::string line; std::getline(lines, line);) {
    if (!is_mark(line)) kept += line + "\n";
  }
  return kept + mark_of(options);
}

std::string library_name(const runtime::KernelRegistry& kernels) {
  return library_version() + ", " + std::to_string(kernels.Keys().size()) + " kernels";
}

std::optional<double> tolerance_of(std::string_view numerics) {
  if (numerics == "same") return 0;
  if (numerics == "bounded") return 1e-4;
  if (numerics == "fast") return 0.05;
  return std::nullopt;
}

std::string processor_name() {
  // Three leaves of sixteen characters each, from the first extended one that holds them.
  constexpr unsigned int kFirst = 0x80000002;
  constexpr unsigned int kLeaves = 3;
  std::array<unsigned int, 4 * kLeaves + 1> words{};
  for (unsigned int leaf = 0; leaf < kLeaves; ++leaf) {
    unsigned int* part = &words.at(size_t{4} * leaf);
    if (__get_cpuid(kFirst + leaf, &part[0], &part[1], &part[2], &part[3]) == 0) return "unknown";
  }
  std::string name(4 * sizeof(unsigned int) * kLeaves, '\0');
  std::memcpy(name.data(), words.data(), name.size());
  name.resize(std::strlen(name.c_str()));
  const size_t begin = name.find_first_not_of(' ');
  if (begin == std::string::npos) return "unknown";
  return name.substr(begin, name.find_last_not_of(' ') - begin + 1);
}

std::optional<TunedFor> tuned_for(const std::string& summary) {
  std::istringstream lines(summary);
  for (std::string line; std::getline(lines, line);) {
    if (!is_mark(line)) continue;
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(line.c_str());
    if (document.HasParseError() || !document.IsObject()) return std::nullopt;
    const auto text_of = [](const auto& object, const char* key) -> std::string {
      const auto member = object.FindMember(key);
      const bool is_text = member != object.MemberEnd() && member->value.IsString();
      return is_text ? member->value.GetString() : "";
    };
    TunedFor tuned;
    tuned.processor = text_of(document, "processor");
    tuned.kernels = text_of(document, "kernels");
    tuned.library = text_of(document, "library");
    tuned.date = text_of(document, "date");
    const rapidjson::Value& mark = document;
    const auto inputs = mark.FindMember("inputs");
    if (inputs != mark.MemberEnd()) tuned.inputs = read_shapes(inputs->value);
    const auto further = mark.FindMember("further_inputs");
    if (further != mark.MemberEnd() && further->value.IsArray()) {
      for (const auto& shapes : further->value.GetArray()) {
        tuned.further.push_back(read_shapes(shapes));
      }
    }
    return tuned;
  }
  return std::nullopt;
}

std::string tuned_processor(const std::string& summary) {
  const auto tuned = tuned_for(summary);
  return tuned ? tuned->processor : "";
}

}  // namespace marlo::toolkit
