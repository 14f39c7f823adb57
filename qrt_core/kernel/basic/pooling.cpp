#include "qrt_core/kernel/basic/pooling.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "qrt_core/kernel/basic/plane_dims.h"
#include "qrt_core/kernel/layout/padding.h"
#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/pooling_info.h"

namespace marlo::kernel {

using runtime::AvgPool2dInfo;
using runtime::DataType;
using runtime::LayoutType;
using runtime::MaxPool2dInfo;
using runtime::TensorCPU;
using runtime::TensorShape;
using utility::Assert;

namespace {

template <typename Info>
PoolingParams common_params(const Info& info) {
  PoolingParams params;
  params.kernel_x = info.kernel_x;
  params.kernel_y = info.kernel_y;
  params.stride_x = info.stride_x;
  params.stride_y = info.stride_y;
  params.padding_l = info.padding_l;
  params.padding_r = info.padding_r;
  params.padding_t = info.padding_t;
  params.padding_b = info.padding_b;
  params.ceil_mode = info.ceil_mode;
  return params;
}

// The parameters of a description of the wanted kind. @return false for another description
bool read_params(PoolingKind kind, const runtime::LayerInfo* info, PoolingParams& params) {
  if (kind == PoolingKind::average) {
    const auto* average = dynamic_cast<const AvgPool2dInfo*>(info);
    if (average == nullptr) return false;
    params = common_params(*average);
    params.count_include_pad = average->count_include_pad;
    return true;
  }
  const auto* maximum = dynamic_cast<const MaxPool2dInfo*>(info);
  if (maximum == nullptr) return false;
  params = common_params(*maximum);
  params.dilation_x = maximum->dilation_x;
  params.dilation_y = maximum->dilation_y;
  return true;
}

// Pixels from the first to the last of a window. A window of no pixels has 1 - dilation of them.
int64_t extent(uint32_t kernel, uint32_t dilation) {
  return (int64_t{kernel} - 1) * int64_t{dilation} + 1;
}

// A size and its paddings, in 32-bit arithmetic.
uint32_t padded_size(uint32_t size, int32_t before, int32_t after) {
  return size + static_cast<uint32_t>(before) + static_cast<uint32_t>(after);
}

// Whether a window has a place in a padded picture whose size is a 32-bit number.
bool window_fits(uint32_t size, int32_t before, int32_t after, int64_t window) {
  const int64_t padded = int64_t{size} + before + after;
  return padded <= int64_t{UINT32_MAX} && padded >= window;
}

// Whether the last of `count` windows passes the end of `size` pixels.
bool passes(size_t count, uint32_t stride, uint32_t kernel, size_t size) {
  return count != 0 && (count - 1) * stride + kernel > size;
}

// A copy of the planes of a task, followed by zeros as far as its last window reaches.
std::shared_ptr<TensorCPU> with_slack(const TensorCPU& planes, const PoolingTask& task,
                                      uint32_t block, runtime::DeviceCPU& device) {
  const size_t plane = task.height * task.width;
  const size_t last_row = (task.out_height - 1) * task.params.stride_y + task.params.kernel_y - 1;
  const size_t last_column = (task.out_width - 1) * task.params.stride_x + task.params.kernel_x - 1;
  const size_t reach = std::max(last_row * task.width + last_column + 1, plane);
  const size_t held = task.planes * plane * block;
  const size_t floats = held + (reach - plane) * block;
  Assert(floats <= UINT32_MAX, "a pooling window reaches %zu floats far", floats);
  auto copy = device.CreateTensor(
      TensorShape({static_cast<uint32_t>(floats)}, DataType::FLOAT32, LayoutType::FLEXIABLE),
      nullptr);
  auto* numbers = static_cast<float*>(copy->RawPointer());
  std::memcpy(numbers, planes.RawPointer(), held * sizeof(float));
  std::fill(numbers + held, numbers + floats, 0.0f);
  return copy;
}

}  // namespace

int Pooling::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits Pooling::refusals(const LayerInfo* info, const InferenceParam* param) const {
  Expectations expected;
  const bool described = row_.kind == PoolingKind::average
                             ? expected.describe<AvgPool2dInfo>(info, param) != nullptr
                             : expected.describe<MaxPool2dInfo>(info, param) != nullptr;
  PoolingParams p;
  if (described && row_.kernel != 0 && read_params(row_.kind, info, p)) {
    expected.expect(p.kernel_y == row_.kernel && p.kernel_x == row_.kernel, "kernel_y, kernel_x",
                    by(row_.kernel, row_.kernel), by(p.kernel_y, p.kernel_x));
    expected.expect(p.stride_y == row_.stride && p.stride_x == row_.stride, "stride_y, stride_x",
                    by(row_.stride, row_.stride), by(p.stride_y, p.stride_x));
  }
  return std::move(expected).unmet();
}

KernelFamily::Misfits Pooling::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.one_float_of(inputs, row_.layout);
  return std::move(expected).unmet();
}

