#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qrt_core/utility/half.h"

/// Version of the attribute lists that writers write, and the newest that readers accept.
#define __SERIALIZATION_PROTOCOL_VERSION__ 20015u

/// Expands `X(type)` for every value type of an attribute, in the order of `Visitor`'s overloads.
#define QRT_FOR_EACH_ATTRIBUTE_TYPE(X)  \
  X(std::vector<std::vector<uint16_t>>) \
  X(std::vector<uint64_t>)              \
  X(std::vector<uint32_t>)              \
  X(std::vector<int64_t>)               \
  X(std::vector<int32_t>)               \
  X(Serializable)                       \
  X(std::vector<std::string>)           \
  X(std::vector<int16_t>)               \
  X(std::vector<uint16_t>)              \
  X(std::vector<half_float::half>)      \
  X(std::vector<float>)                 \
  X(std::string)                        \
  X(char)                               \
  X(bool)                               \
  X(uint64_t)                           \
  X(int64_t)                            \
  X(uint32_t)                           \
  X(int32_t)                            \
  X(uint16_t)                           \
  X(int16_t)                            \
  X(uint8_t)                            \
  X(int8_t)                             \
  X(double)                             \
  X(half_float::half)                   \
  X(float)

/// Declares one overload of `Visit` that overrides `Visitor`'s.
#define QRT_DECLARE_VISIT(type) void Visit(type* value, const char* key) override;

namespace marlo::runtime {

class Serializable;

/// The target of an attribute walk: reads or writes one attribute per call.
///
/// A class lists its attributes once, in `Serializable::VisitAttr`; the visitor it is given decides
/// on format and direction.
///
/// A `char` is one byte in the binary form. In JSON it begins a text with a terminator, such as an
/// array of chars that is filled: the text is written whole, and what is read is laid over its
/// beginning without a terminator; a longer one than stands there is refused. Prefer std::string.
///
/// One walk belongs to one thread.
class Visitor {
 public:
  virtual ~Visitor() = default;

#define QRT_DECLARE_PURE_VISIT(type) virtual void Visit(type* value, const char* key) = 0;
  QRT_FOR_EACH_ATTRIBUTE_TYPE(QRT_DECLARE_PURE_VISIT)
#undef QRT_DECLARE_PURE_VISIT

  /// The version of the data being read or written. An attribute that came with a later version
  /// is visited only when this number is high enough.
  uint32_t _serialization_protocol_version = __SERIALIZATION_PROTOCOL_VERSION__;
};

}  // namespace marlo::runtime
