#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

namespace marlo1 {

/// Thrown and caught while a file is read: the file ends too early or contradicts itself.
struct BadFile {};

/// The bytes of a file from first to last. Counts come from the file, so they are compared with
/// what is left of it before anything is allocated.
class File {
 public:
  /// @throws BadFile if it can't be opened or isn't a file with an end
  explicit File(const char* path);

  void read(void* to, size_t size);

  /// A word of 16 bits. @throws BadFile at the end
  uint16_t word();

  /// The same. @return false at the end
  bool next_word(uint16_t* value);

  float half();
  std::vector<uint16_t> words(size_t count);
  std::vector<float> halves(uint64_t count);
  void skip(size_t size);

 private:
  struct Close {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
  };

  std::unique_ptr<std::FILE, Close> stream_;
  uint64_t left_ = 0;
};

}  // namespace marlo1
