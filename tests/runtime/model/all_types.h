#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/serializable.h"

namespace marlo::test {

/// An object with one attribute of every type that a visitor knows, but for nested objects and
/// chars, which have classes of their own below.
struct AllTypes : runtime::Serializable {
  void VisitAttr(std::shared_ptr<runtime::Visitor> visitor) override {
    visitor->Visit(&u16ss, "u16ss");
    visitor->Visit(&u64s, "u64s");
    visitor->Visit(&u32s, "u32s");
    visitor->Visit(&i64s, "i64s");
    visitor->Visit(&i32s, "i32s");
    visitor->Visit(&strings, "strings");
    visitor->Visit(&i16s, "i16s");
    visitor->Visit(&u16s, "u16s");
    visitor->Visit(&halves, "halves");
    visitor->Visit(&floats, "floats");
    visitor->Visit(&text, "text");
    visitor->Visit(&boolean, "boolean");
    visitor->Visit(&u64, "u64");
    visitor->Visit(&i64, "i64");
    visitor->Visit(&u32, "u32");
    visitor->Visit(&i32, "i32");
    visitor->Visit(&u16, "u16");
    visitor->Visit(&i16, "i16");
    visitor->Visit(&u8, "u8");
    visitor->Visit(&i8, "i8");
    visitor->Visit(&f64, "f64");
    visitor->Visit(&half, "half");
    visitor->Visit(&f32, "f32");
  }

  std::vector<std::vector<uint16_t>> u16ss{{9}};
  std::vector<uint64_t> u64s{9};
  std::vector<uint32_t> u32s{9};
  std::vector<int64_t> i64s{9};
  std::vector<int32_t> i32s{9};
  std::vector<std::string> strings{"nine"};
  std::vector<int16_t> i16s{9};
  std::vector<uint16_t> u16s{9};
  std::vector<half_float::half> halves{half_float::half(9.0f)};
  std::vector<float> floats{9.0f};
  std::string text = "nine";
  bool boolean = true;
  uint64_t u64 = 9;
  int64_t i64 = 9;
  uint32_t u32 = 9;
  int32_t i32 = 9;
  uint16_t u16 = 9;
  int16_t i16 = 9;
  uint8_t u8 = 9;
  int8_t i8 = 9;
  double f64 = 9;
  half_float::half half{9.0f};
  float f32 = 9;
};

/// An object with one attribute, of any type.
template <typename T>
struct One : runtime::Serializable {
  One() = default;
  explicit One(T initial) : value(std::move(initial)) {}

  void VisitAttr(std::shared_ptr<runtime::Visitor> visitor) override {
    visitor->Visit(&value, "value");
  }

  T value{};
};

/// An object whose one attribute is a text in an array of chars.
struct Letters : runtime::Serializable {
  void VisitAttr(std::shared_ptr<runtime::Visitor> visitor) override {
    visitor->Visit(letters, "letters");
  }

  char letters[8] = "-------";
};

}  // namespace marlo::test
