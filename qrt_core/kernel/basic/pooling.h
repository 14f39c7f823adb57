#pragma once

#include <limits>
#include <memory>

#include "qrt_core/kernel/basic/pooling_cores.h"
#include "qrt_core/kernel/kernel_class.h"

// Average and maximum pooling of FLOAT32 planes.

namespace marlo::kernel {

class Pooling;

enum class PoolingKind {
  average,  ///< of an AvgPool2dInfo; the output size floors, whatever `ceil_mode` says
  maximum,  ///< of a MaxPool2dInfo; the output size floors or, in ceil mode, rounds up
};

/// How the margin that the paddings ask for comes about.
enum class PoolingMargin {
  copied,   ///< a padded copy of the input, where there is any padding
  implied,  ///< the core takes what lies outside of the input as zero
};

/// One pooling kernel.
///
/// The vector kernels look at less of the description than the portable ones, and models depend on
/// it: dilation enters the output size but not the windows, the divisor is always the window's
/// area, and the margin is zero in a maximum as well.
struct PoolingRow : KernelRow {
  using Family = Pooling;

  PoolingKind kind = PoolingKind::average;                ///< what is taken of a window
  runtime::LayoutType layout = runtime::LayoutType::CHW;  ///< of input and output
  uint32_t block = 1;                                     ///< channels of a pixel of this layout
  uint32_t kernel = 0;  ///< the window that it is made for, height and width; 0 for any
  uint32_t stride = 0;  ///< the strides that it is made for; 0 for any
  PoolingMargin margin = PoolingMargin::copied;  ///< how paddings come about
  float margin_value = 0.0f;                     ///< of a copied margin
  pooling::Core core = nullptr;                  ///< runs over all planes
};

/// See `PoolingRow`. Immutable once configured.
class Pooling : public KernelFamily {
 public:
  explicit Pooling(const PoolingRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const { return CheckInputs(tensors); }
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits pass_refusals(const Shapes& inputs) const;
  Misfits differences(const LayerInfo& info, const Shapes& inputs) const;

 private:
  using TensorPointer = std::shared_ptr<runtime::TensorCPU>;

  uint32_t output_size(uint32_t padded, uint32_t kernel, uint32_t dilation, uint32_t stride) const;
  TensorPointer checked_input(const Tensors& inputs) const;
  bool has_negative_padding() const;
  bool windows_fit(const std::vector<uint32_t>& dims) const;
  bool has_margin() const;
  PoolingTask task_for(const runtime::TensorShape& input, const runtime::TensorShape& output) const;
  TensorPointer padded_input(const TensorPointer& input, PoolingTask& task, const Pass& pass) const;

  const PoolingRow& row_;
  PoolingParams params_;
};

/// A kernel for any window over [C, H, W].
constexpr PoolingRow pooling_of_any(PoolingKind kind, float margin_value, pooling::Core core) {
  PoolingRow row;
  row.kind = kind;
  row.margin_value = margin_value;
  row.core = core;
  return row;
}

/// A kernel for square windows over [C, H, W].
constexpr PoolingRow pooling_chw(PoolingKind kind, uint32_t kernel, uint32_t stride,
                                 pooling::Core core) {
  PoolingRow row = pooling_of_any(kind, 0.0f, core);
  row.kernel = kernel;
  row.stride = stride;
  return row;
}

/// A kernel for square windows over [C / block, H, W, block].
constexpr PoolingRow pooling_blocked(runtime::LayoutType layout, uint32_t block, PoolingKind kind,
                                     uint32_t kernel, uint32_t stride, pooling::Core core) {
  PoolingRow row = pooling_chw(kind, kernel, stride, core);
  row.layout = layout;
  row.block = block;
  row.margin = PoolingMargin::implied;
  return row;
}

constexpr PoolingRow pooling_c4(PoolingKind kind, uint32_t kernel, uint32_t stride,
                                pooling::Core core) {
  return pooling_blocked(runtime::LayoutType::C4HW4, 4, kind, kernel, stride, core);
}

constexpr PoolingRow pooling_c8(PoolingKind kind, uint32_t kernel, uint32_t stride,
                                pooling::Core core) {
  return on_avx(pooling_blocked(runtime::LayoutType::C8HW8, 8, kind, kernel, stride, core));
}

namespace rows {
using namespace pooling;
constexpr auto kAverage = PoolingKind::average;
constexpr auto kMaximum = PoolingKind::maximum;
constexpr float kLowestFloat = std::numeric_limits<float>::lowest();
}  // namespace rows

// clang-format off
#define QRT_POOLING_KERNELS_PORTABLE(KERNEL)                                                       \
  KERNEL(Pooling2D_Avg_Fallback_Float_M1, pooling_of_any(kAverage, 0.0f, average_portable))        \
  KERNEL(Pooling2D_Max_Fallback_Float_M1, pooling_of_any(kMaximum, kLowestFloat, maximum_portable))

#define QRT_POOLING_KERNELS_SSE(KERNEL)                                                            \
  KERNEL(Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1,                                                 \
         pooling_chw(kAverage, 2, 2, average_k2s2_chw_sse))                                        \
  KERNEL(Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1,                                                 \
         pooling_chw(kAverage, 3, 2, average_k3s2_chw_sse))                                        \
  KERNEL(Pooling2D_Avg_K7x7_S1x1_SSE_CHW_Float_M1,                                                 \
         pooling_chw(kAverage, 7, 1, average_k7s1_chw_sse))                                        \
  KERNEL(Pooling2D_Avg_K4x4_S4x4_SSE_CHW_Float_M1,                                                 \
         pooling_chw(kAverage, 4, 4, average_k4s4_chw_sse))                                        \
  KERNEL(Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1,                                               \
         pooling_c4(kAverage, 4, 4, average_k4s4_c4_sse))                                          \
  KERNEL(Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1,                                                 \
         pooling_chw(kMaximum, 2, 2, maximum_k2s2_chw_sse))                                        \
  KERNEL(Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1,                                                 \
         pooling_chw(kMaximum, 3, 2, maximum_k3s2_chw_sse))

#define QRT_POOLING_KERNELS_AVX(KERNEL)                                                            \
  KERNEL(Pooling2D_Avg_K4x4_S1x1_AVX_C8HW8_Float_M1,                                               \
         pooling_c8(kAverage, 4, 1, average_k4s1_c8_avx))                                          \
  KERNEL(Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1,                                               \
         pooling_c8(kAverage, 7, 1, average_k7s1_c8_avx))                                          \
  KERNEL(Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1,                                               \
         pooling_c8(kAverage, 8, 1, average_k8s1_c8_avx))                                          \
  KERNEL(Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1,                                               \
         pooling_c8(kAverage, 3, 2, average_k3s2_c8_avx))                                          \
  KERNEL(Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1,                                               \
         pooling_c8(kAverage, 2, 2, average_k2s2_c8_avx))                                          \
  KERNEL(Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1,                                               \
         pooling_c8(kMaximum, 2, 2, maximum_k2s2_c8_avx))                                          \
  KERNEL(Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1,                                               \
         pooling_c8(kMaximum, 3, 2, maximum_k3s2_c8_avx))                                          \
  KERNEL(Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1,                                               \
         pooling_c8(kAverage, 4, 4, average_k4s4_c8_avx))
// clang-format on

QRT_POOLING_KERNELS_PORTABLE(QRT_KERNEL)
QRT_IF_SSE(QRT_POOLING_KERNELS_SSE(QRT_KERNEL))
QRT_IF_AVX(QRT_POOLING_KERNELS_AVX(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const PoolingRow*> pooling_rows = {
    QRT_POOLING_KERNELS_PORTABLE(QRT_KERNEL_ROW) QRT_IF_SSE(QRT_POOLING_KERNELS_SSE(QRT_KERNEL_ROW))
        QRT_IF_AVX(QRT_POOLING_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
