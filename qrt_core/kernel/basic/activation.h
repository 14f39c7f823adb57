#pragma once

#include "qrt_core/kernel/basic/activation_cores.h"
#include "qrt_core/kernel/kernel_class.h"

// Kernels that apply one function to every element of a FLOAT32 tensor of any layout.

namespace marlo::kernel {

class Activation;

/// Which descriptions an activation accepts.
enum class ActivationCheck {
  /// An ActivationInfo without an inference parameter.
  description,
  /// Two empty pointers; goes with `ConfigTest::inverted`, so that in effect any description
  /// passes.
  nothing,
};

/// What an activation reads from its description.
enum class ActivationParameters {
  none,
  alpha,           ///< "activation_alpha"
  alpha_and_beta,  ///< "activation_alpha", "activation_beta"
  slope,           ///< the first float of "weight"; an empty text is refused
};

/// Where an activation writes.
enum class ActivationOutput {
  new_tensor,
  input_tensor,  ///< the output is the input's tensor object
};

/// One activation kernel.
struct ActivationRow : KernelRow {
  using Family = Activation;

  ActivationCheck check = ActivationCheck::description;          ///< of what
  ActivationParameters parameters = ActivationParameters::none;  ///< what the core gets
  ActivationOutput output = ActivationOutput::new_tensor;        ///< where it writes
  activation::Core scalar = nullptr;  ///< runs what is left of the last block
  activation::Core vector = nullptr;  ///< runs whole blocks; null for none
  size_t block = 1;                   ///< elements of a block

  /// The same row with a parameter read from the description.
  constexpr ActivationRow reading(ActivationParameters what) const {
    ActivationRow row = *this;
    row.parameters = what;
    return row;
  }

  /// The same row writing over its input.
  constexpr ActivationRow in_place() const {
    ActivationRow row = *this;
    row.output = ActivationOutput::input_tensor;
    row.input_use = runtime::InputUse::overwrites;
    return row;
  }

