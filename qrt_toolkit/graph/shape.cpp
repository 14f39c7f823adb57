#include "qrt_toolkit/graph/shape.h"

#include <algorithm>

#include "qrt_toolkit/errors.h"

namespace marlo::toolkit {

std::optional<Extents> extents_of(const Shape& shape) {
  Extents extents;
  for (const Dimension& dimension : shape) {
    if (!dimension.known()) return std::nullopt;
    extents.push_back(dimension.size);
  }
  return extents;
}

Shape shape_of(const Extents& extents) { return {extents.begin(), extents.end()}; }

std::optional<int64_t> count_of(const Extents& extents) noexcept {
  int64_t count = 1;
  bool empty = false;
  for (const int64_t size : extents) {
    if (size < 0) return std::nullopt;
    empty = empty || size == 0;
  }
  if (empty) return 0;
  for (const int64_t size : extents) {
    if (__builtin_mul_overflow(count, size, &count)) return std::nullopt;
  }
  return count;
}

std::string text_of(const Shape& shape) {
  if (shape.empty()) return "scalar";
  std::string text;
  for (const Dimension& dimension : shape) {
    if (&dimension != &shape.front()) text += "x";
    if (dimension.known()) {
      text += std::to_string(dimension.size);
    } else {
      text += dimension.symbol.empty() ? "?" : dimension.symbol;
    }
  }
  return text;
}

std::string text_of(const Extents& extents) { return text_of(shape_of(extents)); }

Extents strides_of(const Extents& extents) {
  Extents strides(extents.size(), 1);
  for (size_t i = extents.size(); i-- > 1;) {
    strides[i - 1] = strides[i] * extents[i];
  }
  return strides;
}

size_t axis_from_front(int64_t axis, size_t rank, const char* name) {
  const auto axes = static_cast<int64_t>(rank);
  if (axis < -axes || axis >= axes) {
    throw NodeFault{name, "there is no axis " + std::to_string(axis) + " in a tensor of " +
                              std::to_string(rank) + " axes"};
  }
  return static_cast<size_t>(axis < 0 ? axis + axes : axis);
}

Shape broadcast_of(const Shape& a, const Shape& b) {
  const Shape& longer = a.size() >= b.size() ? a : b;
  const Shape& shorter = a.size() >= b.size() ? b : a;
  Shape result = longer;
  const size_t offset = longer.size() - shorter.size();
  for (size_t i = 0; i < shorter.size(); ++i) {
    Dimension& size = result[offset + i];
    const Dimension& other = shorter[i];
    if (other.size == 1 || size.same_as(other)) continue;
    if (size.size == 1) {
      size = other;
    } else if (size.known() && other.known()) {
      throw NodeFault{"inputs", "shapes " + text_of(a) + " and " + text_of(b) +
                                    " can't be broadcast against each other"};
    } else if (other.known()) {
      // The unknown one is this size or 1.
      size = other;
    } else if (!size.known()) {
      size = Dimension();
    }
  }
  return result;
}

Extents broadcast_of(const Extents& a, const Extents& b) {
  return *extents_of(broadcast_of(shape_of(a), shape_of(b)));
}

}  // namespace marlo::toolkit
