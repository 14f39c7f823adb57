#pragma once

#include <filesystem>
#include <fstream>
#include <string>

namespace marlo::test {

/// The samples name files without a folder: here is where they find them while it lives.
class WorkingFolder {
 public:
  explicit WorkingFolder(const std::filesystem::path& folder)
      : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(folder);
  }
  WorkingFolder(const WorkingFolder&) = delete;
  WorkingFolder& operator=(const WorkingFolder&) = delete;
  ~WorkingFolder() { std::filesystem::current_path(before_); }

 private:
  std::filesystem::path before_;
};

/// Writes a file of the current folder.
inline void write_text(const std::string& name, const std::string& text) {
  std::ofstream(name) << text;
}

}  // namespace marlo::test
