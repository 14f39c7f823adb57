#include "qrt_toolkit/tune/wisdom.h"

#include <fcntl.h>
#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <sys/file.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

namespace marlo::toolkit {
namespace {

using Times = std::map<std::string, double>;
using AllTimes = std::map<std::string, Times>;  // by machine

constexpr int kForm = 1;

/// What a file holds; where it can't be read, nothing and why.
AllTimes read_all(const std::string& path, std::string& fault) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) {
    fault = path + ": it is a folder; it is passed over";
    return {};
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) return {};
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  rapidjson::Document document;
  document.Parse<rapidjson::kParseIterativeFlag>(text.c_str());
  const bool is_wisdom = !document.HasParseError() && document.IsObject() &&
                         document.HasMember("qrt_wisdom") && document["qrt_wisdom"].IsInt() &&
                         document["qrt_wisdom"].GetInt() == kForm && document.HasMember("times") &&
                         document["times"].IsObject();
  if (!is_wisdom) {
    fault = path + ": expected an object with \"qrt_wisdom\": 1 and \"times\"; it is passed over";
    return {};
  }
  AllTimes all;
  for (const auto& machine : document["times"].GetObject()) {
    if (!machine.value.IsObject()) continue;
    Times& times = all[machine.name.GetString()];
    for (const auto& entry : machine.value.GetObject()) {
      if (!entry.value.IsNumber()) continue;
      const double time = entry.value.GetDouble();
      if (std::isfinite(time) && time >= 0) times[entry.name.GetString()] = time;
    }
  }
  return all;
}

std::string text_of(const AllTimes& all) {
  rapidjson::StringBuffer text;
  rapidjson::PrettyWriter<rapidjson::StringBuffer> json(text);
  json.SetIndent(' ', 1);
  json.StartObject();
  json.Key("qrt_wisdom");
  json.Int(kForm);
  json.Key("times");
  json.StartObject();
  for (const auto& [machine, times] : all) {
    json.Key(machine.c_str());
    json.StartObject();
    for (const auto& [key, time] : times) {
      json.Key(key.c_str());
      json.Double(time);
    }
    json.EndObject();
  }
  json.EndObject();
  json.EndObject();
  return std::string(text.GetString()) + "\n";
}

/// Keeps other processes from a file while it lives.
class Lock {
 public:
  explicit Lock(const std::string& path)
      : descriptor_(open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0644)) {
    if (descriptor_ >= 0) flock(descriptor_, LOCK_EX);
  }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  ~Lock() {
    if (descriptor_ >= 0) close(descriptor_);
  }

 private:
  int descriptor_;
};

}  // namespace

Wisdom::Wisdom(std::string path, std::string machine)
    : path_(std::move(path)), machine_(std::move(machine)) {
  if (!path_.empty()) times_ = read_all(path_, fault_)[machine_];
}

std::optional<double> Wisdom::time(const std::string& key) const {
  const auto found = times_.find(key);
  if (found == times_.end()) return std::nullopt;
  return found->second;
}

void Wisdom::add(const std::string& key, double milliseconds) {
  times_[key] = milliseconds;
  added_[key] = milliseconds;
}

std::string Wisdom::save() {
  if (path_.empty() || added_.empty()) return "";
  const std::filesystem::path path = path_;
  std::error_code ignored;
  if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path(), ignored);
  const Lock lock(path_ + ".lock");
  std::string fault;
  AllTimes all = read_all(path_, fault);
  for (const auto& [key, time] : added_) all[machine_][key] = time;
  const std::string fresh = path_ + "." + std::to_string(getpid());
  std::ofstream file(fresh, std::ios::binary | std::ios::trunc);
  file << text_of(all);
  file.close();
  std::error_code failure;
  if (file) std::filesystem::rename(fresh, path, failure);
  if (file && !failure) {
    added_.clear();
    return "";
  }
  std::filesystem::remove(fresh, ignored);
  return path_ + ": it can't be written";
}

}  // namespace marlo::toolkit
