#pragma once

#include "qrt_core/kernel/basic/elementwise_cores.h"
#include "qrt_core/kernel/kernel_class.h"

// Kernels that combine two FLOAT32 tensors of any layout, element by element.

namespace marlo::kernel {

class Elementwise;

/// What a kernel demands of its inputs.
enum class ElementwiseInputs {
  equal_shapes,  ///< two tensors of one shape
  /// Two tensors of any shapes. Elements are combined in memory order, and the output has the shape
  /// of the first.
  any_shapes,
};

/// What a kernel demands of its output.
enum class ElementwiseOutput {
  one_tensor,
  at_least_one_tensor,  ///< one kernel never looks at how many there are; callers may rely on it
  as_inputs,            ///< one kernel puts its outputs to the test of its inputs
};

/// One elementwise kernel.
struct ElementwiseRow : KernelRow {
  using Family = Elementwise;

  /// The word for "op_type" that it accepts; null for all of them. There is no "op_type" for "Max"
  /// and "Min", so that no description configures those kernels; that is meant.
  const char* word = nullptr;
  ElementwiseInputs inputs = ElementwiseInputs::equal_shapes;  ///< what it demands of them
  ElementwiseOutput output = ElementwiseOutput::one_tensor;    ///< what it demands of it
  elementwise::Core scalar = nullptr;  ///< runs what is left of the last block; null: by "op_type"
  elementwise::Core vector = nullptr;  ///< runs whole blocks; null for none
  size_t block = 1;                    ///< elements of a block

  /// The same row with another demand on its output.
  constexpr ElementwiseRow checking(ElementwiseOutput what) const {
    ElementwiseRow row = *this;
    row.output = what;
    return row;
  }
};

/// See `ElementwiseRow`. The first input is the left operand. `Forward` replaces what is in its
/// vector of outputs.
class Elementwise : public KernelFamily {
 public:
  static constexpr size_t kLeastInputs = 2;

  explicit Elementwise(const ElementwiseRow& row) : row_(row), scalar_(row.scalar) {}

  /// @throws std::runtime_error for an "op_type" without a word, where the kernel accepts one only
  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  /// @throws std::runtime_error for an "op_type" without a word
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits pass_refusals(const Shapes& inputs) const;
  Misfits differences(const LayerInfo& info, const Shapes& inputs) const;

 private:
  const ElementwiseRow& row_;
  elementwise::Core scalar_;  // null before a kernel for all operators is configured
};

/// A kernel that runs blocks of `block` elements by `vector` and the rest by `scalar`.
constexpr ElementwiseRow elementwise_blocks(const char* word, size_t block,
                                            elementwise::Core vector, elementwise::Core scalar) {
  ElementwiseRow row;
  row.word = word;
  row.block = block;
  row.vector = vector;
  row.scalar = scalar;
  return row;
}

/// A kernel that takes its operator from the description.
constexpr ElementwiseRow elementwise_by_description() {
  ElementwiseRow row;
  row.inputs = ElementwiseInputs::any_shapes;
  return row;
}

namespace rows {
using namespace elementwise;
}  // namespace rows

// clang-format off
#define QRT_ELEMENTWISE_KERNELS_PORTABLE(KERNEL)                                                   \
  KERNEL(Elementwise_Fallback_Float_M1, elementwise_by_description())

#define QRT_ELEMENTWISE_KERNELS_SSE(KERNEL)                                                        \
  KERNEL(Elementwise_Add_SSE_Float_M1, elementwise_blocks("Add", 4, add_sse, add_scalar))          \
  KERNEL(Elementwise_Sub_SSE_Float_M1, elementwise_blocks("Sub", 4, subtract_sse, subtract_scalar)) \
  KERNEL(Elementwise_Mul_SSE_Float_M1, elementwise_blocks("Mul", 4, multiply_sse, multiply_scalar)) \
  KERNEL(Elementwise_Div_SSE_Float_M1, elementwise_blocks("Div", 4, divide_sse, divide_scalar))    \
  KERNEL(Elementwise_Max_SSE_Float_M1, elementwise_blocks("Max", 4, maximum_sse, maximum_scalar))  \
  KERNEL(Elementwise_Min_SSE_Float_M1, elementwise_blocks("Min", 4, minimum_sse, minimum_scalar))

#define QRT_ELEMENTWISE_KERNELS_AVX(KERNEL)                                                        \
  KERNEL(Elementwise_Add_AVX_Float_M1, on_avx(elementwise_blocks("Add", 8, add_avx, add_scalar)           \
                                           .checking(ElementwiseOutput::at_least_one_tensor)))      \
  KERNEL(Elementwise_Sub_AVX_Float_M1, on_avx(elementwise_blocks("Sub", 8, subtract_avx, subtract_scalar))) \
  KERNEL(Elementwise_Mul_AVX_Float_M1, on_avx(elementwise_blocks("Mul", 8, multiply_avx, multiply_scalar))) \
  KERNEL(Elementwise_Div_AVX_Float_M1, on_avx(elementwise_blocks("Div", 8, divide_avx, divide_scalar)))    \
  KERNEL(Elementwise_Max_AVX_Float_M1, on_avx(elementwise_blocks("Max", 8, maximum_avx, maximum_scalar)   \
                                           .checking(ElementwiseOutput::as_inputs)))                \
  KERNEL(Elementwise_Min_AVX_Float_M1, on_avx(elementwise_blocks("Min", 8, minimum_avx, minimum_scalar)))
// clang-format on

QRT_ELEMENTWISE_KERNELS_PORTABLE(QRT_KERNEL)
QRT_IF_SSE(QRT_ELEMENTWISE_KERNELS_SSE(QRT_KERNEL))
QRT_IF_AVX(QRT_ELEMENTWISE_KERNELS_AVX(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const ElementwiseRow*> elementwise_rows = {
    QRT_ELEMENTWISE_KERNELS_PORTABLE(QRT_KERNEL_ROW)
        QRT_IF_SSE(QRT_ELEMENTWISE_KERNELS_SSE(QRT_KERNEL_ROW))
            QRT_IF_AVX(QRT_ELEMENTWISE_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
