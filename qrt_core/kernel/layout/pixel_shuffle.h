#pragma once

#include "qrt_core/kernel/kernel_class.h"
#include "qrt_core/kernel/layout/pixel_shuffle_cores.h"

// Kernels that exchange channels for pixels: with factor r, pixel (h r + i, w r + j) of channel c
// of the wide tensor is pixel (h, w) of channel c r r + i r + j of the deep tensor. Values are
// moved unchanged.

namespace marlo::kernel {

class PixelShuffle;

/// One pixel shuffle kernel.
struct PixelShuffleRow : KernelRow {
  using Family = PixelShuffle;

  runtime::LayoutType layout = runtime::LayoutType::CHW;  ///< of input and output
  float factor = 0.0f;                 ///< the one "upscale_factor" accepted; 0 for any
  bool refuses_odd = false;            ///< whether `CheckInputs` refuses odd heights and widths
  pixel_shuffle::Core up = nullptr;    ///< wide from deep
  pixel_shuffle::Core down = nullptr;  ///< deep from wide
};

/// See `PixelShuffleRow`. A factor above 1 scales up by its integer part, another one down by the
/// integer part of its inverse.
class PixelShuffle : public KernelFamily {
 public:
  explicit PixelShuffle(const PixelShuffleRow& row) : row_(row) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits pass_refusals(const Shapes& inputs) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);

  /// @throws std::runtime_error for a factor without an integer, or sizes beyond 32 bits
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;

 private:
  size_t dims() const { return row_.layout == runtime::LayoutType::CHW ? 3 : 4; }
  bool has_whole_blocks(const std::vector<uint32_t>& dims) const;
  bool scales_up() const { return factor_ > 1.0f; }
  uint32_t integer_factor() const;

  const PixelShuffleRow& row_;
  float factor_ = 1.0f;
};

/// The kernel for any factor.
constexpr PixelShuffleRow any_pixel_shuffle() {
  PixelShuffleRow row;
  row.up = pixel_shuffle::upscale_portable;
  row.down = pixel_shuffle::downscale_portable;
  return row;
}

/// A kernel that scales up by 2 on a blocked layout.
constexpr PixelShuffleRow doubling_shuffle(runtime::LayoutType layout, pixel_shuffle::Core up) {
  PixelShuffleRow row;
  row.layout = layout;
  row.factor = 2.0f;
  row.up = up;
  return row;
}

/// A kernel that scales down by 2 on a blocked layout.
constexpr PixelShuffleRow halving_shuffle(runtime::LayoutType layout, pixel_shuffle::Core down,
                                          bool refuses_odd) {
  PixelShuffleRow row;
  row.layout = layout;
  row.factor = 0.5f;
  row.refuses_odd = refuses_odd;
  row.down = down;
  return row;
}

namespace rows {
using namespace pixel_shuffle;
using runtime::LayoutType;
}  // namespace rows

// clang-format off
#define QRT_PIXEL_SHUFFLE_KERNELS_PORTABLE(KERNEL) \
  KERNEL(Pixelshuffle_Fallback_CHW_Float_M1, any_pixel_shuffle())

#define QRT_PIXEL_SHUFFLE_KERNELS_SSE(KERNEL)                                  \
  KERNEL(PixelShuffle_Downscale2_SSE_C4HW4_Float_M1,                           \
         halving_shuffle(LayoutType::C4HW4, downscale2_c4_sse, false))         \
  KERNEL(PixelShuffle_Upscale2_SSE_C4HW4_Float_M1,                             \
         doubling_shuffle(LayoutType::C4HW4, upscale2_c4_sse))

#define QRT_PIXEL_SHUFFLE_KERNELS_AVX(KERNEL)                                  \
  KERNEL(PixelShuffle_Downscale2_AVX_C8HW8_Float_M1,                           \
         on_avx(halving_shuffle(LayoutType::C8HW8, downscale2_c8_avx, true)))          \
  KERNEL(PixelShuffle_Upscale2_AVX_C8HW8_Float_M1,                             \
         on_avx(doubling_shuffle(LayoutType::C8HW8, upscale2_c8_avx)))
// clang-format on

QRT_PIXEL_SHUFFLE_KERNELS_PORTABLE(QRT_KERNEL)
QRT_IF_SSE(QRT_PIXEL_SHUFFLE_KERNELS_SSE(QRT_KERNEL))
QRT_IF_AVX(QRT_PIXEL_SHUFFLE_KERNELS_AVX(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const PixelShuffleRow*> pixel_shuffle_rows = {
    QRT_PIXEL_SHUFFLE_KERNELS_PORTABLE(QRT_KERNEL_ROW)
        QRT_IF_SSE(QRT_PIXEL_SHUFFLE_KERNELS_SSE(QRT_KERNEL_ROW))
            QRT_IF_AVX(QRT_PIXEL_SHUFFLE_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
