#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

namespace marlo::test {

/// A buffer that ends where a page without access begins, with canaries in front: what is read or
/// written behind it ends the test program, and what is written in front fails the running test.
class GuardedBytes {
 public:
  explicit GuardedBytes(size_t size) : size_(size) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    readable_ = (size + kInFront + page - 1) / page * page;
    void* const pages =
        mmap(nullptr, readable_ + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) throw std::bad_alloc();
    begin_ = static_cast<uint8_t*>(pages);
    all_ = readable_ + page;
    mprotect(begin_ + readable_, page, PROT_NONE);
    std::memset(data() - kInFront, kCanary, kInFront);
  }
  GuardedBytes(const GuardedBytes&) = delete;
  GuardedBytes& operator=(const GuardedBytes&) = delete;
  ~GuardedBytes() {
    for (size_t i = 1; i <= kInFront; ++i) {
      if (*(data() - i) == kCanary) continue;
      ADD_FAILURE() << "byte " << i << " in front of a buffer of " << size_ << " was written";
      break;
    }
    munmap(begin_, all_);
  }

  uint8_t* data() const { return begin_ + readable_ - size_; }

 private:
  static constexpr size_t kInFront = 64;
  static constexpr uint8_t kCanary = 0xC9;

  size_t size_;
  size_t readable_ = 0;
  size_t all_ = 0;
  uint8_t* begin_ = nullptr;
};

}  // namespace marlo::test
