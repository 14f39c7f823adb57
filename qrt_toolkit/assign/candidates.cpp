#include "qrt_toolkit/assign/candidates.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "qrt_core/runtime/model/pooling_info.h"
#include "qrt_core/runtime/tensor/shape_text.h"
#include "qrt_toolkit/assign/description.h"

namespace marlo::toolkit {
namespace {

using runtime::IKernel;
using runtime::IKernelFacts;
using runtime::LayoutType;
using runtime::TensorShape;
using Shapes = Workshop::Shapes;

constexpr LayoutType kLayouts[] = {LayoutType::CHW, LayoutType::C8HW8, LayoutType::C4HW4};

/// Shapes with those that can stand in a layout in it, the others as they are.
Shapes in_layout(const Shapes& shapes, LayoutType layout) {
  Shapes result;
  for (const TensorShape& shape : shapes) {
    TensorShape moved = toolkit::in_layout(as_planes(shape), layout);
    if (moved.dims.empty()) moved = shape;
    result.push_back(std::move(moved));
  }
  return result;
}

Shapes made_small(const Shapes& shapes) {
  Shapes small;
  for (const TensorShape& shape : shapes) small.push_back(toolkit::made_small(shape));
  return small;
}

std::vector<Form> as_forms(const Shapes& shapes) {
  std::vector<Form> forms;
  for (const TensorShape& shape : shapes) forms.push_back({shape, ""});
  return forms;
}

bool is_same_tensor(const TensorShape& a, const TensorShape& b) {
  return as_planes(a) == as_planes(b);
}

/// Whether a kernel says that it computes something else than the description. Where the reference
/// itself says so, it is the reference that defines what is computed.
bool says_other(const IKernelFacts& facts, const IKernelFacts* reference,
                const ReferenceLayer& layer, const Shapes& inputs) {
  if (reference != nullptr && !reference->differences(*layer.info, layer.reads).empty()) {
    return false;
  }
  std::vector<runtime::Misfit> misfits = facts.differences(*layer.info, inputs);
  const auto* maximum = dynamic_cast<const runtime::MaxPool2dInfo*>(layer.info.get());
  if (maximum != nullptr && layer.reads_rectified) {
    // Zeros at the margin change no maximum of numbers that are never below zero.
    std::erase_if(misfits, [](const auto& m) { return m.member.rfind("padding", 0) == 0; });
  }
  return !misfits.empty();
}

// A few numbers don't tell functions apart that meet there, so small tensors are tried more often.
uint32_t runs_for(const TensorShape& output) {
  constexpr uint32_t kEnough = 64;
  constexpr uint32_t kMostRuns = 16;
  const uint32_t count = std::max<uint32_t>(runtime::ElementCount(output), 1);
  return std::clamp<uint32_t>(kEnough / count, 1, kMostRuns);
}

}  // namespace

/// A layer whose reference has run on small inputs.
struct CandidateFinder::Trial {
  /// Numbers for the inputs, in the layouts of these, and what the reference made of them.
  struct Run {
    Workshop::Numbers numbers;
    std::vector<float> expected;
  };

