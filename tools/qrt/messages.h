#pragma once

#include <cstdint>
#include <exception>
#include <limits>
#include <string>
#include <utility>
#include <vector>

// What goes to standard error. Standard output is for data only.

namespace qrt_tool {

/// How much a message matters.
enum class Level { note, warning, error };

/// From now on each message is one line of JSON:
///
///     {"level": "error", "message": "m.json: can't be read", "exit_code": 4}
///
/// `level` is note, warning or error; `exit_code` stands in the message of the failure that ends
/// the tool, and in no other.
void write_messages_as_json();

/// Prints "qrt: text", or "qrt: warning: text", as one line.
void say(const std::string& text, Level level = Level::note);

/// The same with further members for JSON; empty texts are left out.
void say(const std::string& text, Level level,
         const std::vector<std::pair<const char*, std::string>>& members);

/// Prints the message of the failure that ends the tool.
/// @param hint a second line for people
void say_failure(const std::string& text, int exit_code, const std::string& hint = "");

/// Sends the library's log to standard error. Lines about errors are kept back, so that they can
/// become part of the tool's own message.
void catch_library_log();

/// The library's error messages kept since the last call, separated by "; ".
std::string take_library_errors();

/// Prints the error messages that nobody took.
void show_library_errors();

/// A line of the library's log without the tag in front and the line end, made printable.
std::string without_tag(std::string line);

/// Everything that the library says of a failure, in one line: the layer, its kernel, and why. The
/// same text in the log is forgotten.
std::string take_story(const std::exception& failure);

/// The library's text for a failure without the tag in front; with its
/// reasons where it has any; empty when there is none but the tag.
/// The same text in the log is forgotten.
std::string take_fault(const std::exception& failure);

/// What is left of steps that take equally long, in words: "3 s left"; nothing within the first second.
/// @param seconds that `done` of `count` took @param longest for all of them
std::string time_left(double seconds, uint64_t done, uint64_t count, double longest);

/// A line that counts up on a terminal and says how long it will take; nothing where standard error isn't one.
class Progress {
 public:
  /// @param longest seconds that all steps may take together; what is left of them is never told to
  ///   be more
  Progress(std::string what, uint64_t count,
           double longest = std::numeric_limits<double>::infinity());
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  void step();

 private:
  std::string what_;
  uint64_t count_;
  uint64_t done_ = 0;
  double longest_;
  int64_t begun_ms_ = 0;
  int64_t last_shown_ms_ = 0;
  bool shown_ = false;
};

}  // namespace qrt_tool
