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

double begin_of(AxisReduction function) {
  if (function == AxisReduction::Prod) return 1.0;
  if (function == AxisReduction::Max) return -HUGE_VAL;
  return function == AxisReduction::Min ? HUGE_VAL : 0.0;
}

double end_of(AxisReduction function, double sum, double shift, size_t count) {
  switch (function) {
    case AxisReduction::Mean:
      return sum / static_cast<double>(count);
    case AxisReduction::L2:
      return std::sqrt(sum);
    case AxisReduction::LogSum:
      return std::log(sum);
    case AxisReduction::LogSumExp:
      // An infinity or a NaN is what its exponentials sum up to.
      return std::isfinite(shift) ? shift + std::log(sum) : shift;
    default:
      return sum;
  }
}

// Axes side by side that are all reduced over, or all stay.
struct Group {
  size_t size = 1;
  size_t stride = 0;
};

// The axes of a tensor by turns, as those reduced over and those that stay alternate.
struct AxisGroups {
  std::vector<Group> of;     // outermost first
  bool last_reduced = true;  // the last group is reduced over

  AxisGroups(const Dims& dims, const std::vector<bool>& reduced_over) {
    size_t stride = 1;
    bool is_reduced = true;
    for (size_t k = dims.size(); k-- > 0; stride *= dims[k]) {
      if (dims[k] == 1) continue;
      if (of.empty()) last_reduced = reduced_over[k];
      if (of.empty() || reduced_over[k] != is_reduced) of.push_back({1, stride});
      is_reduced = reduced_over[k];
      of.back().size *= dims[k];
    }
    std::reverse(of.begin(), of.end());
  }

  Group take_last() {
    if (of.empty()) return {};
    const Group last = of.back();
    of.pop_back();
    return last;
  }
};

// Reduces a tensor that has numbers.
class Reducer {
 public:
  Reducer(elementary::ReductionCore core, AxisReduction function, AxisGroups groups)
      : core_(core), function_(function), along_rows_(groups.last_reduced) {
    inner_ = groups.take_last();
    rows_ = groups.take_last();
    // From here on groups alternate, and the last one is of the kind of the inner one.
    bool is_reduced = along_rows_;
    for (size_t k = groups.of.size(); k-- > 0; is_reduced = !is_reduced) {
      Dims& dims = is_reduced ? reduced_ : kept_;
      axes::Strides& strides = is_reduced ? reduced_strides_ : kept_strides_;
      dims.insert(dims.begin(), static_cast<uint32_t>(groups.of[k].size));
      strides.insert(strides.begin(), groups.of[k].stride);
    }
    numbers_ = axes::count_of(reduced_) * (along_rows_ ? inner_ : rows_).size;
  }

  void run(const float* from, float* to) const {
    const Group& results = along_rows_ ? rows_ : inner_;
    const size_t places = axes::count_of(kept_);
    axes::Walk walk(kept_, kept_strides_);
    for (size_t i = 0; i < places; ++i, walk.next()) {
      for (size_t first = 0; first < results.size; first += kResults) {
        const size_t count = std::min(kResults, results.size - first);
        reduce(from + walk.offset() + first * results.stride, count, to);
        to += count;
      }
    }
  }

 private:
  // Results at a time, whose sums stay in the cache.
  static constexpr size_t kResults = 256;

  void reduce(const float* from, size_t results, float* to) const {
    double sums[kResults];
    double shifts[kResults];
    std::fill_n(shifts, results, 0.0);
    if (function_ == AxisReduction::LogSumExp) {
      fold(AxisReduction::Max, from, results, shifts, sums);
      std::copy_n(sums, results, shifts);
    }
    fold(function_, from, results, shifts, sums);
    for (size_t j = 0; j < results; ++j) {
      to[j] = static_cast<float>(end_of(function_, sums[j], shifts[j], numbers_));
    }
  }

  void fold(AxisReduction function, const float* from, size_t results, const double* shifts,
            double* sums) const {
    std::fill_n(sums, results, begin_of(function));
    elementary::ReductionTask task;
    task.function = static_cast<uint32_t>(function);
    task.rows = along_rows_ ? results : rows_.size;
    task.stride = rows_.stride;
    task.count = along_rows_ ? inner_.size : results;
    task.along_rows = along_rows_;
    task.shifts = shifts;
    task.sums = sums;
    const size_t parts = axes::count_of(reduced_);
    axes::Walk walk(reduced_, reduced_strides_);
    for (size_t i = 0; i < parts; ++i, walk.next()) {
      task.input = from + walk.offset();
      core_(task);
    }
  }

  const elementary::ReductionCore core_;
  const AxisReduction function_;
  const bool along_rows_;
  Group inner_;   // numbers side by side
  Group rows_;    // of the other kind, around them
  Dims kept_;     // further ones that stay
  Dims reduced_;  // further ones that are reduced over
  axes::Strides kept_strides_;
  axes::Strides reduced_strides_;
  size_t numbers_ = 0;  // of a result
};

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
    expected.expect(!row_.is_vector || elementary::has_vector_reduction(layer->function),
                    "function", "one that vectors have", std::to_string(layer->function));
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
  const auto function = static_cast<AxisReduction>(function_);
  if (axes::count_of(dims) == 0) {
    std::fill_n(floats_of(*output), runtime::ElementCount(output->shape),
                static_cast<float>(end_of(function, begin_of(function), begin_of(function), 0)));
  } else {
    Reducer(row_.core, function, AxisGroups(dims, reduced_over))
        .run(floats_of(*inputs[0]), floats_of(*output));
  }
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
