#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
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
  const std::string& path() const { return path_; }

  /// Appends bytes. @return false where there is no room; `errno` says why
  bool write(std::string_view bytes) const {
    while (!bytes.empty()) {
      const ssize_t count = ::write(descriptor_, bytes.data(), bytes.size());
      if (count < 0 && errno != EINTR) return false;
      if (count > 0) bytes.remove_prefix(static_cast<size_t>(count));
    }
    return true;
  }

  /// In bytes, whoever wrote them; -1 where that can't be told, and `errno` says why.
  off_t size() const {
    struct stat facts {};
    return fstat(descriptor_, &facts) == 0 ? facts.st_size : -1;
  }

  /// The first `size` bytes. @return false where there are fewer
  bool read(char* to, size_t size) const {
    for (size_t done = 0; done < size;) {
      const ssize_t count = pread(descriptor_, to + done, size - done, static_cast<off_t>(done));
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return false;
      done += static_cast<size_t>(count);
    }
    return true;
  }

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
