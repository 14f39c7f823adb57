#include "qrt_core/kernel/basic/grid_sample.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/layer_catalogue.h"
#include "qrt_core/runtime/model/shape_info.h"

namespace marlo::kernel {

using runtime::GridSampleInfo;
using runtime::LayoutType;
using runtime::TensorCPU;
using runtime::TensorShape;
using utility::Assert;

namespace {

constexpr char kNearest[] = "Nearest";
constexpr char kBilinear[] = "Bilinear";
constexpr char kZeros[] = "Zeros";
constexpr char kBorder[] = "Border";

/// One plane of the picture, and what its outside is.
struct Plane {
  const float* pixels;
  int64_t height;
  int64_t width;
  bool clamps;  // to the border, instead of being 0 outside

  float at(int64_t y, int64_t x) const {
    if (clamps) {
      y = std::clamp<int64_t>(y, 0, height - 1);
      x = std::clamp<int64_t>(x, 0, width - 1);
    } else if (y < 0 || y >= height || x < 0 || x >= width) {
      return 0.0f;
    }
    return pixels[y * width + x];
  }
};

bool has_no_pixels(const std::vector<uint32_t>& picture) {
  return picture[1] == 0 || picture[2] == 0;
}

// Far outside every picture, and small enough to be an integer. A NaN counts as far outside.
float within_reach(float coordinate) {
  constexpr float kReach = 1099511627776.0f;
  return coordinate > -kReach ? std::min(coordinate, kReach) : -kReach;
}

float nearest(const Plane& plane, float gx, float gy) {
  const float x = (1.0f + gx) * 0.5f * static_cast<float>(plane.width);
  const float y = (1.0f + gy) * 0.5f * static_cast<float>(plane.height);
  return plane.at(static_cast<int64_t>(within_reach(std::floor(y))),
                  static_cast<int64_t>(within_reach(std::floor(x))));
}

/// A coordinate as the tap below it and the weight of the tap above.
struct Tap {
  int64_t index;
  float fraction;
};

Tap tap_of(float coordinate) {
  const float position = within_reach(coordinate);
  Tap tap{static_cast<int64_t>(position), 0.0f};
  tap.fraction = position - static_cast<float>(tap.index);
  if (position < 0.0f) {
    tap.fraction += 1.0f;
    tap.index -= 1;
  }
  return tap;
}

float bilinear(const Plane& plane, float gx, float gy, bool align_corners) {
  const auto width = static_cast<float>(plane.width);
  const auto height = static_cast<float>(plane.height);
  const float x =
      align_corners ? (1.0f + gx) * 0.5f * (width - 1.0f) : (1.0f + gx) * 0.5f * width - 0.5f;
  const float y =
      align_corners ? (1.0f + gy) * 0.5f * (height - 1.0f) : (1.0f + gy) * 0.5f * height - 0.5f;
  const auto [ix, fx] = tap_of(x);
  const auto [iy, fy] = tap_of(y);
  const float top = plane.at(iy, ix) * (1.0f - fx) + plane.at(iy, ix + 1) * fx;
  const float bottom = plane.at(iy + 1, ix) * (1.0f - fx) + plane.at(iy + 1, ix + 1) * fx;
  return (1.0f - fy) * top + fy * bottom;
}

}  // namespace

int GridSample::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits GridSample::refusals(const LayerInfo* info,
                                           const InferenceParam* param) const {
  Expectations expected;
  const auto* sample = expected.describe<GridSampleInfo>(info, param);
  if (sample == nullptr) return std::move(expected).unmet();
  const std::string mode = runtime::GridSampleWord(sample->mode);
  expected.expect(mode == kNearest || mode == kBilinear, "mode",
                  std::string(kNearest) + " or " + kBilinear,
                  std::to_string(sample->mode) + ", " + mode);
  const std::string padding = runtime::GridSamplePaddingWord(sample->padding_mode);
  expected.expect(padding == kZeros || padding == kBorder, "padding_mode",
                  std::string(kZeros) + " or " + kBorder,
                  std::to_string(sample->padding_mode) + ", " + padding);
  return std::move(expected).unmet();
}

KernelFamily::Misfits GridSample::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(inputs.size() == 2, "inputs", "a picture and a grid",
                  runtime::ShapesText(inputs));
  if (!expected.met()) return std::move(expected).unmet();
  const auto is_float = [](const TensorShape& shape) { return is_float_in_main_memory(shape); };
  expected.expect(is_float(inputs[0]) && inputs[0].layout == LayoutType::CHW, "input 0",
                  "FLOAT32 CHW in main memory", runtime::ShapeText(inputs[0]));
  const std::vector<uint32_t>& grid = inputs[1].dims;
  expected.expect(is_float(inputs[1]) && (grid.size() == 3 || (grid.size() > 2 && grid[2] == 2)),
                  "input 1", "FLOAT32 [H, W, 2] in main memory", runtime::ShapeText(inputs[1]));
  return std::move(expected).unmet();
}

