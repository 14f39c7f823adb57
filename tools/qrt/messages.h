#pragma once

#include <cstdint>
#include <exception>
#include <string>

// What goes to standard error. Standard output is for data only.

namespace qrt_tool {

/// Prints "qrt: text" as one line.
void say(const std::string& text);

/// Sends the library's log to standard error. Lines about errors are kept back, so that they can
/// become part of the tool's own message.
void catch_library_log();

/// The library's error messages kept since the last call, separated by "; ".
std::string take_library_errors();

/// Prints the error messages that nobody took.
void show_library_errors();

/// The library's text for a failure without the tag in front; empty when there is none but the tag.
/// The same text in the log is forgotten.
std::string take_fault(const std::exception& failure);

/// A line that counts up on a terminal; nothing where standard error isn't one.
class Progress {
 public:
  Progress(std::string what, uint64_t count);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  void step();

 private:
  std::string what_;
  uint64_t count_;
  uint64_t done_ = 0;
  int64_t last_shown_ms_ = 0;
  bool shown_ = false;
};

}  // namespace qrt_tool
