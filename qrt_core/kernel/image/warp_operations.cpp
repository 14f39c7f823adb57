#include <algorithm>

#include "qrt_core/kernel/image/image_operands_internal.h"
#include "qrt_core/kernel/image/image_process.h"
#include "qrt_core/kernel/image/warp_cores.h"
#include "qrt_core/utility/build_options.h"

// Warps: operations of `ImageProcessFallback`, and the normalised one of `ImageProcessSSE`.

namespace marlo::kernel {
namespace {

using namespace image;

// The planes of a tensor, whose elements are as large as floats.
FloatPlanes planes_of(const TensorCPU& tensor, const char* name) {
  const Size size = size_at(tensor, 1, name);
  demand(runtime::ElementSize(tensor.shape.data_type) == sizeof(float), name,
         "both tensors must be FLOAT32 tensors");
  const uint64_t elements = saturated_product(size.pixels(), tensor.shape.dims[0]);
  demand_bytes(tensor, saturated_product(elements, sizeof(float)), name);
  return {tensor.shape.dims[0], size.height, size.width};
}

struct Sides {
  Sides(const char* name, const std::shared_ptr<Tensor>& input_tensor,
        const std::shared_ptr<Tensor>& output_tensor, const float* matrix, bool check_layout)
      : input(operand(input_tensor, name)), output(operand(output_tensor, name)) {
    demand_silently(!check_layout || has_layout(input, LayoutType::CHW));
    demand(matrix != nullptr, name, "there is no matrix");
    from = planes_of(input, name);
    to = planes_of(output, name);
  }

  const TensorCPU& input;
  TensorCPU& output;
  FloatPlanes from{};
  FloatPlanes to{};
};

// A portable warp between tensors of the same channels.
struct PortableSides : Sides {
  PortableSides(const char* name, const std::shared_ptr<Tensor>& input_tensor,
                const std::shared_ptr<Tensor>& output_tensor, const float* matrix)
      : Sides(name, input_tensor, output_tensor, matrix, true) {
    demand(from.channels == to.channels, name, "both tensors must have the same channels");
  }
};

}  // namespace

void ImageProcessFallback::Affine_Float(Input input, Output output, const float* matrix,
                                        ContextPointer) {
  const PortableSides sides("Affine_Float", input, output, matrix);
  scatter(elements<uint32_t>(sides.input), sides.from, matrix, elements<uint32_t>(sides.output),
          sides.to);
}

void ImageProcessFallback::Affine_INV_Float(Input input, Output output, const float* matrix,
                                            ContextPointer) {
  const PortableSides sides("Affine_INV_Float", input, output, matrix);
  gather_nearest(elements<uint32_t>(sides.input), sides.from, matrix,
                 elements<uint32_t>(sides.output), sides.to);
}

void ImageProcessFallback::Affine_INV_BILINEAR_Float(Input input, Output output,
                                                     const float* matrix, ContextPointer) {
  const PortableSides sides("Affine_INV_BILINEAR_Float", input, output, matrix);
  gather_bilinear(elements<float>(sides.input), sides.from, matrix, elements<float>(sides.output),
                  sides.to);
}

void ImageProcessSSE::Affine_Normalize(Input input, Output output, const float* matrix,
                                       ContextPointer) {
  constexpr char kName[] = "Affine_Normalize";
  const Sides sides(kName, input, output, matrix, false);
  FloatPlanes to = sides.to;
  // Three planes are warped; a tensor of fewer has no others.
  to.channels = std::min({size_t{3}, sides.from.channels, to.channels});
  if (to.channels * to.height * to.width == 0) return;
  demand(sides.from.height * sides.from.width > 0, kName, "the input has no pixels");
  const NormalizedWarp warp(matrix, to.height, to.width);
  const auto* const from = elements<float>(sides.input);
  auto* const target = elements<float>(sides.output);
  for (size_t y = 0; y < to.height; ++y) {
    size_t done = 0;
#if QRT_WITH_SSE
    done = warp_normalized_row_sse(from, sides.from, warp, y, target, to);
#endif
    warp_normalized_row(from, sides.from, warp, y, done, target, to);
  }
}

}  // namespace marlo::kernel
