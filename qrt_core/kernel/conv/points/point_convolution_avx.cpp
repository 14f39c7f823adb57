#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include "qrt_core/kernel/conv/points/dot_product_internal.h"
#include "qrt_core/kernel/conv/points/point_convolution_cores.h"
#include "qrt_core/kernel/conv/points/point_products_internal.h"

namespace marlo::kernel::conv {

void point_stride2_c8_avx(const ConvTask& task) noexcept { run_blocked<AvxVector, 8, 2, 2>(task); }

void point_c8_to_chw_avx(const ConvTask& task) noexcept {
  DotProduct product;
  product.input = task.input;
  product.in_plane = plane_size(task.in_height, task.in_width) * 8;
  product.in_blocks = task.in_blocks;
  product.weight = task.weight;
  product.bias = task.bias;
  product.output = task.output;
  product.out_plane = plane_size(task.out_height, task.out_width);
  product.out_channels = task.out_blocks;
  product.pixels = product.out_plane;
  DotProductRows<AvxVector>(product).run();
}

}  // namespace marlo::kernel::conv
