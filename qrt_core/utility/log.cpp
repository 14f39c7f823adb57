#include "qrt_core/utility/log.h"

#include <cstdarg>
#include <cstdio>

#include "qrt_core/utility/errors.h"
#include "qrt_core/utility/quiet_log_internal.h"

namespace marlo::utility {
namespace {

constexpr std::size_t kMessageCapacity = 2048;
constexpr unsigned int kDefaultMask = LOG_TRACE | LOG_INFO | LOG_WARNING | LOG_ERROR;

// The line and its end in one call, so that those of two threads don't mix.
int print_line(const char* line) {
  std::puts(line);
  std::fflush(stdout);
  return 0;
}

unsigned int log_mask = kDefaultMask;
LogCallback log_callback = print_line;
thread_local char message_buffer[kMessageCapacity] = "";

// Made at the first call, which may come from another static initialiser, and never destroyed: an
// application's globals may log when they go.
std::string& log_tag() {
  static std::string& tag = *new std::string("QRT");
  return tag;
}

thread_local unsigned int quiet_depth = 0;  // how many `QuietLog` live

void hand_over(const std::string& line) {
  if (quiet_depth == 0) log_callback(line.c_str());
}

// The text between the tag and the message; null for a level that never prints.
const char* level_prefix(int level) {
  switch (level) {
    case LOG_VERBOSE:
      return "] (Verbose): ";
    case LOG_INFO:
      return "] (Info): ";
    case LOG_WARNING:
      return "] (Warnning): ";
    case LOG_ERROR:
      return "]: ";
    default:
      return nullptr;
  }
}

}  // namespace

QuietLog::QuietLog() { ++quiet_depth; }
QuietLog::~QuietLog() { --quiet_depth; }

std::string Log(int level, const char* format, ...) {
  const char* prefix = level_prefix(level);
  if (prefix != nullptr && (log_mask & static_cast<unsigned int>(level)) != 0) {
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(message_buffer, kMessageCapacity, format, arguments);
    va_end(arguments);
    std::string line = "[" + log_tag() + prefix + message_buffer;
    if (level == LOG_ERROR) line += '\n';
    hand_over(line);
  }
  return message_buffer;
}

QR_STATUS Assert(bool condition, const char* format, ...) {
  if (condition) return QR_STATUS_OK;
  std::string text = "[" + log_tag() + "]: ";
  const size_t message_begin = text.size();
  if (format != nullptr) {
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(message_buffer, kMessageCapacity, format, arguments);
    va_end(arguments);
    text += message_buffer;
    text += '\n';
    hand_over(text);
  }
  throw Error(text, message_begin);
}

QR_STATUS SetLogLevel(unsigned int mask) {
  log_mask = mask;
  return QR_STATUS_OK;
}

QR_STATUS GetLogLevel(unsigned int* mask) {
  if (mask != nullptr) *mask = log_mask;
  return QR_STATUS_OK;
}

QR_STATUS SetLogTag(const char* tag) {
  if (tag == nullptr || *tag == '\0') return QR_STATUS_REFUSED;
  log_tag() = tag;
  return QR_STATUS_OK;
}

QR_STATUS SetLogCallback(int (*callback)(const char*)) {
  if (callback == nullptr) return QR_STATUS_REFUSED;
  log_callback = callback;
  return QR_STATUS_OK;
}

}  // namespace marlo::utility
