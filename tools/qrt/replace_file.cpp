#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>

#include "tools/qrt/files.h"
#include "tools/qrt/text.h"

// Writing a file whole or not at all. Where the file system can, the new file has no name until it
// is whole, so that nothing is left of it however the program ends.

namespace qrt_tool {

namespace fs = std::filesystem;

namespace {

std::string reason() { return std::strerror(errno); }

[[noreturn]] void fail_to_write(const std::string& path, const std::string& why) {
  throw ToolError(kRunError, printable(path) + ": can't be written: " + why);
}

// The file that a chain of symbolic links ends at, so that the links stay.
fs::path target_of(const std::string& path) {
  std::error_code error;
  fs::path target = fs::weakly_canonical(path, error);
  return error ? fs::path(path) : target;
}

/// A file that has a name although it isn't whole goes away with the signals that end a program.
class NameToDrop {
 public:
  explicit NameToDrop(const std::string& path) {
    std::snprintf(name_, sizeof name_, "%s", path.c_str());
    for (size_t i = 0; i < kCount; ++i) before_[i] = std::signal(kSignals[i], drop);
  }
  NameToDrop(const NameToDrop&) = delete;
  NameToDrop& operator=(const NameToDrop&) = delete;
  ~NameToDrop() {
    for (size_t i = 0; i < kCount; ++i) std::signal(kSignals[i], before_[i]);
    name_[0] = '\0';
  }

 private:
  static constexpr size_t kCount = 4;
  static constexpr int kSignals[kCount] = {SIGHUP, SIGINT, SIGTERM, SIGXFSZ};

  static void drop(int signal) {
    if (name_[0] != '\0') unlink(name_);
    std::signal(signal, SIG_DFL);
    raise(signal);
  }

  static char name_[4096];
  void (*before_[kCount])(int) = {};
};

char NameToDrop::name_[4096];

/// A new file in the folder of its target: without a name if possible.
class NewFile {
 public:
  explicit NewFile(fs::path target) : target_(std::move(target)) {
    const fs::path folder = target_.has_parent_path() ? target_.parent_path() : fs::path(".");
    file_ = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
    // What has no name is reached and named by /proc alone.
    if (file_ >= 0 && access(path().c_str(), W_OK) != 0) {
      close(file_);
      file_ = -1;
    }
    if (file_ < 0) create_with_name();
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  ~NewFile() {
    if (file_ >= 0) close(file_);
    if (!name_.empty()) unlink(name_.c_str());
  }

  /// Where to write to.
  std::string path() const {
    return name_.empty() ? "/proc/self/fd/" + std::to_string(file_) : name_;
  }

  /// Gives the file the name of the target, with the mode and the owner that this has.
  void take_place() {
    struct stat old = {};
    const bool replaces = stat(target_.c_str(), &old) == 0;
    if (replaces) keep_owner(old);
    if (fsync(file_) != 0) fail(reason());
    if (replaces && old.st_nlink > 1) return overwrite();
    if (name_.empty() && !replaces) return link_to(target_);
    if (name_.empty()) {
      const SignalsHeld held;
      const std::string name = name_beside();
      link_to(name);
      name_ = name;
      rename_to_target();
      return;
    }
    rename_to_target();
  }

 private:
  /// Signals wait for the moment in which a whole file has two names.
  struct SignalsHeld {
    SignalsHeld() {
      sigset_t all;
      sigfillset(&all);
      sigprocmask(SIG_BLOCK, &all, &before);
    }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;
    ~SignalsHeld() { sigprocmask(SIG_SETMASK, &before, nullptr); }
    sigset_t before;
  };

  [[noreturn]] void fail(const std::string& why) const { fail_to_write(target_.string(), why); }

  std::string name_beside() const { return target_.string() + ".new-" + std::to_string(getpid()); }

  void create_with_name() {
    const std::string name = name_beside();
    file_ = open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file_ < 0) fail(reason());
    name_ = name;
    drop_.emplace(name);
  }

  // An owner that can't be given is left; a mode that would then give more than before isn't.
  void keep_owner(const struct stat& old) {
    const bool is_ours = fchown(file_, old.st_uid, old.st_gid) == 0;
    const mode_t kept = is_ours ? 07777 : 0777;
    if (fchmod(file_, old.st_mode & kept) != 0) fail(reason());
  }

  void link_to(const fs::path& name) const {
    const std::string self = "/proc/self/fd/" + std::to_string(file_);
    if (linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) != 0) {
      fail(reason());
    }
  }

  void rename_to_target() {
    if (std::rename(name_.c_str(), target_.c_str()) != 0) fail(reason());
    name_.clear();
    const fs::path folder = target_.has_parent_path() ? target_.parent_path() : fs::path(".");
    const int directory = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0) return;
    // The file is whole either way; this only makes its name last.
    (void)fsync(directory);
    close(directory);
  }

  // A file with several names is the same under all of them, so its contents are replaced.
  void overwrite() const {
    const int to = open(target_.c_str(), O_WRONLY | O_CLOEXEC);
    if (to < 0) fail(reason());
    char buffer[1 << 16];
    bool ok = true;
    off_t size = 0;
    for (ssize_t count; ok && (count = pread(file_, buffer, sizeof buffer, size)) > 0;) {
      ok = pwrite(to, buffer, static_cast<size_t>(count), size) == count;
      size += count;
    }
    ok = ok && ftruncate(to, size) == 0 && fsync(to) == 0;
    const std::string why = ok ? "" : reason();
    close(to);
    if (!ok) fail(why);
  }

  fs::path target_;
  int file_ = -1;
  std::string name_;  // empty as long as the file has none
  std::optional<NameToDrop> drop_;
};

/// The file to replace.
fs::path replaceable(const std::string& path) {
  fs::path target = target_of(path);
  struct stat old = {};
  if (stat(target.c_str(), &old) == 0) {
    if (!S_ISREG(old.st_mode)) fail_to_write(path, "it is not a regular file");
    if ((old.st_mode & 0222) == 0 || access(target.c_str(), W_OK) != 0) {
      fail_to_write(path, "it is read-only");
    }
  }
  return target;
}

}  // namespace

void expect_replaceable(const std::string& path) { const NewFile file(replaceable(path)); }

void replace_file(const std::string& path, const std::function<void(const std::string&)>& write) {
  NewFile file(replaceable(path));
  write(file.path());
  file.take_place();
}

void write_file(const std::string& path, const std::string& bytes) {
  replace_file(path, [&](const std::string& temporary) {
    std::FILE* file = std::fopen(temporary.c_str(), "wb");
    if (file == nullptr) fail_to_write(path, reason());
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (std::fclose(file) != 0 || !written) fail_to_write(path, reason());
  });
}

}  // namespace qrt_tool