  const ReferenceLayer& layer;
  const IKernelFacts* reference;
  Shapes inputs;       // as the reference reads them
  TensorShape output;  // as it makes it
  std::vector<Run> runs;
};

CandidateFinder::CandidateFinder(Workshop& workshop, const CandidateRules& rules)
    : workshop_(workshop), rules_(rules) {
  for (const std::string& name : workshop.kernels().Keys()) {
    const KernelSet set = set_of_kernel(name, runtime::needs_of(name));
    (set <= rules.set ? names_ : excluded_).push_back(name);
  }
  std::sort(names_.begin(), names_.end());
  std::sort(excluded_.begin(), excluded_.end());
}

Candidate CandidateFinder::candidate(const std::string& name, const IKernel& kernel) const {
  Candidate made;
  made.kernel = name;
  if (const auto* facts = dynamic_cast<const IKernelFacts*>(&kernel)) {
    made.set = set_of_kernel(name, facts->needs());
    made.use = facts->input_use();
  }
  return made;
}

const std::vector<Candidate>& CandidateFinder::of(const ReferenceLayer& layer) {
  std::string key = layer.kernel + '|' + (layer.is_fixed ? layer.id : "") + '|' +
                    (layer.reads_rectified ? "r|" : "|") + key_of(*layer.info);
  for (const TensorShape& shape : layer.reads) key += '|' + runtime::ShapeText(shape);
  const auto [found, is_new] = known_.try_emplace(key);
  if (is_new) {
    found->second = find(layer);
    workshop_.clear();
  }
  return found->second;
}

std::vector<Candidate> CandidateFinder::find(const ReferenceLayer& layer) {
  std::vector<Candidate> found(1);
  const auto kernel = workshop_.configured(layer.kernel, layer.info);
  if (kernel != nullptr) found[0] = candidate(layer.kernel, *kernel);
  found[0].kernel = layer.kernel;
  found[0].inputs = as_forms(layer.reads);
  found[0].output = {layer.makes, ""};
  if (layer.is_fixed || kernel == nullptr || layer.reads.empty()) return found;

  Trial trial{
      layer, dynamic_cast<const IKernelFacts*>(kernel.get()), made_small(layer.reads), {}, {}};
  auto output = workshop_.made_of(*kernel, trial.inputs);
  if (!output) {
    trial.inputs = layer.reads;
    output = layer.makes;
  }
  trial.output = *output;
  const bool is_maximum = dynamic_cast<const runtime::MaxPool2dInfo*>(layer.info.get()) != nullptr;
  const bool may_be_negative = !(is_maximum && layer.reads_rectified);
  for (uint32_t r = 0; r < runs_for(trial.output); ++r) {
    Trial::Run run;
    for (size_t i = 0; i < trial.inputs.size(); ++i) {
      constexpr uint32_t kSeeds = 17;  // each run begins with another of the first numbers
      run.numbers.push_back(trial_numbers(runtime::ElementCount(trial.inputs[i]),
                                          r * kSeeds + static_cast<uint32_t>(i + 1),
                                          may_be_negative));
    }
    kernel->ResetState();
    auto expected = workshop_.run(*kernel, trial.inputs, run.numbers, trial.output);
    if (!expected) return found;
    run.expected = std::move(*expected);
    trial.runs.push_back(std::move(run));
  }
  for (const std::string& name : names_) try_kernel(name, trial, found);
  return found;
}

void CandidateFinder::try_kernel(const std::string& name, const Trial& trial,
                                 std::vector<Candidate>& found) {
  const ReferenceLayer& layer = trial.layer;
  const auto kernel = workshop_.configured(name, layer.info);
  const auto* facts = dynamic_cast<const IKernelFacts*>(kernel.get());
  if (facts == nullptr) return;
  std::vector<Shapes> tried;
  for (const LayoutType layout : kLayouts) {
    Shapes inputs = in_layout(layer.reads, layout);
    const bool is_reference = name == layer.kernel && inputs == layer.reads;
    if (is_reference || std::find(tried.begin(), tried.end(), inputs) != tried.end()) continue;
    tried.push_back(inputs);
    const auto output = workshop_.made_of(*kernel, inputs);
    if (!output || !is_same_tensor(*output, layer.makes)) continue;
    if (says_other(*facts, trial.reference, layer, inputs)) continue;
    const Shapes small = in_layout(trial.inputs, layout);
    const auto made = workshop_.made_of(*kernel, small);
    if (!made || !is_same_tensor(*made, trial.output)) continue;
    Candidate next = candidate(name, *kernel);
    for (const Trial::Run& run : trial.runs) {
      Workshop::Numbers numbers;
      for (size_t i = 0; i < small.size(); ++i) {
        numbers.push_back(moved(run.numbers[i], trial.inputs[i], small[i]));
      }
      kernel->ResetState();
      const auto result = workshop_.run(*kernel, small, numbers, *made);
      const double difference =
          result ? relative_difference(run.expected, moved(*result, *made, trial.output))
                 : std::numeric_limits<double>::infinity();
      next.difference = std::max(next.difference, difference);
      if (!(next.difference <= rules_.tolerance)) break;
    }
    if (!(next.difference <= rules_.tolerance)) continue;
    next.inputs = as_forms(inputs);
    next.output = {*output, ""};
    found.push_back(std::move(next));
  }
}

const std::vector<Candidate>& CandidateFinder::converters(const Form& from, const Form& to) {
  const std::string key =
      "converter|" + runtime::ShapeText(from.shape) + '|' + runtime::ShapeText(to.shape);
  const auto [found, is_new] = known_.try_emplace(key);
  if (!is_new || !from.epilogue.empty() || !to.epilogue.empty()) return found->second;
  const TensorShape small_from = toolkit::made_small(from.shape);
  const TensorShape small_to = toolkit::made_small(to.shape);
  const auto numbers = trial_numbers(runtime::ElementCount(small_from), 1);
  const auto expected = moved(numbers, small_from, small_to);
  for (const std::string& name : names_) {
    const auto kernel = workshop_.configured(name, nullptr);
    if (kernel == nullptr) continue;
    const auto made = workshop_.made_of(*kernel, {from.shape});
    if (!made || *made != to.shape) continue;
    const auto result = workshop_.run(*kernel, {small_from}, {numbers}, small_to);
    if (!result || relative_difference(expected, *result) != 0) continue;
    Candidate next = candidate(name, *kernel);
    next.inputs = {from};
    next.output = to;
    found->second.push_back(std::move(next));
  }
  return found->second;
}

}  // namespace marlo::toolkit
