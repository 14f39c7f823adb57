#include "qrt_core/kernel/extension/elementary/axis_reduction.h"

#include <algorithm>
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

// `shift` is the largest number where exponentials are summed.
template <AxisReduction function>
double added(double sum, double x, [[maybe_unused]] double shift) {
  if constexpr (function == AxisReduction::Max) return std::isnan(sum) || sum > x ? sum : x;
  if constexpr (function == AxisReduction::Min) return std::isnan(sum) || sum < x ? sum : x;
  if constexpr (function == AxisReduction::Prod) return sum * x;
  if constexpr (function == AxisReduction::L1) return sum + std::fabs(x);
  if constexpr (function == AxisReduction::SumSquare) return sum + x * x;
  if constexpr (function == AxisReduction::LogSumExp) return sum + std::exp(x - shift);
  return sum + x;
}

// Of the results of two parts.
template <AxisReduction function>
double joined(double a, double b) {
  constexpr bool is_sum = function == AxisReduction::L1 || function == AxisReduction::SumSquare ||
                          function == AxisReduction::LogSumExp;
  return is_sum ? a + b : added<function>(a, b, 0.0);
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

// Results side by side in blocks that stay in the cache.
constexpr size_t kColumns = 256;

// What results are made of. Either the last axes are reduced over, and each is of runs of numbers side by side; or they stay,
// and numbers side by side are of as many results.
struct Elements {
  const Dims& dims;  // that are reduced over, without the last axes
  const axes::Strides& strides;
  size_t run = 1;
  size_t columns = 1;
};

// Four sums hide each other's latency.
template <AxisReduction function>
double folded_run(const float* x, size_t count, double shift) {
  const double begin = begin_of(function);
  double sums[4] = {begin, begin, begin, begin};
  const auto at = [x](size_t i) { return static_cast<double>(x[i]); };
  size_t i = 0;
  for (; i + 4 <= count; i += 4) {
    for (size_t k = 0; k < 4; ++k) sums[k] = added<function>(sums[k], at(i + k), shift);
  }
  for (; i < count; ++i) sums[0] = added<function>(sums[0], at(i), shift);
  return joined<function>(joined<function>(sums[0], sums[1]), joined<function>(sums[2], sums[3]));
}

template <AxisReduction function>
void fold(const Elements& of, const float* first, size_t columns, const double* shifts,
          double* sums) {
  std::fill_n(sums, columns, begin_of(function));
  const size_t count = axes::count_of(of.dims);
  axes::Walk walk(of.dims, of.strides);
  for (size_t i = 0; i < count; ++i, walk.next()) {
    const float* const x = first + walk.offset();
    if (of.run != 1) {
      sums[0] = joined<function>(sums[0], folded_run<function>(x, of.run, shifts[0]));
      continue;
    }
    for (size_t j = 0; j < columns; ++j) {
      sums[j] = added<function>(sums[j], static_cast<double>(x[j]), shifts[j]);
    }
  }
}

using Fold = void (*)(const Elements&, const float*, size_t, const double*, double*);

Fold fold_of(AxisReduction function) {
  switch (function) {
    case AxisReduction::Max:
      return fold<AxisReduction::Max>;
    case AxisReduction::Min:
      return fold<AxisReduction::Min>;
    case AxisReduction::Prod:
      return fold<AxisReduction::Prod>;
    case AxisReduction::L1:
      return fold<AxisReduction::L1>;
    case AxisReduction::L2:
    case AxisReduction::SumSquare:
      return fold<AxisReduction::SumSquare>;
    case AxisReduction::LogSumExp:
      return fold<AxisReduction::LogSumExp>;
    default:
      return fold<AxisReduction::Sum>;
  }
}

// `columns` results whose first elements stand at `first`.
void reduce(AxisReduction function, const Elements& of, const float* first, size_t columns,
            float* to) {
  double sums[kColumns];
  double shifts[kColumns];
  const bool shifted = function == AxisReduction::LogSumExp;
  const size_t count = axes::count_of(of.dims) * of.run;
  std::fill_n(shifts, columns, 0.0);
  if (shifted) fold<AxisReduction::Max>(of, first, columns, sums, shifts);
  fold_of(function)(of, first, columns, shifts, sums);
  for (size_t j = 0; j < columns; ++j) {
    // An infinity or a NaN is what its exponentials sum up to.
    const auto shifted_back = [&] {
      return std::isfinite(shifts[j]) ? shifts[j] + std::log(sums[j]) : shifts[j];
    };
    to[j] = static_cast<float>(shifted ? shifted_back() : end_of(function, sums[j], count));
  }
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
  size_t outer = dims.size();
  while (outer > 0 && reduced_over[outer - 1] == reduced_over.back()) --outer;
  const size_t side_by_side = axes::count_of(dims, outer, dims.size());
  Dims kept_dims;
  Dims lost_dims;
  axes::Strides kept;
  axes::Strides lost;
  for (size_t k = 0; k < outer; ++k) {
    (reduced_over[k] ? lost_dims : kept_dims).push_back(dims[k]);
    (reduced_over[k] ? lost : kept).push_back(strides[k]);
  }
  Elements elements{lost_dims, lost};
  const bool is_run = !dims.empty() && reduced_over.back();
  (is_run ? elements.run : elements.columns) = side_by_side;
  float* to = floats_of(*output);
  axes::Walk walk(kept_dims, kept);
  const size_t count = axes::count_of(kept_dims);
  for (size_t i = 0; i < count; ++i, walk.next()) {
    const float* const first = floats_of(*inputs[0]) + walk.offset();
    for (size_t column = 0; column < elements.columns; column += kColumns) {
      const size_t columns = std::min(kColumns, elements.columns - column);
      reduce(static_cast<AxisReduction>(function_), elements, first + column, columns, to);
      to += columns;
    }
  }
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