// What a kernel for one window doesn't look at, and what no window can do.
KernelFamily::Misfits Pooling::differences(const LayerInfo& info, const Shapes& inputs) const {
  Expectations expected;
  PoolingParams p;
  if (!read_params(row_.kind, &info, p)) return {};
  const bool average = row_.kind == PoolingKind::average;
  const bool padded = p.padding_l != 0 || p.padding_r != 0 || p.padding_t != 0 || p.padding_b != 0;
  expected.expect(p.stride_y != 0 && p.stride_x != 0, "stride_y, stride_x", "above 0",
                  by(p.stride_y, p.stride_x));
  if (average) {
    expected.expect(!p.ceil_mode, "ceil_mode", "false: the output size rounds down", "true");
  } else {
    expected.expect(p.dilation_y != 0 && p.dilation_x != 0, "dilation_y, dilation_x", "above 0",
                    by(p.dilation_y, p.dilation_x));
  }
  if (row_.kernel == 0) return std::move(expected).unmet();
  if (average) {
    expected.expect(!padded || p.count_include_pad, "count_include_pad",
                    "true: the divisor is the window's area, padding or not", "false");
    return std::move(expected).unmet();
  }
  expected.expect(p.dilation_y <= 1 && p.dilation_x <= 1, "dilation_y, dilation_x", "1 x 1",
                  by(p.dilation_y, p.dilation_x));
  expected.expect(!padded, "padding_l, padding_r, padding_t, padding_b",
                  "none: zeros are the margin, and the maximum where all numbers are below",
                  std::to_string(p.padding_l) + ", " + std::to_string(p.padding_r) + ", " +
                      std::to_string(p.padding_t) + ", " + std::to_string(p.padding_b));
  if (p.ceil_mode && inputs.size() == 1 && inputs[0].dims.size() >= 3) {
    const auto is_whole = [&](uint32_t size, int32_t before, int32_t after) {
      return (padded_size(size, before, after) - row_.kernel) % row_.stride == 0;
    };
    expected.expect(is_whole(inputs[0].dims[1], p.padding_t, p.padding_b) &&
                        is_whole(inputs[0].dims[2], p.padding_l, p.padding_r),
                    "ceil_mode", "false: what stands behind the last row counts in its windows",
                    "true");
  }
  return std::move(expected).unmet();
}

bool Pooling::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  return read_params(row_.kind, info, params_);
}

// In 32-bit arithmetic, which wraps where the window is larger than the padded input.
uint32_t Pooling::output_size(uint32_t padded, uint32_t kernel, uint32_t dilation,
                              uint32_t stride) const {
  if (row_.kind == PoolingKind::average) return (padded - kernel) / stride + 1;
  // In float, which decides between two sizes where a picture has more than 2^24 rows or columns.
  const uint32_t reach = padded - static_cast<uint32_t>(extent(kernel, dilation));
  const float steps = static_cast<float>(reach) / static_cast<float>(stride);
  const float size = (params_.ceil_mode ? std::ceil(steps) : std::floor(steps)) + 1.0f;
  return static_cast<uint32_t>(static_cast<int64_t>(size));
}

KernelFamily::Shapes Pooling::InferOutputShapes(const Shapes& shapes) const {
  const size_t rank = row_.block == 1 ? 3 : 4;
  Assert(!shapes.empty() && shapes[0].dims.size() == rank, "%s: the input must have %zu dims",
         row_.name, rank);
  Assert(params_.stride_x != 0 && params_.stride_y != 0, "%s: a stride is 0", row_.name);
  const TensorShape& input = shapes[0];
  TensorShape output(input.dims, input.data_type, input.layout, input.location);
  output.dims[1] = output_size(padded_size(input.dims[1], params_.padding_t, params_.padding_b),
                               params_.kernel_y, params_.dilation_y, params_.stride_y);
  output.dims[2] = output_size(padded_size(input.dims[2], params_.padding_l, params_.padding_r),
                               params_.kernel_x, params_.dilation_x, params_.stride_x);
  return {output};
}

int Pooling::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_float(tensors) && tensors[0]->shape.layout == row_.layout);
}

bool Pooling::has_negative_padding() const {
  return std::min({params_.padding_l, params_.padding_r, params_.padding_t, params_.padding_b}) < 0;
}

bool Pooling::windows_fit(const std::vector<uint32_t>& dims) const {
  const PoolingParams& p = params_;
  return window_fits(dims[1], p.padding_t, p.padding_b, extent(p.kernel_y, p.dilation_y)) &&
         window_fits(dims[2], p.padding_l, p.padding_r, extent(p.kernel_x, p.dilation_x));
}

