#ifndef __FMA__
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/extension/conv/block_depthwise_cores.h"
#include "qrt_core/kernel/extension/conv/epilogue_internal.h"

namespace marlo::kernel::conv {
namespace {

using V = FusedVector;
constexpr size_t kBlock = V::kLanes;
constexpr size_t kPiece = 64;  // pixels that are still in L1 when an epilogue comes to them

}  // namespace

void block_scale_fma(const ConvTask& task) noexcept {
  const Ending ending(task.epilogue);
  const size_t pixels = size_t{task.out_height} * task.out_width;
  const size_t blocks = task.params.groups / kBlock;
  for (size_t block = 0; block < blocks && pixels != 0; ++block) {
    const V::Register scale = V::load(task.weight + block * kBlock);
    const V::Register shift =
        task.bias == nullptr ? V::zero() : V::load(task.bias + block * kBlock);
    const float* const input = task.input + block * pixels * kBlock;
    float* const output = task.output + block * pixels * kBlock;
    for_each_part(pixels, kPiece, [&](size_t first, size_t count) {
      for (size_t i = first; i < first + count; ++i) {
        const V::Register y = V::plus_product(shift, V::load(input + i * kBlock), scale);
        V::store(output + i * kBlock, ending.template ended<V>(y));
      }
      ending.stored(output + first * kBlock, count * kBlock);
    });
  }
}

}  // namespace marlo::kernel::conv
