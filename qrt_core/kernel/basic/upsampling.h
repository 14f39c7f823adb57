#pragma once

#include <memory>

#include "qrt_core/kernel/basic/upsampling_cores.h"
#include "qrt_core/kernel/kernel_class.h"

// Kernels that scale the rows and columns of a FLOAT32 tensor.

namespace marlo::kernel {

class Upsampling;

/// Which "unsample_type" a kernel takes.
enum class UpsamplingModes { nearest, bilinear, both };

/// Which factors a kernel takes.
enum class UpsamplingFactors { any, not_negative, at_least_one };

/// How a bilinear kernel finds its positions. All sample alike where the sizes are whole multiples.
enum class UpsamplingMethod {
  /// By the factors: output i lies at (i + 0.5) / factor - 0.5, or by the sizes with
  /// "align_corner". The output size is rounded.
  general,
  /// The same, but factors of 4 are two passes of 2.
  doubling,
  /// By the sizes: output i lies at (i + 0.5) * in / out - 0.5. The output size is truncated, and a
  /// position before the first input extrapolates.
  by_sizes,
};

/// One upsampling kernel.
struct UpsamplingRow : KernelRow {
  using Family = Upsampling;

  UpsamplingModes modes = UpsamplingModes::both;          ///< that it accepts
  UpsamplingFactors factors = UpsamplingFactors::any;     ///< that it accepts
  UpsamplingMethod method = UpsamplingMethod::general;    ///< of the bilinear mode
  runtime::LayoutType layout = runtime::LayoutType::CHW;  ///< of input and output
  uint32_t block = 1;             ///< channels of a pixel that lie side by side
  uint32_t channel_multiple = 1;  ///< channels must be a multiple of this, or nothing is put out
  upsampling::Core nearest = nullptr;   ///< null for a kernel without this mode
  upsampling::Core bilinear = nullptr;  ///< null for a kernel without this mode

  /// The same row with its positions found otherwise.
  constexpr UpsamplingRow by(UpsamplingMethod how) const {
    UpsamplingRow row = *this;
    row.method = how;
    return row;
  }

  /// The same row taking other factors.
  constexpr UpsamplingRow taking(UpsamplingFactors which) const {
    UpsamplingRow row = *this;
    row.factors = which;
    return row;
  }

  /// The same row for channels that are a multiple of `count`.
  constexpr UpsamplingRow for_multiples_of(uint32_t count) const {
    UpsamplingRow row = *this;
    row.channel_multiple = count;
    return row;
  }
};

/// See `UpsamplingRow`. Rows beyond the last are never read: the last stands for them.
class Upsampling : public KernelFamily {
 public:
  explicit Upsampling(const UpsamplingRow& row) : row_(row) {}

  /// @throws std::runtime_error for a mode that has no word
  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);

  /// @throws std::runtime_error for a size below 0 or beyond 32 bits
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

  size_t dims() const { return row_.block == 1 ? 3 : 4; }
  uint32_t output_size(uint32_t size, float factor) const;
  TensorPointer sample(const runtime::TensorCPU& input, float factor_y, float factor_x,
                       const Pass& pass) const;

  const UpsamplingRow& row_;
  float factor_y_ = 1.0f;
  float factor_x_ = 1.0f;
  bool align_corner_ = false;
  bool nearest_ = false;
};

/// The kernel for both modes and any factor.
constexpr UpsamplingRow any_upsampling() {
  UpsamplingRow row;
  row.nearest = upsampling::nearest_portable;
  row.bilinear = upsampling::bilinear_portable;
  return row;
}

/// A kernel for nearest sampling on a blocked layout.
constexpr UpsamplingRow nearest_upsampling(runtime::LayoutType layout, uint32_t block,
                                           upsampling::Core core) {
  UpsamplingRow row;
  row.modes = UpsamplingModes::nearest;
  row.factors = UpsamplingFactors::at_least_one;
  row.layout = layout;
  row.block = block;
  row.nearest = core;
  return row;
}

/// A kernel for bilinear sampling.
constexpr UpsamplingRow bilinear_upsampling(runtime::LayoutType layout, uint32_t block,
                                            upsampling::Core core) {
  UpsamplingRow row;
  row.modes = UpsamplingModes::bilinear;
  row.factors = UpsamplingFactors::at_least_one;
  row.layout = layout;
  row.block = block;
  row.bilinear = core;
  return row;
}

