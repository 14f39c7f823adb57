#include "qrt_core/kernel/basic/upsampling.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "qrt_core/kernel/basic/plane_dims.h"
#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/layer_catalogue.h"
#include "qrt_core/runtime/model/shape_info.h"

namespace marlo::kernel {

using runtime::TensorCPU;
using runtime::TensorShape;
using runtime::Upsample2dInfo;
using upsampling::Taps;
using utility::Assert;

namespace {

constexpr char kNearest[] = "Nearest";
constexpr char kBilinear[] = "Bilinear";

bool takes_mode(UpsamplingModes modes, const char* word) {
  const bool nearest = std::strcmp(word, kNearest) == 0;
  const bool bilinear = std::strcmp(word, kBilinear) == 0;
  return (nearest && modes != UpsamplingModes::bilinear) ||
         (bilinear && modes != UpsamplingModes::nearest);
}

bool takes_factor(UpsamplingFactors factors, float factor) {
  switch (factors) {
    case UpsamplingFactors::at_least_one:
      return factor >= 1.0f;
    case UpsamplingFactors::not_negative:
      return factor >= 0.0f;
    default:
      return true;
  }
}

/// One dimension: its sizes, and the factor between them.
struct Axis {
  uint32_t in;
  uint32_t out;
  float factor;
};

// The input at or before a position, kept inside. A position without a number counts as the first.
uint32_t index_of(float position, uint32_t size) {
  const auto last = static_cast<float>(size - 1);
  return position > 0.0f ? static_cast<uint32_t>(std::min(position, last)) : 0;
}

// An output size of 1 makes the ratio of aligned corners infinite; its one position is the first
// input.
float aligned_ratio(const Axis& axis) {
  return axis.out == 1
             ? 0.0f
             : (static_cast<float>(axis.in) - 1.0f) / (static_cast<float>(axis.out) - 1.0f);
}

// The general rule. A column has a second tap only where its position lies strictly inside; a row
// also at both ends, where its weight is 0 and the last row stands in for the one behind it.
Taps general_taps(const Axis& axis, bool is_row, bool align_corner, uint32_t i) {
  const float ratio = align_corner ? aligned_ratio(axis) : 1.0f / axis.factor;
  const float offset = align_corner ? 0.0f : ratio * 0.5f - 0.5f;
  const float position = static_cast<float>(i) * ratio + offset;
  Taps taps{};
  taps.first = index_of(position, axis.in);
  taps.second_weight = position > 0.0f ? position - std::trunc(position) : 0.0f;
  taps.first_weight = 1.0f - taps.second_weight;
  const auto last = static_cast<float>(axis.in - 1);
  const bool inside =
      is_row ? position >= 0.0f && position <= last : position > 0.0f && position < last;
  taps.second = inside ? std::min(taps.first + 1, axis.in - 1) : taps.first;
  return taps;
}

// The rule by sizes. A position before the first input has a negative fraction, and extrapolates.
Taps taps_by_sizes(const Axis& axis, bool align_corner, uint32_t i) {
  const float ratio = align_corner ? aligned_ratio(axis)
                                   : static_cast<float>(axis.in) / static_cast<float>(axis.out);
  const auto number = static_cast<float>(i);
  const float position = align_corner ? number * ratio : number * ratio + ratio * 0.5f - 0.5f;
  Taps taps{};
  taps.first = index_of(position, axis.in);
  taps.second = taps.first + 1 == axis.in ? taps.first : taps.first + 1;
  taps.second_weight = position - std::trunc(position);
  taps.first_weight = 1.0f - taps.second_weight;
  return taps;
}

Taps nearest_taps(const Axis& axis, uint32_t i) {
  const uint32_t index = index_of(std::floor(static_cast<float>(i) / axis.factor), axis.in);
  return {index, index, 1.0f, 0.0f};
}

}  // namespace

int Upsampling::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  const auto* upsample = dynamic_cast<const Upsample2dInfo*>(info);
  if (param != nullptr || upsample == nullptr) return runtime::KERNEL_REFUSED;
  const char* word = runtime::UpsampleWord(upsample->unsample_type);
  return config_verdict(takes_mode(row_.modes, word) &&
                        takes_factor(row_.factors, upsample->scale_factor_y) &&
                        takes_factor(row_.factors, upsample->scale_factor_x));
}

KernelFamily::Misfits Upsampling::refusals(const LayerInfo* info,
                                           const InferenceParam* param) const {
  constexpr uint16_t kWords = 2;
  Expectations expected;
  const auto* layer = expected.describe<Upsample2dInfo>(info, param);
  if (layer == nullptr) return std::move(expected).unmet();
  const char* modes = row_.modes == UpsamplingModes::both      ? "0 or 1"
                      : row_.modes == UpsamplingModes::nearest ? "0, nearest"
                                                               : "1, bilinear";
  const bool has_word = layer->unsample_type < kWords;
  expected.expect(has_word && takes_mode(row_.modes, runtime::UpsampleWord(layer->unsample_type)),
                  "unsample_type", modes, std::to_string(layer->unsample_type));
  const bool from_one = row_.factors == UpsamplingFactors::at_least_one;
  for (const auto& [key, factor] : {std::pair("scale_factor_y", layer->scale_factor_y),
                                    std::pair("scale_factor_x", layer->scale_factor_x)}) {
    expected.expect(takes_factor(row_.factors, factor), key, from_one ? "at least 1" : "at least 0",
                    std::to_string(static_cast<float>(factor)));
  }
  return std::move(expected).unmet();
}