  /// The same row accepting any description, by the inverted test.
  constexpr ActivationRow unchecked() const {
    ActivationRow row = *this;
    row.check = ActivationCheck::nothing;
    row.config_test = ConfigTest::inverted;
    return row;
  }
};

namespace activation {
/// Codes of "activation_type" whose functions are known, beside 4 for the leaky rectifier.
/// @{
inline constexpr uint16_t kRectifierLabel = 2;
inline constexpr uint16_t kTangentLabel = 5;
/// @}
}  // namespace activation

/// Where the label of a description contradicts what a kernel computes.
/// @param own the code of its function; 0 for one without a known code
KernelFamily::Misfits label_differences(const char* kernel, uint16_t own,
                                        const runtime::LayerInfo& info);

/// See `ActivationRow`. Needs no alignment and no scratch memory, and keeps nothing between calls
/// but its parameters.
class Activation : public KernelFamily {
 public:
  explicit Activation(const ActivationRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const { return CheckInputs(tensors); }
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits differences(const LayerInfo& info, const Shapes& inputs) const;

 private:
  const ActivationRow& row_;
  float parameters_[2] = {0.0f, 0.0f};
};

/// A kernel that runs one element at a time.
constexpr ActivationRow one_by_one(activation::Core scalar) {
  ActivationRow row;
  row.scalar = scalar;
  return row;
}

/// A kernel that runs blocks of `block` elements by `vector` and the rest by `scalar`.
constexpr ActivationRow blocks_of(size_t block, activation::Core vector, activation::Core scalar) {
  ActivationRow row = one_by_one(scalar);
  row.vector = vector;
  row.block = block;
  return row;
}

namespace rows {
using namespace activation;
using Reads = ActivationParameters;
}  // namespace rows

// clang-format off
#define QRT_ACTIVATION_KERNELS_PORTABLE(KERNEL)                                                    \
  KERNEL(ReLU_Fallback_Float_M1,     one_by_one(relu_scalar))                                      \
  KERNEL(ReLU6_Fallback_Float_M1,    one_by_one(relu6_scalar).unchecked())                         \
  KERNEL(HSigmoid_Fallback_Float_M1, one_by_one(hsigmoid_scalar))                                  \
  KERNEL(HSwish_Fallback_Float_M1,   one_by_one(hswish_scalar))                                    \
  KERNEL(Sigmoid_Fallback_Float_M1,  one_by_one(sigmoid_scalar))                                   \
  KERNEL(TanH_Fallback_Float_M1,     one_by_one(tanh_scalar))                                      \
  KERNEL(Leaky_Fallback_Float_M1,    one_by_one(leaky_scalar).reading(Reads::alpha).unchecked())   \
  KERNEL(Linear_Fallback_Float_M1,                                                                 \
         one_by_one(linear_scalar).reading(Reads::alpha_and_beta).unchecked())                     \
  KERNEL(PReLU_Fallback_Float_M1,                                                                  \
         one_by_one(leaky_scalar).reading(Reads::slope).in_place().unchecked())

#define QRT_ACTIVATION_KERNELS_SSE(KERNEL)                                                         \
  KERNEL(ReLU_SSE_Float_M1,             blocks_of(4, relu_sse, relu_scalar))                       \
  KERNEL(ReLU6_SSE_Float_M1,            blocks_of(4, relu6_sse, relu6_scalar))                     \
  KERNEL(HSigmoid_SSE_Float_M1,         blocks_of(16, hsigmoid_sse, hsigmoid_scalar))              \
  KERNEL(HSwish_SSE_Float_M1,           blocks_of(16, hswish_sse, hswish_scalar))                  \
  KERNEL(Sigmoid_SSE_Float_M1,          blocks_of(16, sigmoid_fast_sse, sigmoid_scalar))           \
  KERNEL(TanH_SSE_Float_M1,             blocks_of(4, tanh_fast_sse, tanh_scalar))                  \
  KERNEL(Leaky_SSE_Float_M1,                                                                       \
         blocks_of(16, leaky_sse, leaky_scalar).reading(Reads::alpha))                             \
  KERNEL(PReLU_SSE_Float_M1,                                                                       \
         blocks_of(4, leaky_sse, leaky_scalar).reading(Reads::slope).in_place())                   \
  KERNEL(ReLU_Inplace_SSE_Float_M1,     blocks_of(16, relu_sse, relu_scalar).in_place())           \
  KERNEL(HSigmoid_Inplace_SSE_Float_M1, blocks_of(16, hsigmoid_sse, hsigmoid_scalar).in_place())

#define QRT_ACTIVATION_KERNELS_AVX(KERNEL)                                                         \
  KERNEL(ReLU_AVX_Float_M1,    on_avx(blocks_of(4, relu_avx, relu_scalar)))                                \
  KERNEL(ReLU6_AVX_Float_M1,   on_avx(blocks_of(8, relu6_avx, relu6_scalar)))                              \
  KERNEL(HSwish_AVX_Float_M1,  on_avx(blocks_of(8, hswish_avx, hswish_scalar)))                            \
  KERNEL(Sigmoid_AVX_Float_M1, on_avx(blocks_of(8, sigmoid_polynomial_avx, sigmoid_scalar)))               \
  KERNEL(Leaky_AVX_Float_M1,   on_avx(blocks_of(4, leaky_avx, leaky_scalar).reading(Reads::alpha)))        \
  KERNEL(PReLU_AVX_Float_M1,                                                                       \
         on_avx(blocks_of(8, leaky_avx, leaky_scalar).reading(Reads::slope).in_place()))
// clang-format on

QRT_ACTIVATION_KERNELS_PORTABLE(QRT_KERNEL)
QRT_IF_SSE(QRT_ACTIVATION_KERNELS_SSE(QRT_KERNEL))
QRT_IF_AVX(QRT_ACTIVATION_KERNELS_AVX(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const ActivationRow*> activation_rows = {
    QRT_ACTIVATION_KERNELS_PORTABLE(QRT_KERNEL_ROW)
        QRT_IF_SSE(QRT_ACTIVATION_KERNELS_SSE(QRT_KERNEL_ROW))
            QRT_IF_AVX(QRT_ACTIVATION_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
