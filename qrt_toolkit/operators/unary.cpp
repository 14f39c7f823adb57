#include <cmath>
#include <type_traits>

#include "qrt_toolkit/operators/groups.h"
#include "qrt_toolkit/operators/inference.h"

// Functions of one number, without attributes.

namespace marlo::toolkit {
namespace {

template <double (*function)(double)>
Results of_reals(const Node&, const Operands& inputs) {
  Numbers result = inputs[0];
  for (double& number : result.reals()) number = function(number);
  return {std::move(result)};
}

/// Functions that integers have as well: `function(T)` for both kinds.
template <class Function>
Results of_numbers(const Node&, const Operands& inputs) {
  Numbers result = inputs[0];
  std::visit(
      [&](auto& numbers) {
        for (auto& number : numbers) number = Function()(number);
      },
      result.data);
  if (!is_real(result.type)) {
    for (int64_t& number : result.integers()) number = wrap(result.type, number);
  }
  return {std::move(result)};
}

/// Questions about a number.
template <bool (*question)(double)>
Results answers(const Node&, const Operands& inputs) {
  Numbers result(ElementType::boolean, inputs[0].shape);
  const Numbers::Reals& numbers = inputs[0].reals();
  Numbers::Integers& out = result.integers();
  for (size_t i = 0; i < out.size(); ++i) out[i] = question(numbers[i]);
  return {std::move(result)};
}

void infer_answer(ShapeStep& step) { step.set(0, ElementType::boolean, step.input(0).shape); }

struct Absolute {
  double operator()(double x) const { return std::fabs(x); }
  int64_t operator()(int64_t x) const {
    return x < 0 ? static_cast<int64_t>(uint64_t{0} - static_cast<uint64_t>(x)) : x;
  }
};

struct Negative {
  double operator()(double x) const { return -x; }
  int64_t operator()(int64_t x) const {
    return static_cast<int64_t>(uint64_t{0} - static_cast<uint64_t>(x));
  }
};

struct SignOf {
  template <class T>
  T operator()(T x) const {
    return static_cast<T>((x > 0) - (x < 0));
  }
};

struct LogicalNot {
  double operator()(double x) const { return x == 0; }
  int64_t operator()(int64_t x) const { return x == 0; }
};

struct Rectified {
  template <class T>
  T operator()(T x) const {
    return x < 0 ? T{0} : x;
  }
};

double reciprocal(double x) { return 1 / x; }
double to_even(double x) { return std::nearbyint(x); }
double sigmoid(double x) { return 1 / (1 + std::exp(-x)); }
double softplus(double x) { return x > 0 ? x + std::log1p(std::exp(-x)) : std::log1p(std::exp(x)); }
double softsign(double x) { return x / (1 + std::fabs(x)); }
double mish(double x) { return x * std::tanh(softplus(x)); }
double hard_swish(double x) { return x * std::fmax(0, std::fmin(1, x / 6 + 0.5)); }
bool is_nan(double x) { return std::isnan(x); }

// The names of <cmath> are overloaded; these are the ones for doubles.
double exp_of(double x) { return std::exp(x); }
double log_of(double x) { return std::log(x); }
double sqrt_of(double x) { return std::sqrt(x); }
double ceil_of(double x) { return std::ceil(x); }
double floor_of(double x) { return std::floor(x); }
double erf_of(double x) { return std::erf(x); }
double sin_of(double x) { return std::sin(x); }
double cos_of(double x) { return std::cos(x); }
double tan_of(double x) { return std::tan(x); }
double asin_of(double x) { return std::asin(x); }
double acos_of(double x) { return std::acos(x); }
double atan_of(double x) { return std::atan(x); }
double sinh_of(double x) { return std::sinh(x); }
double cosh_of(double x) { return std::cosh(x); }
double tanh_of(double x) { return std::tanh(x); }
double asinh_of(double x) { return std::asinh(x); }
double acosh_of(double x) { return std::acosh(x); }
double atanh_of(double x) { return std::atanh(x); }

}  // namespace

std::span<const Operator> unary_operators() {
  static constexpr Operator kRows[] = {
      {"Abs", 6, of_numbers<Absolute>, infer_same},
      {"Acos", 7, of_reals<acos_of>, infer_same},
      {"Acosh", 9, of_reals<acosh_of>, infer_same},
      {"Asin", 7, of_reals<asin_of>, infer_same},
      {"Asinh", 9, of_reals<asinh_of>, infer_same},
      {"Atan", 7, of_reals<atan_of>, infer_same},
      {"Atanh", 9, of_reals<atanh_of>, infer_same},
      {"Ceil", 6, of_reals<ceil_of>, infer_same},
      {"Cos", 7, of_reals<cos_of>, infer_same},
      {"Cosh", 9, of_reals<cosh_of>, infer_same},
      {"Erf", 9, of_reals<erf_of>, infer_same},
      {"Exp", 6, of_reals<exp_of>, infer_same},
      {"Floor", 6, of_reals<floor_of>, infer_same},
      {"HardSwish", 14, of_reals<hard_swish>, infer_same},
      {"IsNaN", 9, answers<is_nan>, infer_answer},
      {"Log", 6, of_reals<log_of>, infer_same},
      {"Mish", 18, of_reals<mish>, infer_same},
      {"Neg", 6, of_numbers<Negative>, infer_same},
      {"Not", 1, of_numbers<LogicalNot>, infer_same},
      {"Reciprocal", 6, of_reals<reciprocal>, infer_same},
      {"Relu", 6, of_numbers<Rectified>, infer_same},
      {"Round", 11, of_reals<to_even>, infer_same},
      {"Sigmoid", 6, of_reals<sigmoid>, infer_same},
      {"Sign", 9, of_numbers<SignOf>, infer_same},
      {"Sin", 7, of_reals<sin_of>, infer_same},
      {"Sinh", 9, of_reals<sinh_of>, infer_same},
      {"Softplus", 1, of_reals<softplus>, infer_same},
      {"Softsign", 1, of_reals<softsign>, infer_same},
      {"Sqrt", 6, of_reals<sqrt_of>, infer_same},
      {"Tan", 7, of_reals<tan_of>, infer_same},
      {"Tanh", 6, of_reals<tanh_of>, infer_same},
  };
  return kRows;
}

}  // namespace marlo::toolkit
