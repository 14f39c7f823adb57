#pragma once

#include <cstdint>

namespace marlo::kernel {

/// What a kernel does with its results before it stores them: an activation without constants of its
/// own, by the function that the portable activation of that name computes.
enum class Epilogue : uint8_t {
  none,
  relu,      ///< max(x, 0)
  relu6,     ///< min(max(x, 0), 6)
  hsigmoid,  ///< min(max(x + 3, 0), 6) / 6
  hswish,    ///< hsigmoid(x) * x
  sigmoid,   ///< 1 / (1 + exp(-x))
  silu,      ///< sigmoid(x) * x
  tanh,      ///< tanh(x)
};

/// How kernels' names spell it; "" for none.
constexpr const char* name_of(Epilogue epilogue) {
  constexpr const char* kNames[] = {"",       "ReLU",    "ReLU6", "HSigmoid",
                                    "HSwish", "Sigmoid", "SiLU",  "Tanh"};
  return kNames[static_cast<uint8_t>(epilogue)];
}

/// `KERNEL` with the name and the row of a kernel and of its forms with each epilogue: `base` is the
/// name up to the method, to which the epilogue is added.
#define QRT_WITH_EPILOGUES(KERNEL, base, row)                                         \
  KERNEL(base##_M1, row)                                                              \
  KERNEL(base##_ReLU_M1, ::marlo::kernel::with_epilogue(Epilogue::relu, row))         \
  KERNEL(base##_ReLU6_M1, ::marlo::kernel::with_epilogue(Epilogue::relu6, row))       \
  KERNEL(base##_HSigmoid_M1, ::marlo::kernel::with_epilogue(Epilogue::hsigmoid, row)) \
  KERNEL(base##_HSwish_M1, ::marlo::kernel::with_epilogue(Epilogue::hswish, row))     \
  KERNEL(base##_Sigmoid_M1, ::marlo::kernel::with_epilogue(Epilogue::sigmoid, row))   \
  KERNEL(base##_SiLU_M1, ::marlo::kernel::with_epilogue(Epilogue::silu, row))         \
  KERNEL(base##_Tanh_M1, ::marlo::kernel::with_epilogue(Epilogue::tanh, row))

}  // namespace marlo::kernel
