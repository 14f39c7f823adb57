#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "qrt_toolkit/graph/element_type.h"
#include "qrt_toolkit/graph/shape.h"

namespace marlo::toolkit {

/// The numbers of a tensor to compute with: doubles for every floating-point type, 64-bit integers
/// for all others. `type` is what the graph calls them, row-major, last axis fastest.
struct Numbers {
  using Reals = std::vector<double>;
  using Integers = std::vector<int64_t>;

  Numbers() = default;

  /// Zeros. Throws NodeFault when they are more than `kMostElements`.
  Numbers(ElementType element_type, Extents extents);

  /// A tensor of 64-bit integers with one axis.
  static Numbers integers_1d(Integers values);

  /// A float32 tensor with one axis.
  static Numbers reals_1d(Reals values);

  /// More elements are taken for a mistake in a shape, or for an attack. 2^28 doubles are 2 GiB.
  static constexpr int64_t kMostElements = int64_t{1} << 28;

  int64_t count() const noexcept;

  /// The numbers; throws NodeFault when they are of the other kind.
  const Reals& reals() const;
  Reals& reals();
  const Integers& integers() const;
  Integers& integers();

  /// One number, or a whole list, whatever its type.
  double real(size_t index) const;
  int64_t integer(size_t index) const;

  ElementType type = ElementType::float32;
  Extents shape;
  std::variant<Reals, Integers> data;
};

/// Numbers that several readers share and nobody changes.
using SharedNumbers = std::shared_ptr<const Numbers>;

/// A tensor of the file: its bytes as the file holds them, little-endian, shared and never changed.
struct Constant {
  ElementType type = ElementType::undefined;
  Extents shape;
  std::shared_ptr<const std::string> bytes;

  /// The same numbers to compute with.
  Numbers numbers() const;
};

/// `numbers` as a file holds them: rounded to `numbers.type`.
Constant constant_of(const Numbers& numbers);

/// `numbers` as another type: rounded, or toward zero from floating-point to integers.
Numbers converted(const Numbers& numbers, ElementType type);

}  // namespace marlo::toolkit
