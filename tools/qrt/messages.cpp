#include "tools/qrt/messages.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <vector>

#include "qrt_core/utility/errors.h"
#include "qrt_core/utility/log.h"
#include "tools/qrt/json_text.h"
#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

constexpr char kErrorMark[] = "]: ";
constexpr size_t kMostKept = 8;

bool messages_are_json = false;

constexpr const char* kLevelNames[] = {"note", "warning", "error"};

// `more` are further members.
void write_json_line(const std::string& text, Level level, const std::string& more) {
  const std::string line = std::string("{\"level\": \"") + kLevelNames[static_cast<int>(level)] +
                           "\", \"message\": " + json_string(text) + more + "}\n";
  std::fputs(line.c_str(), stderr);
}

std::vector<std::string>& kept_errors() {
  static std::vector<std::string> errors;
  return errors;
}

// "[tag]: text" marks errors; other levels have their name behind the bracket.
bool is_error(const std::string& line) {
  const size_t bracket = line.find(']');
  return bracket != std::string::npos && line.compare(bracket, 3, kErrorMark) == 0;
}

int receive(const char* text) {
  const std::string line = text;
  if (!is_error(line)) {
    say(printable(line.substr(line.find(']') + 1 + (line.find(']') + 1 < line.size() ? 1 : 0))));
  } else if (kept_errors().size() < kMostKept) {
    kept_errors().push_back(without_tag(line));
  }
  return 0;
}

int64_t now_ms() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

}  // namespace

std::string without_tag(std::string line) {
  if (is_error(line)) line.erase(0, line.find(kErrorMark) + 3);
  line.erase(line.find_last_not_of("\r\n") + 1);
  return printable(line);
}

void write_messages_as_json() { messages_are_json = true; }

void say(const std::string& text, Level level) {
  std::fflush(stdout);
  if (messages_are_json) return write_json_line(text, level, "");
  std::fprintf(stderr, "qrt: %s%s\n", level == Level::warning ? "warning: " : "", text.c_str());
}

void say(const std::string& text, Level level,
         const std::vector<std::pair<const char*, std::string>>& members) {
  if (!messages_are_json) return say(text, level);
  std::fflush(stdout);
  std::string more;
  for (const auto& [key, value] : members) {
    if (value.empty()) continue;
    more.append(", \"").append(key).append("\": ").append(json_string(value));
  }
  write_json_line(text, level, more);
}

void say_failure(const std::string& text, int exit_code, const std::string& hint) {
  if (!messages_are_json) {
    say(text, Level::error);
    if (!hint.empty()) std::fprintf(stderr, "%s\n", hint.c_str());
    return;
  }
  std::fflush(stdout);
  write_json_line(text, Level::error, ", \"exit_code\": " + std::to_string(exit_code));
}

void catch_library_log() { marlo::utility::SetLogCallback(receive); }

std::string take_library_errors() {
  std::string text = joined(kept_errors(), "; ");
  kept_errors().clear();
  return text;
}

void show_library_errors() {
  for (const std::string& error : kept_errors()) say(error, Level::error);
  kept_errors().clear();
}

namespace {

void forget(const std::string& text) {
  std::vector<std::string>& errors = kept_errors();
  if (!errors.empty() && errors.back() == text) errors.pop_back();
}

}  // namespace

std::string take_fault(const std::exception& failure) {
  std::string text = without_tag(failure.what());
  forget(text);
  const auto* error = dynamic_cast<const marlo::utility::Error*>(&failure);
  if (error == nullptr) return text;
  std::vector<std::string> parts;
  if (!text.empty()) parts.push_back(text);
  if (!error->detail().empty()) parts.push_back(printable(error->detail()));
  if (error->layer() != nullptr) {
    for (const auto& misfit : error->layer()->misfits) {
      parts.push_back(printable(misfit_text(misfit)));
    }
  }
  return joined(parts, "; ");
}

std::string take_story(const std::exception& failure) {
  forget(without_tag(failure.what()));
  const auto* error = dynamic_cast<const marlo::utility::Error*>(&failure);
  if (error == nullptr) return without_tag(failure.what());
  std::string line;
  std::istringstream lines(error->story());
  for (std::string part; std::getline(lines, part);) {
    const size_t begin = part.find_first_not_of(' ');
    if (begin == std::string::npos) continue;
    line += (line.empty() ? "" : "; ") + part.substr(begin);
  }
  return printable(line);
}

std::string time_left(double seconds, uint64_t done, uint64_t count, double longest) {
  constexpr double kMinute = 60;
  if (seconds < 1 || done == 0 || done >= count) return "";
  const double rate = seconds / static_cast<double>(done);
  const double left = std::min(rate * static_cast<double>(count - done), longest - seconds);
  const auto whole = static_cast<uint64_t>(std::ceil(std::max(left, 0.0)));
  if (static_cast<double>(whole) < 2 * kMinute) return std::to_string(whole) + " s left";
  return std::to_string(static_cast<uint64_t>(std::ceil(left / kMinute))) + " min left";
}

Progress::Progress(std::string what, uint64_t count, double longest)
    : what_(std::move(what)), count_(count), longest_(longest) {
  if (isatty(STDERR_FILENO) == 0) count_ = 0;
  begun_ms_ = last_shown_ms_ = now_ms();
}

Progress::~Progress() {
  if (shown_) std::fputs("\r\033[K", stderr);
}

void Progress::step() {
  ++done_;
  constexpr int64_t kInterval = 200;
  if (count_ == 0 || now_ms() - last_shown_ms_ < kInterval) return;
  last_shown_ms_ = now_ms();
  shown_ = true;
  constexpr double kMillisecond = 1e-3;
  const std::string left =
      time_left(kMillisecond * static_cast<double>(now_ms() - begun_ms_), done_, count_, longest_);
  std::fprintf(stderr, "\r%s %llu of %llu%s\033[K", what_.c_str(),
               static_cast<unsigned long long>(done_), static_cast<unsigned long long>(count_),
               left.empty() ? "" : (", " + left).c_str());
  std::fflush(stderr);
}

}  // namespace qrt_tool
