#include "qrt_toolkit/operators/operator.h"

#include <algorithm>
#include <string>

#include "qrt_toolkit/operators/groups.h"

namespace marlo::toolkit {
namespace {

[[noreturn]] void throw_missing(size_t place) {
  throw NodeFault{"input " + std::to_string(place), "it isn't given"};
}

std::vector<Operator> make_table() {
  std::vector<Operator> table;
  for (const OperatorGroup group :
       {unary_operators, activation_operators, binary_operators, reduction_operators,
        softmax_operators, normalization_operators, matrix_operators, convolution_operators,
        pooling_operators, resampling_operators, shape_operators, movement_operators,
        indexing_operators, recurrent_operators, control_operators, einsum_operators,
        selection_operators, quantization_operators}) {
    const auto rows = group();
    table.insert(table.end(), rows.begin(), rows.end());
  }
  std::sort(table.begin(), table.end(),
            [](const Operator& a, const Operator& b) { return a.name < b.name; });
  return table;
}

}  // namespace

const Numbers& Operands::operator[](size_t place) const {
  if (!has(place)) throw_missing(place);
  return *numbers_[place];
}

Numbers::Integers Operands::integers(size_t place, Numbers::Integers otherwise) const {
  if (!has(place)) return otherwise;
  return numbers_[place]->integers();
}

const Facts& ShapeStep::input(size_t place) const {
  if (!has(place)) throw_missing(place);
  return inputs[place];
}

const Shape* ShapeStep::shape(size_t place) const {
  const auto& known = input(place).shape;
  return known ? &*known : nullptr;
}

std::optional<Numbers::Integers> ShapeStep::integers(
    size_t place, std::optional<Numbers::Integers> otherwise) const {
  if (!has(place)) return otherwise;
  if (inputs[place].numbers == nullptr) return std::nullopt;
  return inputs[place].numbers->integers();
}

void ShapeStep::set(size_t place, ElementType type, std::optional<Shape> shape) {
  if (place >= outputs.size()) return;
  // So that sums of sizes stay within 64 bits.
  constexpr int64_t kMostSize = int64_t{1} << 40;
  for (const Dimension& size : shape.value_or(Shape{})) {
    if (size.size > kMostSize) {
      throw NodeFault{"shape", "a size of " + std::to_string(size.size) + " is out of range"};
    }
  }
  outputs[place].type = type;
  outputs[place].shape = std::move(shape);
}

std::span<const Operator> all_operators() {
  static const std::vector<Operator> table = make_table();
  return table;
}

const Operator* find_operator(std::string_view name) {
  const auto table = all_operators();
  const auto place =
      std::lower_bound(table.begin(), table.end(), name,
                       [](const Operator& row, std::string_view key) { return row.name < key; });
  return place != table.end() && place->name == name ? &*place : nullptr;
}

}  // namespace marlo::toolkit
