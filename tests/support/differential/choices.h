#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>

namespace marlo::test {

/// Decisions read from bytes, one byte each; after the last byte every decision is the first
/// choice. So any bytes make a layer, and a small change of them a similar one.
class Choices {
 public:
  Choices(const uint8_t* data, size_t size) : data_(data), end_(data + size) {}

  /// One of 0, 1, ... count - 1; `count` is from 1 to 256.
  uint32_t below(uint32_t count) { return next() % count; }

  /// From `least` to `most`, both included, less than 256 of them.
  int between(int least, int most) {
    return least + static_cast<int>(below(static_cast<uint32_t>(most - least) + 1));
  }

  uint32_t size(uint32_t least, uint32_t most) { return least + below(most - least + 1); }

  bool yes() { return below(2) != 0; }

  /// True once in so many bytes.
  bool rarely(uint32_t times) { return below(times) == times - 1; }

  template <typename T>
  T one_of(std::initializer_list<T> choices) {
    return choices.begin()[below(static_cast<uint32_t>(choices.size()))];
  }

  /// For random data.
  uint32_t seed() { return next() | next() << 8; }

 private:
  uint32_t next() { return data_ == end_ ? 0 : *data_++; }

  const uint8_t* data_;
  const uint8_t* end_;
};

}  // namespace marlo::test
