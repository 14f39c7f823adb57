#include "qrt_toolkit/graph/numbers.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "qrt_toolkit/errors.h"

namespace marlo::toolkit {
namespace {

size_t checked_count(const Extents& shape) {
  const auto count = count_of(shape);
  if (!count || *count > Numbers::kMostElements) {
    throw NodeFault{"shape", "a tensor of " + text_of(shape) + " elements is too large to compute",
                    "the most is " + std::to_string(Numbers::kMostElements)};
  }
  return static_cast<size_t>(*count);
}

struct Float16 {};
struct Bfloat16 {};

/// Calls `use` with a value of the C++ type that holds an element of `type`.
template <class Use>
void with_held_type(ElementType type, Use&& use) {
  switch (type) {
    case ElementType::float32:
      return use(float{});
    case ElementType::float64:
      return use(double{});
    case ElementType::float16:
      return use(Float16{});
    case ElementType::bfloat16:
      return use(Bfloat16{});
    case ElementType::int8:
      return use(int8_t{});
    case ElementType::int16:
      return use(int16_t{});
    case ElementType::int32:
      return use(int32_t{});
    case ElementType::int64:
      return use(int64_t{});
    case ElementType::uint8:
    case ElementType::boolean:
      return use(uint8_t{});
    case ElementType::uint16:
      return use(uint16_t{});
    case ElementType::uint32:
      return use(uint32_t{});
    case ElementType::uint64:
      return use(uint64_t{});
    case ElementType::undefined:
      break;
  }
  throw NodeFault{"", "a tensor whose element type is not known has no numbers"};
}

template <class Held, class Number>
void unpack(const char* bytes, std::vector<Number>& numbers) {
  for (Number& number : numbers) {
    Held held;
    std::memcpy(&held, bytes, sizeof held);
    bytes += sizeof held;
    number = static_cast<Number>(held);  // NOLINT(bugprone-signed-char-misuse): a number, no letter
  }
}

template <double (*widen)(uint16_t)>
void unpack_16(const char* bytes, Numbers::Reals& numbers) {
  for (double& number : numbers) {
    uint16_t held;
    std::memcpy(&held, bytes, sizeof held);
    bytes += sizeof held;
    number = widen(held);
  }
}

template <class Held, class Number>
void pack(const std::vector<Number>& numbers, char* bytes) {
  for (const Number number : numbers) {
    const auto held = static_cast<Held>(number);
    std::memcpy(bytes, &held, sizeof held);
    bytes += sizeof held;
  }
}

template <uint16_t (*narrow)(double)>
void pack_16(const Numbers::Reals& numbers, char* bytes) {
  for (const double number : numbers) {
    const uint16_t held = narrow(number);
    std::memcpy(bytes, &held, sizeof held);
    bytes += sizeof held;
  }
}

/// As processors and other runtimes do it, without what the language leaves undefined.
int64_t toward_zero(double value) {
  if (std::isnan(value)) return 0;
  if (value >= 9223372036854775808.0) return std::numeric_limits<int64_t>::max();
  if (value < -9223372036854775808.0) return std::numeric_limits<int64_t>::min();
  return static_cast<int64_t>(value);
}

[[noreturn]] void throw_kind(ElementType type, const char* wanted) {
  throw NodeFault{"inputs", std::string("expected ") + wanted + ", found " + name_of(type)};
}

}  // namespace

Numbers::Numbers(ElementType element_type, Extents extents)
    : type(element_type), shape(std::move(extents)) {
  const size_t count = checked_count(shape);
  if (is_real(type)) {
    data = Reals(count);
  } else {
    data = Integers(count);
  }
}

Numbers Numbers::integers_1d(Integers values) {
  Numbers numbers;
  numbers.type = ElementType::int64;
  numbers.shape = {static_cast<int64_t>(values.size())};
  numbers.data = std::move(values);
  return numbers;
}

Numbers Numbers::reals_1d(Reals values) {
  Numbers numbers;
  numbers.shape = {static_cast<int64_t>(values.size())};
  numbers.data = std::move(values);
  return numbers;
}

int64_t Numbers::count() const noexcept {
  return std::visit([](const auto& values) { return static_cast<int64_t>(values.size()); }, data);
}

const Numbers::Reals& Numbers::reals() const {
  if (const auto* values = std::get_if<Reals>(&data)) return *values;
  throw_kind(type, "floating-point numbers");
}

Numbers::Reals& Numbers::reals() {
  if (auto* values = std::get_if<Reals>(&data)) return *values;
  throw_kind(type, "floating-point numbers");
}

const Numbers::Integers& Numbers::integers() const {
  if (const auto* values = std::get_if<Integers>(&data)) return *values;
  throw_kind(type, "integers");
}

Numbers::Integers& Numbers::integers() {
  if (auto* values = std::get_if<Integers>(&data)) return *values;
  throw_kind(type, "integers");
}

double Numbers::real(size_t index) const {
  return std::visit([&](const auto& values) { return static_cast<double>(values.at(index)); },
                    data);
}

int64_t Numbers::integer(size_t index) const { return integers().at(index); }

Numbers Constant::numbers() const {
  Numbers result(type, shape);
  const auto count = static_cast<size_t>(result.count());
  if (bytes == nullptr || bytes->size() != count * size_of(type)) {
    throw NodeFault{"", "a constant of " + text_of(shape) + " " + name_of(type) + " holds " +
                            std::to_string(bytes == nullptr ? 0 : bytes->size()) + " bytes"};
  }
  with_held_type(type, [&](auto held) {
    using Held = decltype(held);
    if constexpr (std::is_same_v<Held, Float16>) {
      unpack_16<from_float16>(bytes->data(), result.reals());
    } else if constexpr (std::is_same_v<Held, Bfloat16>) {
      unpack_16<from_bfloat16>(bytes->data(), result.reals());
    } else if constexpr (std::is_floating_point_v<Held>) {
      unpack<Held>(bytes->data(), result.reals());
    } else {
      unpack<Held>(bytes->data(), result.integers());
    }
  });
  return result;
}

Constant constant_of(const Numbers& numbers) {
  std::string bytes(static_cast<size_t>(numbers.count()) * size_of(numbers.type), '\0');
  with_held_type(numbers.type, [&](auto held) {
    using Held = decltype(held);
    if constexpr (std::is_same_v<Held, Float16>) {
      pack_16<to_float16>(numbers.reals(), bytes.data());
    } else if constexpr (std::is_same_v<Held, Bfloat16>) {
      pack_16<to_bfloat16>(numbers.reals(), bytes.data());
    } else if constexpr (std::is_floating_point_v<Held>) {
      pack<Held>(numbers.reals(), bytes.data());
    } else {
      pack<Held>(numbers.integers(), bytes.data());
    }
  });
  return {numbers.type, numbers.shape, std::make_shared<const std::string>(std::move(bytes))};
}

Numbers converted(const Numbers& numbers, ElementType type) {
  Numbers result(type, numbers.shape);
  std::visit(
      [&](const auto& from, auto& to) {
        using From = typename std::decay_t<decltype(from)>::value_type;
        using To = typename std::decay_t<decltype(to)>::value_type;
        for (size_t i = 0; i < from.size(); ++i) {
          if constexpr (std::is_same_v<To, double>) {
            to[i] = round_to(type, static_cast<double>(from[i]));
          } else if constexpr (std::is_same_v<From, double>) {
            to[i] = type == ElementType::boolean ? from[i] != 0 : wrap(type, toward_zero(from[i]));
          } else {
            to[i] = wrap(type, from[i]);
          }
        }
      },
      numbers.data, result.data);
  return result;
}

}  // namespace marlo::toolkit