KernelFamily::Misfits GridSample::pass_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (inputs.size() != 2 || inputs[0].dims.size() != 3 || inputs[1].dims.size() != 3) return {};
  const std::vector<uint32_t>& grid = inputs[1].dims;
  expected.expect(grid[2] == 2, "input 1", "pairs of numbers, [H, W, 2]",
                  runtime::ShapeText(inputs[1]));
  const bool makes_nothing = inputs[0].dims[0] == 0 || grid[0] == 0 || grid[1] == 0;
  expected.expect(makes_nothing || !has_no_pixels(inputs[0].dims), "input 0",
                  "a picture that has pixels", runtime::ShapeText(inputs[0]));
  return std::move(expected).unmet();
}

bool GridSample::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  const auto& sample = static_cast<const GridSampleInfo&>(*info);
  mode_ = runtime::GridSampleWord(sample.mode);
  padding_mode_ = runtime::GridSamplePaddingWord(sample.padding_mode);
  align_corners_ = sample.align_corners;
  return true;
}

KernelFamily::Shapes GridSample::InferOutputShapes(const Shapes& shapes) const {
  const bool usable =
      shapes.size() == 2 && shapes[0].dims.size() == 3 && shapes[1].dims.size() == 3;
  Assert(usable, "%s: the inputs must be a picture and a grid of 3 dims each", row_.name);
  const TensorShape& picture = shapes[0];
  return {TensorShape({picture.dims[0], shapes[1].dims[0], shapes[1].dims[1]}, picture.data_type,
                      picture.layout, picture.location)};
}

int GridSample::CheckInputs(const Tensors& tensors) const {
  if (tensors.size() != 2) return runtime::KERNEL_BAD_TENSOR;
  if (!is_one_float_of({tensors[0]}, LayoutType::CHW) || !is_one_float({tensors[1]})) {
    return runtime::KERNEL_BAD_TENSOR;
  }
  const std::vector<uint32_t>& grid = tensors[1]->shape.dims;
  return tensor_verdict(grid.size() == 3 || (grid.size() > 2 && grid[2] == 2));
}

int GridSample::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_float_of(tensors, LayoutType::CHW));
}

int GridSample::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Assert(inputs.size() == 2, "%s: the inputs must be a picture and a grid", row_.name);
  const TensorCPU& picture = float_input(row_.name, {inputs[0]});
  const TensorCPU& grid = float_input(row_.name, {inputs[1]});
  const TensorShape shape = InferOutputShapes({picture.shape, grid.shape})[0];
  Assert(grid.shape.dims[2] == 2, "%s: the grid must hold pairs, not %u numbers each", row_.name,
         grid.shape.dims[2]);
  const std::vector<uint32_t>& dims = picture.shape.dims;
  Assert(!has_no_pixels(dims) || runtime::ElementCount(shape) == 0, "%s: the picture is empty",
         row_.name);
  Assert(mode_ == kNearest || mode_ == kBilinear, nullptr);

  auto output = pass.create(shape);
  Plane plane{static_cast<const float*>(picture.RawPointer()), dims[1], dims[2],
              padding_mode_ == kBorder};
  const bool by_nearest = mode_ == kNearest;
  const size_t pixels = static_cast<size_t>(shape.dims[1]) * shape.dims[2];
  auto* out = static_cast<float*>(output->RawPointer());
  for (uint32_t channel = 0; channel < dims[0]; ++channel) {
    const auto* pair = static_cast<const float*>(grid.RawPointer());
    for (size_t i = 0; i < pixels; ++i, pair += 2) {
      *out++ = by_nearest ? nearest(plane, pair[0], pair[1])
                          : bilinear(plane, pair[0], pair[1], align_corners_);
    }
    plane.pixels += plane.height * plane.width;
  }
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
