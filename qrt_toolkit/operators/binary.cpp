#include <algorithm>
#include <cmath>

#include "qrt_toolkit/operators/groups.h"
#include "qrt_toolkit/operators/inference.h"
#include "qrt_toolkit/operators/strided.h"

// Functions of two or more tensors that are broadcast against each other.

namespace marlo::toolkit {
namespace {

/// `function` of two lists of numbers that lie in one box.
template <class Out, class A, class B, class Function>
void combine(const Numbers& a, const Numbers& b, const std::vector<A>& left,
             const std::vector<B>& right, const Extents& box, std::vector<Out>& out,
             Function&& function) {
  for_each_row<3>(
      box, {strides_of(box), broadcast_strides(a.shape, box), broadcast_strides(b.shape, box)},
      [&](const auto& at, int64_t count, const auto& steps) {
        for (int64_t i = 0; i < count; ++i) {
          out[static_cast<size_t>(at[0] + i)] =
              static_cast<Out>(function(left[static_cast<size_t>(at[1] + i * steps[1])],
                                        right[static_cast<size_t>(at[2] + i * steps[2])]));
        }
      });
}

[[noreturn]] void throw_mixed(const Numbers& a, const Numbers& b) {
  throw NodeFault{"inputs", std::string("element types ") + name_of(a.type) + " and " +
                                name_of(b.type) + " can't be combined"};
}

/// Two tensors of one kind to a third of the same type.
template <class Function>
Numbers arithmetic_of(const Node& node, const Numbers& a, const Numbers& b) {
  if (a.data.index() != b.data.index()) throw_mixed(a, b);
  Numbers result(a.type, broadcast_of(a.shape, b.shape));
  std::visit(
      [&](auto& out) {
        using List = std::decay_t<decltype(out)>;
        combine(a, b, std::get<List>(a.data), std::get<List>(b.data), result.shape, out,
                [&](auto x, auto y) { return Function()(node, x, y); });
      },
      result.data);
  if (!is_real(result.type)) {
    for (int64_t& number : result.integers()) number = wrap(result.type, number);
  }
  return result;
}

template <class Function>
Results arithmetic(const Node& node, const Operands& inputs) {
  return {arithmetic_of<Function>(node, inputs[0], inputs[1])};
}

/// One after the other, for any number of inputs.
template <class Function>
Results fold(const Node& node, const Operands& inputs) {
  Numbers result = inputs[0];
  for (size_t i = 1; i < inputs.size(); ++i) {
    result = arithmetic_of<Function>(node, result, inputs[i]);
  }
  return {std::move(result)};
}

template <class Function>
Results compare(const Node& node, const Operands& inputs) {
  const Numbers& a = inputs[0];
  const Numbers& b = inputs[1];
  if (a.data.index() != b.data.index()) throw_mixed(a, b);
  Numbers result(ElementType::boolean, broadcast_of(a.shape, b.shape));
  std::visit(
      [&](const auto& left) {
        using List = std::decay_t<decltype(left)>;
        combine(a, b, left, std::get<List>(b.data), result.shape, result.integers(),
                [&](auto x, auto y) { return Function()(node, x, y); });
      },
      a.data);
  return {std::move(result)};
}

// Integers wrap around, which unsigned arithmetic defines.
int64_t wrapped(uint64_t number) { return static_cast<int64_t>(number); }
uint64_t bits(int64_t number) { return static_cast<uint64_t>(number); }

struct Plus {
  double operator()(const Node&, double x, double y) const { return x + y; }
  int64_t operator()(const Node&, int64_t x, int64_t y) const { return wrapped(bits(x) + bits(y)); }
};

struct Minus {
  double operator()(const Node&, double x, double y) const { return x - y; }
  int64_t operator()(const Node&, int64_t x, int64_t y) const { return wrapped(bits(x) - bits(y)); }
};

struct Multiply {
  double operator()(const Node&, double x, double y) const { return x * y; }
  int64_t operator()(const Node&, int64_t x, int64_t y) const { return wrapped(bits(x) * bits(y)); }
};

[[noreturn]] void throw_zero() { throw NodeFault{"input 1", "an integer is divided by zero"}; }

struct Quotient {
  double operator()(const Node&, double x, double y) const { return x / y; }
  int64_t operator()(const Node&, int64_t x, int64_t y) const {
    if (y == 0) throw_zero();
    return y == -1 ? wrapped(0 - bits(x)) : x / y;
  }
};

struct Remainder {
  double operator()(const Node& node, double x, double y) const {
    if (node.integer("fmod", 0) == 0) {
      throw NodeFault{"fmod", "the remainder of floating-point numbers needs fmod = 1"};
    }
    return std::fmod(x, y);
  }
  // With the divisor's sign, or with fmod the dividend's.
  int64_t operator()(const Node& node, int64_t x, int64_t y) const {
    if (y == 0) throw_zero();
    if (y == -1) return 0;
    const int64_t rest = x % y;
    const bool other_sign = rest != 0 && (rest < 0) != (y < 0);
    return other_sign && node.integer("fmod", 0) == 0 ? rest + y : rest;
  }
};

struct Larger {
  template <class T>
  T operator()(const Node&, T x, T y) const {
    return x < y || y != y ? y : x;
  }
};

struct Smaller {
  template <class T>
  T operator()(const Node&, T x, T y) const {
    return x > y || y != y ? y : x;
  }
};

struct IsEqual {
  template <class T>
  bool operator()(const Node&, T x, T y) const {
    return x == y;
  }
};

struct IsGreater {
  template <class T>
  bool operator()(const Node&, T x, T y) const {
    return x > y;
  }
};

struct IsGreaterOrEqual {
  template <class T>
  bool operator()(const Node&, T x, T y) const {
    return x >= y;
  }
};

struct IsLess {
  template <class T>
  bool operator()(const Node&, T x, T y) const {
    return x < y;
  }
};

struct IsLessOrEqual {
  template <class T>
  bool operator()(const Node&, T x, T y) const {
    return x <= y;
  }
};

struct BothTrue {
  template <class T>
  bool operator()(const Node&, T x, T y) const {
    return x != 0 && y != 0;
  }
};

struct EitherTrue {
  template <class T>
  bool operator()(const Node&, T x, T y) const {
    return x != 0 || y != 0;
  }
};

struct OneTrue {
  template <class T>
  bool operator()(const Node&, T x, T y) const {
    return (x != 0) != (y != 0);
  }
};

int64_t integer_power(int64_t base, int64_t exponent) {
  if (exponent < 0) {
    if (base == 0) throw NodeFault{"input 1", "zero has no negative power"};
    return base == 1 ? 1 : base == -1 ? (exponent % 2 == 0 ? 1 : -1) : 0;
  }
  uint64_t result = 1;
  uint64_t factor = bits(base);
  for (uint64_t rest = bits(exponent); rest != 0; rest >>= 1) {
    if ((rest & 1) != 0) result *= factor;
    factor *= factor;
  }
  return wrapped(result);
}

// Base and exponent may be of different types; the power has the base's.
Results power(const Node&, const Operands& inputs) {
  const Numbers& base = inputs[0];
  const Numbers& exponent = inputs[1];
  Numbers result(base.type, broadcast_of(base.shape, exponent.shape));
  std::visit(
      [&](const auto& left, const auto& right) {
        std::visit(
            [&](auto& out) {
              combine(base, exponent, left, right, result.shape, out, [&](auto x, auto y) {
                if constexpr (std::is_same_v<decltype(x), int64_t> &&
                              std::is_same_v<decltype(y), int64_t>) {
                  return wrap(result.type, integer_power(x, y));
                } else {
                  return std::pow(static_cast<double>(x), static_cast<double>(y));
                }
              });
            },
            result.data);
      },
      base.data, exponent.data);
  return {std::move(result)};
}

Results mean(const Node& node, const Operands& inputs) {
  Results result = fold<Plus>(node, inputs);
  for (double& number : result[0].reals()) number /= static_cast<double>(inputs.size());
  return result;
}

Results where(const Node&, const Operands& inputs) {
  const Numbers& a = inputs[1];
  const Numbers& b = inputs[2];
  if (a.data.index() != b.data.index()) throw_mixed(a, b);
  const Numbers::Integers& condition = inputs[0].integers();
  Numbers result(a.type, broadcast_of(inputs[0].shape, broadcast_of(a.shape, b.shape)));
  const Extents& box = result.shape;
  std::visit(
      [&](auto& out) {
        using List = std::decay_t<decltype(out)>;
        const List& left = std::get<List>(a.data);
        const List& right = std::get<List>(b.data);
        for_each_row<4>(box,
                        {strides_of(box), broadcast_strides(inputs[0].shape, box),
                         broadcast_strides(a.shape, box), broadcast_strides(b.shape, box)},
                        [&](const auto& at, int64_t count, const auto& steps) {
                          for (int64_t i = 0; i < count; ++i) {
                            const auto place = [&](size_t k) {
                              return static_cast<size_t>(at[k] + i * steps[k]);
                            };
                            out[place(0)] =
                                condition[place(1)] != 0 ? left[place(2)] : right[place(3)];
                          }
                        });
      },
      result.data);
  return {std::move(result)};
}

void infer_where(ShapeStep& step) {
  const Shape* condition = step.shape(0);
  const Shape* a = step.shape(1);
  const Shape* b = step.shape(2);
  std::optional<Shape> shape;
  if (condition != nullptr && a != nullptr && b != nullptr) {
    shape = broadcast_of(*condition, broadcast_of(*a, *b));
  }
  step.set(0, step.input(1).type, shape);
}

}  // namespace

std::span<const Operator> binary_operators() {
  static constexpr Operator kRows[] = {
      {"Add", 6, arithmetic<Plus>, infer_broadcast},
      {"And", 7, compare<BothTrue>, infer_comparison},
      {"Div", 6, arithmetic<Quotient>, infer_broadcast},
      {"Equal", 7, compare<IsEqual>, infer_comparison},
      {"Greater", 7, compare<IsGreater>, infer_comparison},
      {"GreaterOrEqual", 12, compare<IsGreaterOrEqual>, infer_comparison},
      {"Less", 7, compare<IsLess>, infer_comparison},
      {"LessOrEqual", 12, compare<IsLessOrEqual>, infer_comparison},
      {"Max", 6, fold<Larger>, infer_broadcast},
      {"Mean", 6, mean, infer_broadcast},
      {"Min", 6, fold<Smaller>, infer_broadcast},
      {"Mod", 10, arithmetic<Remainder>, infer_broadcast},
      {"Mul", 6, arithmetic<Multiply>, infer_broadcast},
      {"Or", 7, compare<EitherTrue>, infer_comparison},
      {"Pow", 6, power, infer_broadcast},
      {"Sub", 6, arithmetic<Minus>, infer_broadcast},
      {"Sum", 6, fold<Plus>, infer_broadcast},
      {"Where", 9, where, infer_where},
      {"Xor", 7, compare<OneTrue>, infer_comparison},
  };
  return kRows;
}

}  // namespace marlo::toolkit
