#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace marlo::toolkit {

/// The sizes of a tensor's axes, all known.
using Extents = std::vector<int64_t>;

/// The size of one axis: a number, a symbol that stands for one ("batch"), or unknown.
struct Dimension {
  static constexpr int64_t kUnknown = -1;

  Dimension() = default;
  Dimension(int64_t number) : size(number) {}  // NOLINT: a number is a dimension
  explicit Dimension(std::string name) : symbol(std::move(name)) {}

  bool known() const noexcept { return size >= 0; }

  /// The same number, or the same symbol. Two unknown sizes aren't known to be the same.
  bool same_as(const Dimension& other) const noexcept {
    return known() ? size == other.size : !symbol.empty() && symbol == other.symbol;
  }

  int64_t size = kUnknown;
  std::string symbol;  ///< only where the number isn't known
};

/// The sizes of a tensor's axes as far as they are known.
using Shape = std::vector<Dimension>;

/// All sizes, if all are known.
std::optional<Extents> extents_of(const Shape& shape);

/// The same sizes as a `Shape`.
Shape shape_of(const Extents& extents);

/// The product of all sizes; nothing when it doesn't fit 63 bits or a size is negative.
std::optional<int64_t> count_of(const Extents& extents) noexcept;

/// "3x224x?" or "batchx3"; "scalar" without axes.
std::string text_of(const Shape& shape);
std::string text_of(const Extents& extents);

/// The distance in elements between neighbours along each axis of a dense tensor.
Extents strides_of(const Extents& extents);

/// `axis` counted from the front, which may be given from the back; throws NodeFault beyond.
/// @param name of the attribute that holds it
size_t axis_from_front(int64_t axis, size_t rank, const char* name = "axis");

/// The shape of two shapes that are broadcast against each other; throws NodeFault where they
/// don't fit.
Extents broadcast_of(const Extents& a, const Extents& b);
Shape broadcast_of(const Shape& a, const Shape& b);

}  // namespace marlo::toolkit