KernelFamily::Misfits Upsampling::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.one_float_of(inputs, row_.layout);
  return std::move(expected).unmet();
}

KernelFamily::Misfits Upsampling::differences(const LayerInfo&, const Shapes& inputs) const {
  Expectations expected;
  if (!inputs.empty() && !inputs[0].dims.empty()) {
    expected.expect(
        inputs[0].dims[0] % row_.channel_multiple == 0, "input 0",
        "channels in blocks of " + std::to_string(row_.channel_multiple) + ", or nothing comes out",
        std::to_string(inputs[0].dims[0]));
  }
  return std::move(expected).unmet();
}

KernelFamily::Misfits Upsampling::pass_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (inputs.empty()) return {};
  expect_plane_dims(inputs[0], row_.block, expected);
  return std::move(expected).unmet();
}

bool Upsampling::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  const auto& upsample = static_cast<const Upsample2dInfo&>(*info);
  factor_y_ = upsample.scale_factor_y;
  factor_x_ = upsample.scale_factor_x;
  align_corner_ = upsample.align_corner;
  nearest_ = std::strcmp(runtime::UpsampleWord(upsample.unsample_type), kNearest) == 0;
  return true;
}

uint32_t Upsampling::output_size(uint32_t size, float factor) const {
  const float scaled = static_cast<float>(size) * factor;
  const float out =
      row_.method == UpsamplingMethod::by_sizes ? std::trunc(scaled) : std::floor(scaled + 0.5f);
  constexpr float kSizes = 4294967296.0f;
  const bool usable = out >= 0.0f && out < kSizes;
  Assert(usable, "%s: factor %g gives no size for %u", row_.name, static_cast<double>(factor),
         size);
  return static_cast<uint32_t>(out);
}

KernelFamily::Shapes Upsampling::InferOutputShapes(const Shapes& shapes) const {
  const bool usable = !shapes.empty() && shapes[0].dims.size() == dims();
  Assert(usable, "%s: the input must have %zu dims", row_.name, dims());
  TensorShape shape = shapes[0];
  shape.dims[1] = output_size(shape.dims[1], factor_y_);
  shape.dims[2] = output_size(shape.dims[2], factor_x_);
  return {std::move(shape)};
}

int Upsampling::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_float_of(tensors, row_.layout));
}

// One pass by the given factors, into a new tensor. Tables and the two blended rows are one tensor
// of the pool.
Upsampling::TensorPointer Upsampling::sample(const TensorCPU& input, float factor_y, float factor_x,
                                             const Pass& pass) const {
  TensorShape shape = input.shape;
  shape.dims[1] = output_size(shape.dims[1], factor_y);
  shape.dims[2] = output_size(shape.dims[2], factor_x);
  auto output = pass.create(shape);
  if (runtime::ElementCount(shape) == 0) return output;

  const Axis y{input.shape.dims[1], shape.dims[1], factor_y};
  const Axis x{input.shape.dims[2], shape.dims[2], factor_x};
  Assert(y.in != 0 && x.in != 0, "%s: the input is empty", row_.name);
  constexpr uint64_t kTapsFloats = sizeof(Taps) / sizeof(float);
  const uint64_t floats = (static_cast<uint64_t>(y.out) + x.out) * kTapsFloats +
                          2 * static_cast<uint64_t>(x.out) * row_.block;
  Assert(floats <= std::numeric_limits<uint32_t>::max(), "%s: the output is too large", row_.name);
  const auto scratch = pass.create(TensorShape(
      {static_cast<uint32_t>(floats)}, runtime::DataType::FLOAT32, runtime::LayoutType::FLEXIABLE));
  auto* rows = static_cast<Taps*>(scratch->RawPointer());
  Taps* columns = rows + y.out;
  const auto taps_of = [this](const Axis& axis, bool is_row, uint32_t i) {
    if (nearest_) return nearest_taps(axis, i);
    return row_.method == UpsamplingMethod::by_sizes ? taps_by_sizes(axis, align_corner_, i)
                                                     : general_taps(axis, is_row, align_corner_, i);
  };
  for (uint32_t i = 0; i < y.out; ++i) rows[i] = taps_of(y, true, i);
  for (uint32_t i = 0; i < x.out; ++i) columns[i] = taps_of(x, false, i);

  const upsampling::Task task{static_cast<const float*>(input.RawPointer()),
                              static_cast<float*>(output->RawPointer()),
                              shape.dims[0],
                              y.in,
                              x.in,
                              y.out,
                              x.out,
                              rows,
                              columns,
                              reinterpret_cast<float*>(columns + x.out)};
  (nearest_ ? row_.nearest : row_.bilinear)(task);
  return output;
}

int Upsampling::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  const TensorCPU& input = float_input(row_.name, inputs);
  const std::vector<uint32_t>& size = input.shape.dims;
  Assert(has_plane_dims(size, row_.block),
         "%s: the input must have %zu dims, and blocks of %u channels", row_.name, dims(),
         row_.block);
  if (size[0] % row_.channel_multiple != 0) {
    // All members with this limit report it in the name of the first.
    utility::Log(utility::LOG_ERROR,
                 "Upsampling2D_Bilinear_SSE_CHW_Float_M1 Channels not support !");
    return runtime::KERNEL_OK;
  }
  const bool twice =
      row_.method == UpsamplingMethod::doubling && factor_y_ == 4.0f && factor_x_ == 4.0f;
  outputs.push_back(twice ? sample(*sample(input, 2.0f, 2.0f, pass), 2.0f, 2.0f, pass)
                          : sample(input, factor_y_, factor_x_, pass));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
