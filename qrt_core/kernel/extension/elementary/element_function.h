#pragma once

#include <string_view>

#include "qrt_core/kernel/basic/activation.h"
#include "qrt_core/kernel/extension/elementary/element_cores.h"
#include "qrt_core/kernel/kernel_class.h"
#include "qrt_core/runtime/model/extension_info.h"

// Kernels of the second set that apply one function to every element of a FLOAT32 tensor of any
// layout.

namespace marlo::kernel {

class ElementFunctionKernel;

/// What describes a layer that such a kernel takes.
enum class FunctionDescription {
  function,    ///< an ElementFunctionInfo with the row's function
  activation,  ///< an ActivationInfo, whose label is read as by the documented kernels: not at all
};

/// One kernel.
struct ElementFunctionRow : KernelRow {
  using Family = ElementFunctionKernel;

  FunctionDescription description = FunctionDescription::activation;  ///< what it takes
  runtime::ElementFunction function = runtime::ElementFunction::Abs;  ///< of an ElementFunctionInfo
  uint16_t label = 0;               ///< the activation_type of the function, where it is known
  elementary::Core core = nullptr;  ///< what computes it
};

/// See `ElementFunctionRow`. Portable kernels compute in double precision and round once; those of
/// vectors as math/vector_math_internal.h states, the same bits from all of them. The function Clip
/// is taken from a ClipInfo as well.
class ElementFunctionKernel : public KernelFamily {
 public:
  explicit ElementFunctionKernel(const ElementFunctionRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const { return CheckInputs(tensors); }
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits differences(const LayerInfo& info, const Shapes& inputs) const;

 private:
  const ElementFunctionRow& row_;
  float parameters_[2] = {1.0f, 0.0f};
};

/// A row for a function of an ElementFunctionInfo.
constexpr ElementFunctionRow element_function(runtime::ElementFunction function,
                                              elementary::Core core) {
  ElementFunctionRow row;
  row.description = FunctionDescription::function;
  row.function = function;
  row.core = core;
  return row;
}

/// A row for a documented activation without parameters.
constexpr ElementFunctionRow plain_activation(std::string_view function, elementary::Core core) {
  ElementFunctionRow row;
  if (function == "ReLU") row.label = activation::kRectifierLabel;
  if (function == "TanH") row.label = activation::kTangentLabel;
  row.core = core;
  return row;
}

/// @name Rows
/// Each function out of place and in place. The rectifier for AVX-512 is in activation.h.
/// @{
#define QRT_FUNCTION_ROWS(KERNEL, Name, set, row) \
  KERNEL(Name##_##set##_Float_M1, row)            \
  KERNEL(Name##_Inplace_##set##_Float_M1, in_place(row))

#define QRT_PORTABLE_FUNCTION(KERNEL, Name)                                   \
  QRT_FUNCTION_ROWS(KERNEL, Name, Fallback,                                   \
                    element_function(::marlo::runtime::ElementFunction::Name, \
                                     ::marlo::kernel::elementary::Name##_portable))
#define QRT_FMA_FUNCTION(KERNEL, Name)                                               \
  QRT_FUNCTION_ROWS(KERNEL, Name, FMA,                                               \
                    on_fma(element_function(::marlo::runtime::ElementFunction::Name, \
                                            ::marlo::kernel::elementary::Name##_fma)))
#define QRT_AVX512_FUNCTION(KERNEL, Name)                                               \
  QRT_FUNCTION_ROWS(KERNEL, Name, AVX512,                                               \
                    on_avx512(element_function(::marlo::runtime::ElementFunction::Name, \
                                               ::marlo::kernel::elementary::Name##_avx512)))
#define QRT_FMA_ACTIVATION(KERNEL, Name) \
  QRT_FUNCTION_ROWS(KERNEL, Name, FMA,   \
                    on_fma(plain_activation(#Name, ::marlo::kernel::elementary::Name##_fma)))
#define QRT_AVX512_ACTIVATION(KERNEL, Name) \
  QRT_FUNCTION_ROWS(                        \
      KERNEL, Name, AVX512,                 \
      on_avx512(plain_activation(#Name, ::marlo::kernel::elementary::Name##_avx512)))

#define QRT_ELEMENT_FUNCTION_KERNELS_PORTABLE(KERNEL)     \
  QRT_EACH_VECTOR_FUNCTION(KERNEL, QRT_PORTABLE_FUNCTION) \
  QRT_EACH_PORTABLE_FUNCTION(KERNEL, QRT_PORTABLE_FUNCTION)
#define QRT_ELEMENT_FUNCTION_KERNELS_FMA(KERNEL)       \
  QRT_FMA_ACTIVATION(KERNEL, ReLU)                     \
  QRT_EACH_COMMON_FUNCTION(KERNEL, QRT_FMA_ACTIVATION) \
  QRT_EACH_VECTOR_FUNCTION(KERNEL, QRT_FMA_FUNCTION)
#define QRT_ELEMENT_FUNCTION_KERNELS_AVX512(KERNEL)       \
  QRT_EACH_COMMON_FUNCTION(KERNEL, QRT_AVX512_ACTIVATION) \
  QRT_EACH_VECTOR_FUNCTION(KERNEL, QRT_AVX512_FUNCTION)
/// @}

QRT_ELEMENT_FUNCTION_KERNELS_PORTABLE(QRT_KERNEL)
QRT_IF_AVX(QRT_ELEMENT_FUNCTION_KERNELS_FMA(QRT_KERNEL))
QRT_IF_AVX(QRT_ELEMENT_FUNCTION_KERNELS_AVX512(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const ElementFunctionRow*> element_function_rows = {
    QRT_ELEMENT_FUNCTION_KERNELS_PORTABLE(QRT_KERNEL_ROW)
        QRT_IF_AVX(QRT_ELEMENT_FUNCTION_KERNELS_FMA(QRT_KERNEL_ROW))
            QRT_IF_AVX(QRT_ELEMENT_FUNCTION_KERNELS_AVX512(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
