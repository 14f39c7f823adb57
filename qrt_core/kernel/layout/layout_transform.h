#pragma once

#include <initializer_list>

#include "qrt_core/kernel/kernel_class.h"
#include "qrt_core/kernel/layout/layout_functions.h"
#include "qrt_core/kernel/layout/layout_transform_cores.h"

// Kernels that move FLOAT32 tensors between CHW, C4HW4 and C8HW8. A configuration puts them between
// layers that work in different layouts.

namespace marlo::kernel {

class LayoutTransform;

/// One side of a transform: a layout and the channels that stand side by side in it.
struct ChannelBlocks {
  runtime::LayoutType layout;  ///< of the tensor
  uint32_t block;              ///< 1 for planes
};

inline constexpr ChannelBlocks planes{runtime::LayoutType::CHW, 1};
inline constexpr ChannelBlocks blocks_of_4{runtime::LayoutType::C4HW4, 4};
inline constexpr ChannelBlocks blocks_of_8{runtime::LayoutType::C8HW8, 8};

/// One transform kernel.
struct LayoutTransformRow : KernelRow {
  using Family = LayoutTransform;

  ChannelBlocks source = planes;  ///< the input
  ChannelBlocks target = planes;  ///< the output
  uint32_t source_multiple = 1;   ///< what `CheckInputs` demands dims[0] to be a multiple of
  uint32_t target_multiple = 1;   ///< what `CheckOutputs` demands dims[0] to be a multiple of
  layout::Core core = nullptr;    ///< moves the numbers

  /// The same row with outputs of any dims[0]. CHW after C4HW4 has no test where its siblings have
  /// one; callers depend on what is accepted.
  constexpr LayoutTransformRow any_output() const {
    LayoutTransformRow row = *this;
    row.target_multiple = 1;
    return row;
  }
};

/// See `LayoutTransformRow`. Takes any number of inputs and makes one output of each.
class LayoutTransform : public KernelFamily {
 public:
  static constexpr size_t kLeastInputs = 0;

  explicit LayoutTransform(const LayoutTransformRow& row) : row_(row) {}

  Shapes InferOutputShapes(const Shapes& shapes) const;
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const;
  Misfits input_refusals(const Shapes& inputs) const;

 private:
  const LayoutTransformRow& row_;
};

/// A transform whose smaller blocks have to fill the larger ones.
constexpr LayoutTransformRow transform(ChannelBlocks source, ChannelBlocks target,
                                       layout::Core core) {
  LayoutTransformRow row;
  row.source = source;
  row.target = target;
  if (source.block < target.block) row.source_multiple = target.block / source.block;
  if (source.block > target.block) row.target_multiple = source.block / target.block;
  row.core = core;
  return row;
}

namespace rows {
using namespace layout;
}  // namespace rows

#define QRT_LAYOUT_TRANSFORM_KERNELS_SSE(KERNEL)                                 \
  KERNEL(LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1,                   \
         transform(planes, blocks_of_4, planes_to_blocks_of_4_gather_sse))       \
  KERNEL(LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2,                   \
         transform(planes, blocks_of_4, planes_to_blocks_of_4_sse))              \
  KERNEL(LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1,                   \
         transform(blocks_of_4, planes, blocks_of_4_to_planes_sse).any_output()) \
  KERNEL(LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1,                   \
         transform(planes, blocks_of_8, planes_to_blocks_of_8_sse))              \
  KERNEL(LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1,                   \
         transform(blocks_of_8, planes, blocks_of_8_to_planes_sse))              \
  KERNEL(LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M2,                   \
         transform(blocks_of_8, planes, blocks_of_8_to_planes_wide_sse))         \
  KERNEL(LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1,                 \
         transform(blocks_of_4, blocks_of_8, blocks_of_4_to_8_sse))              \
  KERNEL(LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1,                 \
         transform(blocks_of_8, blocks_of_4, blocks_of_8_to_4_sse))

#define QRT_LAYOUT_TRANSFORM_KERNELS_AVX(KERNEL)                                    \
  KERNEL(LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1,                      \
         on_avx(transform(planes, blocks_of_8, planes_to_blocks_of_8_gather_avx)))  \
  KERNEL(LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M2,                      \
         on_avx(transform(planes, blocks_of_8, planes_to_blocks_of_8_avx)))         \
  KERNEL(LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M1,                      \
         on_avx(transform(blocks_of_8, planes, blocks_of_8_to_planes_scatter_avx))) \
  KERNEL(LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2,                      \
         on_avx(transform(blocks_of_8, planes, blocks_of_8_to_planes_avx)))

QRT_IF_SSE(QRT_LAYOUT_TRANSFORM_KERNELS_SSE(QRT_KERNEL))
QRT_IF_AVX(QRT_LAYOUT_TRANSFORM_KERNELS_AVX(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const LayoutTransformRow*> layout_transform_rows = {
    QRT_IF_SSE(QRT_LAYOUT_TRANSFORM_KERNELS_SSE(QRT_KERNEL_ROW))
        QRT_IF_AVX(QRT_LAYOUT_TRANSFORM_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
