#pragma once

#include <cstddef>

// Functions of one element over flat arrays: input and output may be the same array.

namespace marlo::kernel::elementary {

/// Computes `count` elements. `parameters` are the two of the description.
using Core = void (*)(const float* input, float* output, size_t count,
                      const float* parameters) noexcept;

/// @name Lists of functions
/// Each gives `X` its first argument and the name of every function of a kind.
/// @{
/// Those of documented activations, but the rectifier.
#define QRT_EACH_COMMON_FUNCTION(KERNEL, X) \
  X(KERNEL, ReLU6)                          \
  X(KERNEL, HSigmoid)                       \
  X(KERNEL, HSwish)                         \
  X(KERNEL, Sigmoid)                        \
  X(KERNEL, TanH)
/// Those of an `ElementFunctionInfo` that vectors have.
#define QRT_EACH_VECTOR_FUNCTION(KERNEL, X) \
  X(KERNEL, Abs)                            \
  X(KERNEL, Neg)                            \
  X(KERNEL, Square)                         \
  X(KERNEL, Sqrt)                           \
  X(KERNEL, Reciprocal)                     \
  X(KERNEL, Floor)                          \
  X(KERNEL, Ceil)                           \
  X(KERNEL, Round)                          \
  X(KERNEL, Sign)                           \
  X(KERNEL, Exp)                            \
  X(KERNEL, Log)                            \
  X(KERNEL, Erf)                            \
  X(KERNEL, HardSigmoid)                    \
  X(KERNEL, LeakyReLU)                      \
  X(KERNEL, Elu)                            \
  X(KERNEL, Selu)                           \
  X(KERNEL, Celu)                           \
  X(KERNEL, GELU)                           \
  X(KERNEL, GELUTanh)                       \
  X(KERNEL, SiLU)                           \
  X(KERNEL, Swish)                          \
  X(KERNEL, Softplus)                       \
  X(KERNEL, Softsign)                       \
  X(KERNEL, Mish)                           \
  X(KERNEL, Clip)                           \
  X(KERNEL, ScaleShift)                     \
  X(KERNEL, ThresholdedReLU)
/// Those that only the portable form has.
#define QRT_EACH_PORTABLE_FUNCTION(KERNEL, X) \
  X(KERNEL, Pow)                              \
  X(KERNEL, Sin)                              \
  X(KERNEL, Cos)                              \
  X(KERNEL, Tan)                              \
  X(KERNEL, Asin)                             \
  X(KERNEL, Acos)                             \
  X(KERNEL, Atan)                             \
  X(KERNEL, Sinh)                             \
  X(KERNEL, Cosh)                             \
  X(KERNEL, Asinh)                            \
  X(KERNEL, Acosh)                            \
  X(KERNEL, Atanh)                            \
  X(KERNEL, Not)                              \
  X(KERNEL, IsNaN)                            \
  X(KERNEL, Shrink)
/// @}

#define QRT_DECLARE_CORES(_, Name)                                      \
  void Name##_fma(const float*, float*, size_t, const float*) noexcept; \
  void Name##_avx512(const float*, float*, size_t, const float*) noexcept;
QRT_DECLARE_CORES(, ReLU)
QRT_EACH_COMMON_FUNCTION(, QRT_DECLARE_CORES)
QRT_EACH_VECTOR_FUNCTION(, QRT_DECLARE_CORES)
#undef QRT_DECLARE_CORES

/// In double precision, rounded once: what defines the functions.
#define QRT_DECLARE_CORE(_, Name) \
  void Name##_portable(const float*, float*, size_t, const float*) noexcept;
QRT_EACH_VECTOR_FUNCTION(, QRT_DECLARE_CORE)
QRT_EACH_PORTABLE_FUNCTION(, QRT_DECLARE_CORE)
#undef QRT_DECLARE_CORE

}  // namespace marlo::kernel::elementary