KernelFamily::Misfits Pooling::pass_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (inputs.empty()) return {};
  const std::vector<uint32_t>& dims = inputs[0].dims;
  expect_plane_dims(inputs[0], row_.block, expected);
  const std::vector<int32_t> paddings = {params_.padding_l, params_.padding_r, params_.padding_t,
                                         params_.padding_b};
  expected.expect(!has_negative_padding(), "padding_l, padding_r, padding_t, padding_b",
                  "none below 0", listed(paddings));
  if (!expected.met()) return std::move(expected).unmet();
  expected.expect(windows_fit(dims), "kernel_y, kernel_x",
                  "a window that has a place in the padded input, " +
                      by(padded_size(dims[1], params_.padding_t, params_.padding_b),
                         padded_size(dims[2], params_.padding_l, params_.padding_r)),
                  by(params_.kernel_y, params_.kernel_x));
  return std::move(expected).unmet();
}

// The input, if nothing about it and the parameters sends the core outside of a block.
std::shared_ptr<TensorCPU> Pooling::checked_input(const Tensors& inputs) const {
  const std::vector<uint32_t> none;
  const bool right_kind = CheckInputs(inputs) == runtime::KERNEL_OK;
  const std::vector<uint32_t>& dims = right_kind ? inputs[0]->shape.dims : none;
  Assert(has_plane_dims(dims, row_.block),
         "%s: the input must be one FLOAT32 tensor of layout %u with blocks of %u in main memory",
         row_.name, static_cast<uint32_t>(row_.layout), row_.block);
  const PoolingParams& p = params_;
  Assert(!has_negative_padding(), "%s: a padding is negative: %d left, %d right, %d top, %d bottom",
         row_.name, p.padding_l, p.padding_r, p.padding_t, p.padding_b);
  Assert(windows_fit(dims),
         "%s: a window of %u by %u doesn't fit into the padded input of %u by %u", row_.name,
         p.kernel_y, p.kernel_x, padded_size(dims[1], p.padding_t, p.padding_b),
         padded_size(dims[2], p.padding_l, p.padding_r));
  return std::static_pointer_cast<TensorCPU>(inputs[0]);
}

bool Pooling::has_margin() const {
  return params_.padding_l != 0 || params_.padding_r != 0 || params_.padding_t != 0 ||
         params_.padding_b != 0;
}

// A task over the input as it is.
PoolingTask Pooling::task_for(const TensorShape& input, const TensorShape& output) const {
  PoolingTask task;
  task.planes = input.dims[0];
  task.height = input.dims[1];
  task.width = input.dims[2];
  task.out_height = output.dims[1];
  task.out_width = output.dims[2];
  task.top = static_cast<size_t>(params_.padding_t);
  task.left = static_cast<size_t>(params_.padding_l);
  const size_t padded_height = task.height + task.top + static_cast<size_t>(params_.padding_b);
  const size_t padded_width = task.width + task.left + static_cast<size_t>(params_.padding_r);
  // The portable kernel keeps its windows inside. The others know no dilation, and in ceil mode a
  // window may pass the edge; what follows in memory then counts, which is meant.
  task.runs_on = row_.kernel != 0 &&
                 (passes(task.out_height, params_.stride_y, params_.kernel_y, padded_height) ||
                  passes(task.out_width, params_.stride_x, params_.kernel_x, padded_width));
  task.params = params_;
  return task;
}

// The planes that the core reads; turns the task to them.
std::shared_ptr<TensorCPU> Pooling::padded_input(const TensorPointer& input, PoolingTask& task,
                                                 const Pass& pass) const {
  const bool as_it_is = !has_margin() || row_.margin == PoolingMargin::implied;
  if (as_it_is && !task.runs_on) return input;
  const auto pad = row_.layout == LayoutType::CHW     ? Padding_HW_MainMemory_CHW_Float_Fallback_M1
                   : row_.layout == LayoutType::C4HW4 ? Padding_HW_MainMemory_C4HW4_Float_SSE_M1
                                                      : Padding_HW_MainMemory_C8HW8_Float_AVX_M1;
  const auto count = [](int32_t padding) { return static_cast<uint32_t>(padding); };
  auto padded =
      pad(input, count(params_.padding_l), count(params_.padding_r), count(params_.padding_t),
          count(params_.padding_b), row_.margin_value, pass.shared_device());
  task.top = 0;
  task.left = 0;
  task.height = padded->shape.dims[1];
  task.width = padded->shape.dims[2];
  if (task.runs_on) return with_slack(*padded, task, row_.block, pass.device());
  return padded;
}

int Pooling::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  const auto input = checked_input(inputs);
  auto output = pass.create(InferOutputShapes({input->shape})[0]);
  PoolingTask task = task_for(input->shape, output->shape);
  const auto planes = padded_input(input, task, pass);
  task.input = static_cast<const float*>(planes->RawPointer());
  task.output = static_cast<float*>(output->RawPointer());
  row_.core(task);
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
