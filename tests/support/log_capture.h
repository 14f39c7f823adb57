#pragma once

#include <string>
#include <vector>

namespace marlo::test {

/// Collects what the library logs while it lives; one at a time, on one thread.
///
/// Its end restores the tag "QRT", the mask 30 and a sink that prints to standard output.
class LogCapture {
 public:
  LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture();

  /// The lines handed to the callback, as they came.
  const std::vector<std::string>& lines() const { return lines_; }

  /// Forgets the lines and the memory that held them.
  void clear() { std::vector<std::string>().swap(lines_); }

 private:
  static int receive(const char* line);

  static LogCapture* current_;
  std::vector<std::string> lines_;
};

}  // namespace marlo::test
