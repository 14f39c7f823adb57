#include "qrt_core/kernel/extension/elementary/axis_reduction.h"

#include <cmath>

#include "qrt_core/kernel/extension/axes.h"
#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/extension_info.h"

namespace marlo::kernel {

using axes::Dims;
using axes::floats_of;
using runtime::AxisReduction;
using utility::Assert;

namespace {

constexpr auto kLastReduction = static_cast<uint32_t>(AxisReduction::LogSumExp);

double added(AxisReduction function, double sum, double x) {
  switch (function) {
    case AxisReduction::Max:
      return std::isnan(sum) || sum > x ? sum : x;
    case AxisReduction::Min:
      return std::isnan(sum) || sum < x ? sum : x;
    case AxisReduction::Prod:
      return sum * x;
    case AxisReduction::L1:
      return sum + std::fabs(x);
    case AxisReduction::L2:
    case AxisReduction::SumSquare:
      return sum + x * x;
    default:
      return sum + x;
  }
}

double begin_of(AxisReduction function) {
  if (function == AxisReduction::Prod) return 1.0;
  if (function == AxisReduction::Max) return -HUGE_VAL;
  return function == AxisReduction::Min ? HUGE_VAL : 0.0;
}

double end_of(AxisReduction function, double sum, size_t count) {
  switch (function) {
    case AxisReduction::Mean:
      return sum / static_cast<double>(count);
    case AxisReduction::L2:
      return std::sqrt(sum);
    case AxisReduction::LogSum:
      return std::log(sum);
    default:
      return sum;
  }
}

// The elements of one result: `dims` under `strides` from `first` on.
double reduced(AxisReduction function, const float* first, const Dims& dims,
               const axes::Strides& strides) {
  const size_t count = axes::count_of(dims);
  const auto fold = [&](AxisReduction as, auto of) {
    double sum = begin_of(as);
    axes::Walk walk(dims, strides);
    for (size_t i = 0; i < count; ++i, walk.next()) {
      sum = added(as, sum, of(static_cast<double>(first[walk.offset()])));
    }
    return sum;
  };
  const auto itself = [](double x) { return x; };
  if (function != AxisReduction::LogSumExp) return end_of(function, fold(function, itself), count);
  const double largest = fold(AxisReduction::Max, itself);
  if (!std::isfinite(largest)) return largest;
  return largest +
         std::log(fold(AxisReduction::Sum, [=](double x) { return std::exp(x - largest); }));
}

}  // namespace

int AxisReductionKernel::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits AxisReductionKernel::refusals(const LayerInfo* info,
                                                    const InferenceParam* param) const {
  Expectations expected;
  const auto* layer = expected.describe<runtime::AxisReductionInfo>(info, param);
  if (layer != nullptr) {
    expected.expect(layer->function <= kLastReduction, "function",
                    "0 to " + std::to_string(kLastReduction), std::to_string(layer->function));
  }
  return std::move(expected).unmet();
}

bool AxisReductionKernel::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  const auto& description = static_cast<const runtime::AxisReductionInfo&>(*info);
  function_ = description.function;
  axes_ = description.axes;
  keep_dims_ = description.keep_dims;
  return true;
}

// Which axes are reduced over. @return false for one that isn't there
bool AxisReductionKernel::reduced_axes(size_t rank, std::vector<bool>& reduced_over) const {
  reduced_over.assign(rank, axes_.empty());
  for (const int32_t axis : axes_) {
    const size_t place = axes::axis_of(axis, rank);
    if (place == rank) return false;
    reduced_over[place] = true;
  }
  return true;
}

KernelFamily::Shapes AxisReductionKernel::InferOutputShapes(const Shapes& shapes) const {
  std::vector<bool> reduced_over;
  Assert(!shapes.empty() && reduced_axes(shapes[0].dims.size(), reduced_over),
         "%s: there must be one input that has the axes", row_.name);
  runtime::TensorShape output = shapes[0];
  output.dims.clear();
  for (size_t k = 0; k < reduced_over.size(); ++k) {
    if (!reduced_over[k]) output.dims.push_back(shapes[0].dims[k]);
    if (reduced_over[k] && keep_dims_) output.dims.push_back(1);
  }
  if (!keep_dims_) output.layout = runtime::LayoutType::FLEXIABLE;
  return {output};
}

int AxisReductionKernel::CheckInputs(const Tensors& tensors) const {
  std::vector<bool> reduced_over;
  return tensor_verdict(axes::are_plain(tensors, 1) &&
                        reduced_axes(tensors[0]->shape.dims.size(), reduced_over));
}

KernelFamily::Misfits AxisReductionKernel::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (axes::expect_plain(inputs, 1, expected)) {
    expected.expect(false, "input 0", "the axes that are reduced over",
                    counted(inputs[0].dims.size(), "dim"));
  }
  return std::move(expected).unmet();
}

int AxisReductionKernel::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(axes::are_plain(tensors, 1));
}

int AxisReductionKernel::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Assert(CheckInputs(inputs) == runtime::KERNEL_OK,
         "%s: the input must be a FLOAT32 tensor that has the axes, neither in C4HW4 nor in C8HW8",
         row_.name);
  const Dims& dims = inputs[0]->shape.dims;
  std::vector<bool> reduced_over;
  reduced_axes(dims.size(), reduced_over);
  auto output = pass.create(InferOutputShapes({inputs[0]->shape})[0]);
  const axes::Strides strides = axes::strides_of(dims);
  Dims kept_dims;
  Dims lost_dims;
  axes::Strides kept;
  axes::Strides lost;
  for (size_t k = 0; k < dims.size(); ++k) {
    (reduced_over[k] ? lost_dims : kept_dims).push_back(dims[k]);
    (reduced_over[k] ? lost : kept).push_back(strides[k]);
  }
  float* const to = floats_of(*output);
  axes::Walk walk(kept_dims, kept);
  const size_t count = axes::count_of(kept_dims);
  for (size_t i = 0; i < count; ++i, walk.next()) {
    to[i] = static_cast<float>(reduced(static_cast<AxisReduction>(function_),
                                       floats_of(*inputs[0]) + walk.offset(), lost_dims, lost));
  }
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
