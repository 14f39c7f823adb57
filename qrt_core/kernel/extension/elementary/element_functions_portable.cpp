#include <algorithm>
#include <cmath>

#include "qrt_core/kernel/extension/elementary/element_cores.h"

namespace marlo::kernel::elementary {
namespace {

template <typename Function>
void map(const float* input, float* output, size_t count, Function function) noexcept {
  for (size_t i = 0; i < count; ++i) {
    output[i] = static_cast<float>(function(static_cast<double>(input[i])));
  }
}

// A NaN stays, as it is neither below nor above.
double clamped(double x, double low, double high) {
  const double raised = x < low ? low : x;
  return raised > high ? high : raised;
}

// Zero times minus infinity is no number; where a factor is zero the product is.
double times_gate(double x, double gate) { return gate == 0.0 ? std::copysign(0.0, x) : x * gate; }

double sigmoid(double x) {
  const double e = std::exp(-std::fabs(x));
  return (x < 0.0 ? e : 1.0) / (1.0 + e);
}

double softplus(double x) { return (x < 0.0 ? 0.0 : x) + std::log1p(std::exp(-std::fabs(x))); }

double elu(double x, double alpha) { return x < 0.0 ? alpha * std::expm1(x) : x; }

double gelu_by_tanh(double x) {
  const double inner = 0.79788456080286536 * x * (1.0 + 0.044715 * x * x);
  return times_gate(x, 0.5 * (1.0 + std::tanh(inner)));
}

}  // namespace

// `a` and `b` are the parameters.
#define QRT_DEFINE_CORE(Name, expression)                                 \
  void Name##_portable(const float* input, float* output, size_t count,   \
                       const float* parameters) noexcept {                \
    [[maybe_unused]] const double a = static_cast<double>(parameters[0]); \
    [[maybe_unused]] const double b = static_cast<double>(parameters[1]); \
    map(input, output, count, [=](double x) { return expression; });      \
  }

QRT_DEFINE_CORE(Abs, std::fabs(x))
QRT_DEFINE_CORE(Neg, -x)
QRT_DEFINE_CORE(Square, x* x)
QRT_DEFINE_CORE(Sqrt, std::sqrt(x))
QRT_DEFINE_CORE(Reciprocal, 1.0 / x)
QRT_DEFINE_CORE(Floor, std::floor(x))
QRT_DEFINE_CORE(Ceil, std::ceil(x))
QRT_DEFINE_CORE(Round, std::nearbyint(x))
QRT_DEFINE_CORE(Sign, x == 0.0 || std::isnan(x) ? x : std::copysign(1.0, x))
QRT_DEFINE_CORE(Exp, std::exp(x))
QRT_DEFINE_CORE(Log, std::log(x))
QRT_DEFINE_CORE(Erf, std::erf(x))
QRT_DEFINE_CORE(HardSigmoid, clamped(a* x + b, 0.0, 1.0))
QRT_DEFINE_CORE(LeakyReLU, x < 0.0 ? a * x : x)
QRT_DEFINE_CORE(Elu, elu(x, a))
QRT_DEFINE_CORE(Selu, b* elu(x, a))
QRT_DEFINE_CORE(Celu, x < 0.0 ? a * std::expm1(x / a) : x)
QRT_DEFINE_CORE(GELU, times_gate(x, 0.5 * std::erfc(-x * 0.70710678118654752)))
QRT_DEFINE_CORE(GELUTanh, gelu_by_tanh(x))
QRT_DEFINE_CORE(SiLU, times_gate(x, sigmoid(x)))
QRT_DEFINE_CORE(Swish, times_gate(x, sigmoid(a* x)))
QRT_DEFINE_CORE(Softplus, softplus(x))
QRT_DEFINE_CORE(Softsign, std::isinf(x) ? std::copysign(1.0, x) : x / (1.0 + std::fabs(x)))
QRT_DEFINE_CORE(Mish, times_gate(x, std::tanh(softplus(x))))
QRT_DEFINE_CORE(Clip, clamped(x, a, b))
QRT_DEFINE_CORE(ScaleShift, a* x + b)
QRT_DEFINE_CORE(ThresholdedReLU, x > a || std::isnan(x) ? x : 0.0)
QRT_DEFINE_CORE(Pow, std::pow(x, a))
QRT_DEFINE_CORE(Sin, std::sin(x))
QRT_DEFINE_CORE(Cos, std::cos(x))
QRT_DEFINE_CORE(Tan, std::tan(x))
QRT_DEFINE_CORE(Asin, std::asin(x))
QRT_DEFINE_CORE(Acos, std::acos(x))
QRT_DEFINE_CORE(Atan, std::atan(x))
QRT_DEFINE_CORE(Sinh, std::sinh(x))
QRT_DEFINE_CORE(Cosh, std::cosh(x))
QRT_DEFINE_CORE(Asinh, std::asinh(x))
QRT_DEFINE_CORE(Acosh, std::acosh(x))
QRT_DEFINE_CORE(Atanh, std::atanh(x))
QRT_DEFINE_CORE(Not, x == 0.0 ? 1.0 : 0.0)
QRT_DEFINE_CORE(IsNaN, std::isnan(x) ? 1.0 : 0.0)
QRT_DEFINE_CORE(Shrink, x < -a ? x + b : (x > a ? x - b : (std::isnan(x) ? x : 0.0)))

#undef QRT_DEFINE_CORE

}  // namespace marlo::kernel::elementary
