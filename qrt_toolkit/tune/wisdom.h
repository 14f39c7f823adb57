#pragma once

#include <map>
#include <optional>
#include <string>

// Times that earlier runs have measured.

namespace marlo::toolkit {

/// Times by what was measured, of one processor and one build of the library. A file holds those of
/// many, as JSON: an object whose member "qrt_wisdom" is 1, and whose member "times" holds for each
/// processor with its library an object of milliseconds by `Work::key`.
class Wisdom {
 public:
  /// Reads a file. One that isn't there holds nothing; one that can't be read is passed over, and
  /// `fault` says why.
  /// @param path empty for none
  /// @param machine processor and library, as one text
  Wisdom(std::string path, std::string machine);

  const std::string& fault() const { return fault_; }
  std::optional<double> time(const std::string& key) const;
  void add(const std::string& key, double milliseconds);

  /// Writes what is new into the file, beside what others have written in the meantime. A file that
  /// couldn't be read is replaced.
  /// @return why it can't be written; empty if it was, or if nothing is new
  std::string save();

 private:
  std::string path_;
  std::string machine_;
  std::string fault_;
  std::map<std::string, double> times_;
  std::map<std::string, double> added_;
};

}  // namespace marlo::toolkit
