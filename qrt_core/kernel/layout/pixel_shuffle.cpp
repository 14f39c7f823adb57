#include "qrt_core/kernel/layout/pixel_shuffle.h"

#include <limits>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/shape_info.h"

namespace marlo::kernel {

using runtime::PixelShuffleInfo;
using runtime::TensorShape;
using utility::Assert;

namespace {

constexpr uint64_t kMaxSize = std::numeric_limits<uint32_t>::max();

}  // namespace

// Rows and columns of the wide tensor that make no whole square are left out.
void pixel_shuffle::upscale_portable(const Task& t) noexcept {
  const float* in = t.input;
  const size_t r = t.factor;
  for (size_t c = 0; c < t.wide_channels * r * r; ++c) {
    const size_t i = c % (r * r) / r;
    const size_t j = c % r;
    float* plane = t.output + c / (r * r) * t.wide_height * t.wide_width;
    for (size_t h = 0; h < t.deep_height; ++h) {
      float* out = plane + (h * r + i) * t.wide_width + j;
      for (size_t w = 0; w < t.deep_width; ++w) out[w * r] = *in++;
    }
  }
}

void pixel_shuffle::downscale_portable(const Task& t) noexcept {
  float* out = t.output;
  const size_t r = t.factor;
  for (size_t c = 0; c < t.wide_channels * r * r; ++c) {
    const size_t i = c % (r * r) / r;
    const size_t j = c % r;
    const float* plane = t.input + c / (r * r) * t.wide_height * t.wide_width;
    for (size_t h = 0; h < t.deep_height; ++h) {
      const float* in = plane + (h * r + i) * t.wide_width + j;
      for (size_t w = 0; w < t.deep_width; ++w) *out++ = in[w * r];
    }
  }
}

int PixelShuffle::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits PixelShuffle::refusals(const LayerInfo* info,
                                             const InferenceParam* param) const {
  Expectations expected;
  const auto* shuffle = expected.describe<PixelShuffleInfo>(info, param);
  if (shuffle != nullptr && row_.factor != 0.0f) {
    const auto found = static_cast<float>(shuffle->upscale_factor);
    expected.expect(found == row_.factor, "upscale_factor", std::to_string(row_.factor),
                    std::to_string(found));
  }
  return std::move(expected).unmet();
}

KernelFamily::Misfits PixelShuffle::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (expected.one_float_of(inputs, row_.layout)) {
    expected.expect(false, "input 0", "an even height and width", runtime::ShapeText(inputs[0]));
  }
  return std::move(expected).unmet();
}

bool PixelShuffle::has_whole_blocks(const std::vector<uint32_t>& dims) const {
  return this->dims() == 3 || dims[3] == runtime::BlockSize(row_.layout);
}

KernelFamily::Misfits PixelShuffle::pass_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (inputs.empty() || inputs[0].dims.size() != dims()) return {};
  expected.expect(has_whole_blocks(inputs[0].dims), "input 0",
                  "blocks of " + counted(runtime::BlockSize(row_.layout), "channel"),
                  runtime::ShapeText(inputs[0]));
  return std::move(expected).unmet();
}

bool PixelShuffle::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  factor_ = static_cast<const PixelShuffleInfo&>(*info).upscale_factor;
  return true;
}

uint32_t PixelShuffle::integer_factor() const {
  const float factor = scales_up() ? factor_ : 1.0f / factor_;
  // A square of more pixels than a tensor may have is refused with what has no integer at all.
  constexpr float kMaxFactor = 65535.0f;
  const bool usable = factor >= 1.0f && factor <= kMaxFactor;
  Assert(usable, "%s: upscale_factor %g is no factor to scale by", row_.name,
         static_cast<double>(factor_));
  return static_cast<uint32_t>(factor);
}

KernelFamily::Shapes PixelShuffle::InferOutputShapes(const Shapes& shapes) const {
  const bool usable = !shapes.empty() && shapes[0].dims.size() == dims();
  Assert(usable, "%s: the input must have %zu dims", row_.name, dims());
  const uint32_t r = integer_factor();
  TensorShape output = shapes[0];
  output.extra = TensorShape::Extra();
  std::vector<uint32_t>& d = output.dims;
  // Blocks of channels multiply and divide as channels do.
  if (scales_up()) {
    const bool fits =
        static_cast<uint64_t>(d[1]) * r <= kMaxSize && static_cast<uint64_t>(d[2]) * r <= kMaxSize;
    Assert(fits, "%s: the output is too large", row_.name);
    d = {d[0] / (r * r), d[1] * r, d[2] * r};
  } else {
    const uint64_t channels = static_cast<uint64_t>(d[0]) * r * r;
    Assert(channels <= kMaxSize, "%s: the output is too large", row_.name);
    d = {static_cast<uint32_t>(channels), d[1] / r, d[2] / r};
  }
  if (dims() == 4) d.push_back(shapes[0].dims[3]);
  return {output};
}

int PixelShuffle::CheckInputs(const Tensors& tensors) const {
  if (!is_one_float_of(tensors, row_.layout)) return runtime::KERNEL_BAD_TENSOR;
  const std::vector<uint32_t>& d = tensors[0]->shape.dims;
  const bool odd = d.size() > 2 && ((d[1] | d[2]) & 1) != 0;
  return tensor_verdict(!(row_.refuses_odd && odd));
}

int PixelShuffle::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_float_of(tensors, row_.layout));
}

int PixelShuffle::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  const runtime::TensorCPU& input = float_input(row_.name, inputs);
  const TensorShape shape = InferOutputShapes({input.shape})[0];
  Assert(has_whole_blocks(shape.dims), "%s: the input must have blocks of %u channels", row_.name,
         runtime::BlockSize(row_.layout));
  auto output = pass.create(shape);

  const std::vector<uint32_t>& wide = scales_up() ? shape.dims : input.shape.dims;
  const std::vector<uint32_t>& deep = scales_up() ? input.shape.dims : shape.dims;
  const pixel_shuffle::Task task{static_cast<const float*>(input.RawPointer()),
                                 static_cast<float*>(output->RawPointer()),
                                 wide[0],
                                 deep[1],
                                 deep[2],
                                 wide[1],
                                 wide[2],
                                 integer_factor()};
  (scales_up() ? row_.up : row_.down)(task);
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
