#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace marlo::toolkit {

/// A file that functions of the library open by its path: in memory, or a temporary one where no
/// /proc gives such a file a path.
class MemoryFile {
 public:
  MemoryFile() : descriptor_(memfd_create("qrt", MFD_CLOEXEC)) {
    path_ = "/proc/self/fd/" + std::to_string(descriptor_);
    if (descriptor_ >= 0 && access(path_.c_str(), W_OK) != 0) make_temporary();
  }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile() {
    if (is_open()) close(descriptor_);
    if (is_temporary_) unlink(path_.c_str());
  }

  /// Whether there is such a file; `errno` says why there is none.
  bool is_open() const { return descriptor_ >= 0; }
  int descriptor() const { return descriptor_; }
  const std::string& path() const { return path_; }

 private:
  void make_temporary() {
    std::error_code fault;
    path_ = (std::filesystem::temp_directory_path(fault) / "qrt_XXXXXX").string();
    close(descriptor_);
    descriptor_ = mkostemp(path_.data(), O_CLOEXEC);
    is_temporary_ = is_open();
  }

  int descriptor_;
  std::string path_;
  bool is_temporary_ = false;
};

}  // namespace marlo::toolkit
