#include "tools/qrt/files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <new>

#include "qrt_toolkit/memory_file_internal.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

namespace fs = std::filesystem;
using marlo::toolkit::MemoryFile;

namespace {

constexpr size_t kMostBytes = size_t{1} << 30;

std::string reason() { return std::strerror(errno); }

// What can be read once only, by name: in memory, for as long as the process lives.
std::map<std::string, MemoryFile>& copies() {
  static std::map<std::string, MemoryFile> files;
  return files;
}

// The first bytes of a file, up to `most`; at least one.
std::string read_bytes(const std::string& path, ExitCode exit_code, size_t most) {
  const auto refuse = [&](const std::string& why) {
    throw ToolError(exit_code, shown(path) + ": can't be read: " + why);
  };
  std::error_code error;
  if (fs::is_directory(path, error)) refuse("it is a folder");
  const char* const name = path == kStandardStream ? "/dev/stdin" : path.c_str();
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(name, "rb"), &std::fclose);
  if (file == nullptr) refuse(reason());
  std::string bytes;
  char buffer[1 << 16];
  while (bytes.size() < most) {
    const size_t wanted = std::min(sizeof buffer, most - bytes.size());
    const size_t count = std::fread(buffer, 1, wanted, file.get());
    bytes.append(buffer, count);
    if (count < wanted) break;
  }
  if (std::ferror(file.get()) != 0) refuse(reason());
  if (bytes.empty()) refuse("the file is empty");
  return bytes;
}

std::string read_whole(const std::string& path, ExitCode exit_code) {
  std::string bytes = read_bytes(path, exit_code, kMostBytes + 1);
  if (bytes.size() > kMostBytes) {
    throw ToolError(exit_code, shown(path) + ": can't be read: it is larger than 1 GiB");
  }
  return bytes;
}

}  // namespace

std::string shown(const std::string& path) {
  return path == kStandardStream ? "standard input" : printable(path);
}

bool is_stream(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  return path == kStandardStream || (!error && fs::exists(status) && !fs::is_regular_file(status) &&
                                     !fs::is_directory(status));
}

std::string rereadable(const std::string& path, ExitCode exit_code) {
  if (!is_stream(path)) return path;
  const auto found = copies().find(path);
  if (found != copies().end()) return found->second.path();
  const std::string bytes = read_whole(path, exit_code);
  const MemoryFile& copy = copies()[path];
  if (!copy.is_open() || !copy.write(bytes)) throw std::bad_alloc();
  return copy.path();
}

std::string read_file(const std::string& path, ExitCode exit_code) {
  const auto found = copies().find(path);
  return read_whole(found != copies().end() ? found->second.path() : path, exit_code);
}

void check_readable(const std::string& path, ExitCode exit_code) {
  if (!is_stream(path)) read_bytes(path, exit_code, 1);
}

bool is_same_file(const std::string& a, const std::string& b) {
  std::error_code error;
  return fs::equivalent(a, b, error) && !error;
}

}  // namespace qrt_tool
