#pragma once

#include "qrt_core/kernel/conv/points/blocked_product_internal.h"
#include "qrt_core/kernel/conv/steps/conv_params.h"
#include "qrt_core/kernel/conv/steps/plane_product_internal.h"

// A 1x1 convolution as the products that compute it.

namespace marlo::kernel::conv {
namespace {

inline size_t plane_size(size_t height, size_t width) noexcept { return height * width; }

/// Takes pixels as one row where the stride is 1, since planes are dense.
template <typename Product>
Product product_of_rows(const ConvTask& task, size_t in_block, size_t out_block,
                        size_t stride) noexcept {
  Product product;
  product.input = task.input;
  product.in_plane = plane_size(task.in_height, task.in_width) * in_block;
  product.in_row = stride * task.in_width * in_block;
  product.weight = task.weight;
  product.bias = task.bias;
  product.output = task.output;
  product.out_plane = plane_size(task.out_height, task.out_width) * out_block;
  product.out_row = task.out_width * out_block;
  const size_t pixels = plane_size(task.out_height, task.out_width);
  product.rows = stride == 1 ? 1 : task.out_height;
  product.pixels = stride == 1 ? pixels : task.out_width;
  return product;
}

inline BlockedProduct blocked_product_of(const ConvTask& task, size_t block,
                                         size_t stride) noexcept {
  auto product = product_of_rows<BlockedProduct>(task, block, block, stride);
  product.in_blocks = task.in_blocks;
  product.out_blocks = task.out_blocks;
  product.weight_plane = task.in_blocks * block * block;
  return product;
}

inline PlaneProduct plane_product_of(const ConvTask& task, size_t stride) noexcept {
  auto product = product_of_rows<PlaneProduct>(task, 1, 1, stride);
  product.in_planes = task.in_blocks;
  product.out_planes = task.out_blocks;
  return product;
}

template <typename Vector, size_t kBlock, size_t kStride, size_t kMostBlocks>
void run_blocked(const ConvTask& task) noexcept {
  const BlockedProduct product = blocked_product_of(task, kBlock, kStride);
  BlockedProductTiles<Vector, kBlock, kStride, kMostBlocks>(product).run();
}

template <typename Vector, typename Pixels>
void run_planes(const ConvTask& task) noexcept {
  const PlaneProduct product = plane_product_of(task, Pixels::kStep);
  PlaneProductTiles<Vector, Pixels>(product).run();
}

}  // namespace
}  // namespace marlo::kernel::conv
