#ifndef __FMA__
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/conv/points/dot_product_internal.h"
#include "qrt_core/kernel/conv/points/point_convolution_cores.h"
#include "qrt_core/kernel/conv/points/point_products_internal.h"
#include "qrt_core/kernel/conv/points/strassen_cores.h"

namespace marlo::kernel::conv {
namespace {

template <size_t kInBlock, size_t kOutBlock>
void run_dot(const ConvTask& task) noexcept {
  DotProduct product;
  product.input = task.input;
  product.in_plane = plane_size(task.in_height, task.in_width) * kInBlock;
  product.in_blocks = task.in_blocks;
  product.weight = task.weight;
  product.bias = task.bias;
  product.output = task.output;
  product.out_plane = plane_size(task.out_height, task.out_width) * kOutBlock;
  product.out_channels = size_t{task.out_blocks} * kOutBlock;
  product.pixels = plane_size(task.out_height, task.out_width);
  DotProductTiles<FusedVector, kInBlock, kOutBlock>(product).run();
}

}  // namespace

void point_chw_fma(const ConvTask& task) noexcept {
  run_planes<FusedVector, EachPixel<FusedVector>>(task);
}

void point_c8_m1_fma(const ConvTask& task) noexcept { run_blocked<FusedVector, 8, 1, 3>(task); }

void point_c8_m2_fma(const ConvTask& task) noexcept {
  constexpr size_t kBlock = 8;
  constexpr size_t kGroup = 8;
  BlockedProduct product = blocked_product_of(task, kBlock, 1);
  const size_t rest = product.pixels % kGroup;
  product.pixels -= rest;
  if (product.pixels != 0) BlockedProductTiles<FusedVector, kBlock, 1, 3>(product).run();
  product.input += product.pixels * kBlock;
  product.output += product.pixels * kBlock;
  product.pixels = rest;
  if (rest != 0) BlockedProductTiles<AvxVector, kBlock, 1, 3>(product).run();
}

void point_c8_m3_fma(const ConvTask& task) noexcept { run_blocked<FusedVector, 8, 1, 2>(task); }

void point_c4_fma(const ConvTask& task) noexcept { run_dot<4, 4>(task); }

void point_c8_to_c4_fma(const ConvTask& task) noexcept { run_dot<8, 4>(task); }

void point_c4_to_c8_fma(const ConvTask& task) noexcept { run_dot<4, 8>(task); }

void product_of_blocks_fma(const float* a, const float* b, float* c, size_t rows, size_t inner,
                           size_t columns, size_t lda, size_t ldb, size_t ldc) noexcept {
  BlockedProduct product;
  product.input = b;
  product.in_plane = ldb * 8;
  product.in_blocks = inner;
  product.weight = a;
  product.weight_plane = lda * 64;
  product.output = c;
  product.out_plane = ldc * 8;
  product.out_blocks = rows;
  product.pixels = columns;
  BlockedProductTiles<FusedVector, 8, 1, 2>(product).run();
}

}  // namespace marlo::kernel::conv
