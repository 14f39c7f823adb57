#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "qrt_core/runtime/model/serializable.h"
#include "qrt_core/runtime/tensor/data_type.h"

namespace marlo::runtime {

/// What a tensor is: sizes, element type, memory order and where its bytes live.
class TensorShape : public Serializable {
 public:
  /// Properties beyond the common ones.
  class Extra : public Serializable {
   public:
    Extra() : Extra(0) {}
    /// With so many fractional bits.
    explicit Extra(uint16_t step) : step_size(step) {}

    void VisitAttr(std::shared_ptr<Visitor> visitor) override {
      Serializable::VisitAttr(visitor);
      visitor->Visit(&step_size, "step_size");
    }

    /// Compares the fractional bits.
    bool operator==(const Extra& other) const { return step_size == other.step_size; }
    /// The opposite of `==`.
    bool operator!=(const Extra& other) const { return !(*this == other); }

    /// Fractional bits of a fixed-point tensor; 0 for floating-point data.
    uint16_t step_size;
  };

  TensorShape() : TensorShape({}, DataType::FLOAT32, LayoutType::CHW) {}
  /// The shape of these properties; none of them is checked here.
  TensorShape(std::vector<uint32_t> sizes, DataType type, LayoutType order,
              LocationType where = LocationType::MainMemory, Extra more = Extra())
      : dims(std::move(sizes)),
        data_type(type),
        layout(order),
        location(where),
        extra(std::move(more)) {}

  /// Codes pass through an integer of their own, so that a code without an enumerator survives.
  void VisitAttr(std::shared_ptr<Visitor> visitor) override {
    Serializable::VisitAttr(visitor);
    visitor->Visit(&dims, "dims");
    visit_code(*visitor, data_type, "data_type");
    visit_code(*visitor, layout, "layout");
    visit_code(*visitor, location, "location");
    visitor->Visit(&extra, "extra");
  }

  /// Compares the five public fields.
  bool operator==(const TensorShape& other) const {
    return dims == other.dims && data_type == other.data_type && layout == other.layout &&
           location == other.location && extra == other.extra;
  }
  /// The opposite of `==`.
  bool operator!=(const TensorShape& other) const { return !(*this == other); }

  std::vector<uint32_t> dims;  ///< sizes, outermost first
  DataType data_type;          ///< element type
  LayoutType layout;           ///< memory order
  LocationType location;       ///< where the bytes are
  Extra extra;                 ///< properties beyond the common ones

 private:
  template <typename Code>
  static void visit_code(Visitor& visitor, Code& code, const char* key) {
    auto number = static_cast<uint32_t>(code);
    visitor.Visit(&number, key);
    code = static_cast<Code>(number);
  }
};

/// Product of all dims, modulo 2^32; 1 for a shape without dims.
inline uint32_t ElementCount(const TensorShape& shape) {
  uint32_t count = 1;
  for (const uint32_t size : shape.dims) count *= size;
  return count;
}

/// Bytes of a tensor of this shape, modulo 2^32; 0 for an unknown data type.
inline uint32_t ByteSize(const TensorShape& shape) {
  return ElementSize(shape.data_type) * ElementCount(shape);
}

}  // namespace marlo::runtime