namespace rows {
using namespace upsampling;
using Factors = UpsamplingFactors;
using Method = UpsamplingMethod;

inline constexpr UpsamplingRow chw_sse =
    bilinear_upsampling(runtime::LayoutType::CHW, 1, bilinear_chw_sse);
inline constexpr UpsamplingRow c4_sse =
    bilinear_upsampling(runtime::LayoutType::C4HW4, 4, bilinear_c4_sse);
inline constexpr UpsamplingRow chw_avx =
    on_avx(bilinear_upsampling(runtime::LayoutType::CHW, 1, bilinear_chw_avx));
inline constexpr UpsamplingRow c8_avx =
    on_avx(bilinear_upsampling(runtime::LayoutType::C8HW8, 8, bilinear_c8_avx));
}  // namespace rows

// The CHW forms of the methods 1 and 2 sample the planes as they are; that their channels must be
// whole blocks is part of what they accept.
//
// clang-format off
#define QRT_UPSAMPLING_KERNELS_PORTABLE(KERNEL) \
  KERNEL(Upsampling2D_Fallback_CHW_Float_M1, any_upsampling())

#define QRT_UPSAMPLING_KERNELS_SSE(KERNEL)                                                                \
  KERNEL(Upsampling2D_Nearest_SSE_C4HW4_Float_M1,                                                         \
         nearest_upsampling(runtime::LayoutType::C4HW4, 4, nearest_c4_sse))                               \
  KERNEL(Upsampling2D_Bilinear_SSE_C4HW4_Float_M1, c4_sse.taking(Factors::any))                           \
  KERNEL(Upsampling2D_Bilinear_SSE_C4HW4_Float_M2, c4_sse.taking(Factors::not_negative).by(Method::doubling)) \
  KERNEL(Upsampling2D_Bilinear_SSE_C4HW4_Float_M3, c4_sse.taking(Factors::not_negative).by(Method::by_sizes)) \
  KERNEL(Upsampling2D_Bilinear_SSE_CHW_Float_M1,   chw_sse.for_multiples_of(4))                           \
  KERNEL(Upsampling2D_Bilinear_SSE_CHW_Float_M2,   chw_sse.for_multiples_of(4).by(Method::doubling))      \
  KERNEL(Upsampling2D_Bilinear_SSE_CHW_Float_M3,   chw_sse.by(Method::by_sizes))

#define QRT_UPSAMPLING_KERNELS_AVX(KERNEL)                                                                \
  KERNEL(Upsampling2D_Bilinear_AVX_C8HW8_Float_M1, c8_avx)                                                \
  KERNEL(Upsampling2D_Bilinear_AVX_C8HW8_Float_M2, c8_avx.by(Method::doubling))                           \
  KERNEL(Upsampling2D_Bilinear_AVX_C8HW8_Float_M3, c8_avx.by(Method::by_sizes))                           \
  KERNEL(Upsampling2D_Nearest_AVX_C8HW8_Float_M1,                                                         \
         on_avx(nearest_upsampling(runtime::LayoutType::C8HW8, 8, nearest_c8_avx)))                               \
  KERNEL(Upsampling2D_Bilinear_AVX_CHW_Float_M1,   chw_avx.for_multiples_of(8))                           \
  KERNEL(Upsampling2D_Bilinear_AVX_CHW_Float_M2,   chw_avx.for_multiples_of(8).by(Method::doubling))      \
  KERNEL(Upsampling2D_Bilinear_AVX_CHW_Float_M3,   chw_avx.by(Method::by_sizes))
// clang-format on

QRT_UPSAMPLING_KERNELS_PORTABLE(QRT_KERNEL)
QRT_IF_SSE(QRT_UPSAMPLING_KERNELS_SSE(QRT_KERNEL))
QRT_IF_AVX(QRT_UPSAMPLING_KERNELS_AVX(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const UpsamplingRow*> upsampling_rows = {
    QRT_UPSAMPLING_KERNELS_PORTABLE(QRT_KERNEL_ROW)
        QRT_IF_SSE(QRT_UPSAMPLING_KERNELS_SSE(QRT_KERNEL_ROW))
            QRT_IF_AVX(QRT_UPSAMPLING_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
