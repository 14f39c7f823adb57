#include "qrt_toolkit/assign/candidates.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <optional>
#include <utility>

#include "qrt_core/runtime/engine/epilogues.h"
#include "qrt_core/runtime/model/conv_info.h"
#include "qrt_core/runtime/model/layer_catalogue.h"
#include "qrt_core/runtime/model/pooling_info.h"
#include "qrt_core/runtime/tensor/shape_text.h"
#include "qrt_toolkit/assign/description.h"
#include "qrt_toolkit/assign/epilogue.h"
#include "qrt_toolkit/assign/rounding.h"

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

/// The window of a layer over rows and columns: its extent, and its steps.
struct Window {
  uint32_t height = 0, width = 0;
  uint32_t stride_y = 1, stride_x = 1;
};

template <typename Info>
std::optional<Window> window_as(const runtime::LayerInfo& layer) {
  const auto* info = dynamic_cast<const Info*>(&layer);
  if (info == nullptr) return std::nullopt;
  Window window = {info->kernel_y, info->kernel_x, info->stride_y, info->stride_x};
  if constexpr (requires { info->dilation_x; }) {
    window.height = (window.height - 1) * info->dilation_y + 1;
    window.width = (window.width - 1) * info->dilation_x + 1;
  }
  return window;
}

Window window_of(const runtime::LayerInfo& layer) {
  if (const auto window = window_as<runtime::Conv2dInfo>(layer)) return *window;
  if (const auto window = window_as<runtime::MaxPool2dInfo>(layer)) return *window;
  return window_as<runtime::AvgPool2dInfo>(layer).value_or(Window{});
}

/// Small pictures, in which a window still has some places.
Shapes made_small(const runtime::LayerInfo& layer, const Shapes& shapes) {
  const Window window = window_of(layer);
  Shapes small;
  for (const TensorShape& shape : shapes) {
    TensorShape& made = small.emplace_back(toolkit::made_small(shape));
    if (made == shape) continue;
    const auto grow = [&](size_t axis, uint32_t extent, uint32_t stride) {
      constexpr uint32_t kSteps = 3;
      if (made.dims[axis] >= extent) return;
      made.dims[axis] = std::min(shape.dims[axis], extent + kSteps * stride);
    };
    grow(1, window.height, window.stride_y);
    grow(2, window.width, window.stride_x);
  }
  return small;
}

std::vector<Form> as_forms(const Shapes& shapes, const std::string& epilogue = "") {
  std::vector<Form> forms;
  for (const TensorShape& shape : shapes) forms.push_back({shape, epilogue});
  return forms;
}

bool is_same_tensor(const TensorShape& a, const TensorShape& b) {
  return as_planes(a) == as_planes(b);
}

/// Where a kernel says that it differs. That it has an epilogue is judged elsewhere.
std::vector<runtime::Misfit> differences_of(const IKernelFacts& facts,
                                            const runtime::LayerInfo& info, const Shapes& inputs) {
  std::vector<runtime::Misfit> misfits = facts.differences(info, inputs);
  std::erase_if(misfits, [](const auto& m) { return m.member == "epilogue"; });
  return misfits;
}

/// Whether a kernel says that it computes something else than the description. Where the reference
/// itself says so, it is the reference that defines what is computed.
bool says_other(const IKernelFacts& facts, const runtime::LayerInfo& info,
                const IKernelFacts* reference, const ReferenceLayer& layer, const Shapes& inputs) {
  if (reference != nullptr && !differences_of(*reference, *layer.info, layer.reads).empty()) {
    return false;
  }
  std::vector<runtime::Misfit> misfits = differences_of(facts, info, inputs);
  const auto* maximum = dynamic_cast<const runtime::MaxPool2dInfo*>(layer.info.get());
  if (maximum != nullptr && layer.reads_rectified) {
    // Zeros at the margin change no maximum of numbers that are never below zero.
    std::erase_if(misfits, [](const auto& m) { return m.member.rfind("padding", 0) == 0; });
  }
  return !misfits.empty();
}

/// Whether not all numbers are the same: a rectifier that stops everything tells nothing.
bool are_varied(const std::vector<float>& numbers) {
  return std::adjacent_find(numbers.begin(), numbers.end(), std::not_equal_to<>()) != numbers.end();
}

/// A text that is equal for layers that have the same candidates.
std::string key_of_layer(const ReferenceLayer& layer) {
  std::string key = layer.kernel + '|' + (layer.is_fixed ? layer.id : "") + '|' +
                    (layer.reads_rectified ? "r|" : "|") + layer.may_apply + '|' +
                    layer.may_be_applied + '|' + key_of(*layer.info);
  for (const TensorShape& shape : layer.reads) key += '|' + runtime::ShapeText(shape);
  return key;
}

/// Whether a kernel that hands its input on may stand for a layer. It takes every description, and a
/// trial doesn't tell it from a small addend, nor from bounds beyond all numbers that are tried.
bool may_hand_on(const ReferenceLayer& layer, const IKernelFacts* reference) {
  return only_moves(runtime::LayerTypeName(layer.info->type)) ||
         (reference != nullptr && reference->input_use() == runtime::InputUse::passes_on);
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

  /// What is expected of a kernel with this epilogue, where the reference has none.
  std::vector<float> expected(const Run& run, const std::string& epilogue) const {
    const bool is_more = !epilogue.empty() && layer.applies.empty();
    return finished(run.expected, is_more ? epilogue_function(epilogue) : nullptr);
  }

  /// What a kernel made, finished where the reference has an epilogue and the kernel has none.
  std::vector<float> comparable(std::vector<float> made, const std::string& epilogue) const {
    const bool is_less = epilogue.empty() && !layer.applies.empty();
    return finished(std::move(made), is_less ? epilogue_function(layer.applies) : nullptr);
  }

  const ReferenceLayer& layer;
  const IKernelFacts* reference;
  Shapes inputs;       // as the reference reads them
  TensorShape output;  // as it makes it
  std::vector<Run> runs;
  /// The layer as kernels may read it that don't read it as the reference does.
  std::vector<std::pair<Restatement, std::shared_ptr<runtime::LayerInfo>>> restated;
};

CandidateFinder::CandidateFinder(Workshop& workshop, const CandidateRules& rules)
    : workshop_(workshop), rules_(rules) {
  for (const std::string& name : workshop.kernels().Keys()) {
    if (set_of_kernel(name, runtime::needs_of(name)) > rules.set) {
      excluded_.push_back(name);
      continue;
    }
    const auto kernel = workshop.kernels().Create(name);
    const auto* facts = dynamic_cast<const IKernelFacts*>(kernel.get());
    std::string& epilogue = names_[name];
    if (facts != nullptr) epilogue = facts->epilogue();
    if (!epilogue.empty()) epilogues_.insert(epilogue);
  }
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
  const auto [found, is_new] = known_.try_emplace(key_of_layer(layer));
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
  const bool is_applied = !layer.may_be_applied.empty() && layer.kernel == kStraightThrough;
  found[0].inputs = as_forms(layer.reads, is_applied ? layer.may_be_applied : "");
  found[0].output = {layer.makes, layer.may_apply.empty() ? "" : layer.applies};
  if (layer.is_fixed || kernel == nullptr || layer.reads.empty() || !goes_on()) return found;

  Trial trial{layer,
              dynamic_cast<const IKernelFacts*>(kernel.get()),
              made_small(*layer.info, layer.reads),
              {},
              {},
              {}};
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
      run.numbers.push_back(trial_numbers(*layer.info, trial.inputs[i],
                                          r * kSeeds + static_cast<uint32_t>(i + 1),
                                          may_be_negative));
    }
    kernel->ResetState();
    auto expected = workshop_.run(*kernel, trial.inputs, run.numbers, trial.output);
    if (!expected) return found;
    run.expected = finished(std::move(*expected),
                            is_applied ? epilogue_function(layer.may_be_applied) : nullptr);
    trial.runs.push_back(std::move(run));
  }
  for (const Restatement restate : restatements_of(*layer.info)) {
    if (auto info = restate(*layer.info)) trial.restated.emplace_back(restate, std::move(info));
  }
  for (const auto& [name, epilogue] : names_) {
    const bool is_possible = layer.may_apply.empty()
                                 ? epilogue == layer.applies
                                 : epilogue.empty() || epilogue == layer.may_apply;
    if (is_possible && goes_on()) try_kernel(name, trial, found);
  }
  if (!layer.may_be_applied.empty()) add_passing_on(layer, found);
  return found;
}

void CandidateFinder::add_passing_on(const ReferenceLayer& layer, std::vector<Candidate>& found) {
  const auto kernel = workshop_.configured(kStraightThrough, layer.info);
  if (kernel == nullptr) return;
  for (const LayoutType layout : kLayouts) {
    const Shapes shapes = in_layout(layer.reads, layout);
    Candidate next = candidate(kStraightThrough, *kernel);
    next.inputs = as_forms(shapes, layer.may_be_applied);
    next.output = {shapes[0], ""};
    const bool is_known = std::any_of(found.begin(), found.end(), [&](const Candidate& other) {
      return other.kernel == next.kernel && other.inputs == next.inputs;
    });
    if (!is_known) found.push_back(std::move(next));
  }
}

std::string CandidateFinder::epilogue_of(const ReferenceLayer& layer) {
  if (layer.is_fixed || layer.reads.size() != 1 || layer.makes != layer.reads[0]) return "";
  const bool is_any = std::any_of(epilogues_.begin(), epilogues_.end(), [&](const auto& epilogue) {
    return runtime::may_be_epilogue(*layer.info, epilogue);
  });
  if (!is_any) return "";
  const auto [found, is_new] = known_epilogues_.try_emplace(key_of_layer(layer));
  if (is_new && goes_on()) found->second = tried_epilogue(layer);
  return found->second;
}

std::string CandidateFinder::tried_epilogue(const ReferenceLayer& layer) {
  // Which function it is doesn't depend on what is tolerated: approximations are left alone, as
  // those of one function may be those of another.
  constexpr double kSame = 2e-6;
  constexpr size_t kNumbers = 512;
  const TensorShape shape = toolkit::made_small(layer.reads[0]);
  const size_t count = std::max<size_t>(runtime::ElementCount(shape), 1);
  const auto kernel = workshop_.configured(layer.kernel, layer.info);
  if (kernel == nullptr) return "";
  std::vector<float> numbers;
  std::vector<float> made;
  for (uint32_t run = 1; numbers.size() < kNumbers; ++run) {
    const auto some = trial_numbers(count, run);
    const auto result = workshop_.run(*kernel, {shape}, {some}, shape);
    if (!result) return "";
    numbers.insert(numbers.end(), some.begin(), some.end());
    made.insert(made.end(), result->begin(), result->end());
  }
  for (const std::string& epilogue : epilogues_) {
    const EpilogueFunction function = epilogue_function(epilogue);
    if (function == nullptr || !runtime::may_be_epilogue(*layer.info, epilogue)) continue;
    const double difference = relative_difference(finished(numbers, function), made);
    if (difference <= std::min(kSame, rules_.tolerance)) return epilogue;
  }
  return "";
}

void CandidateFinder::try_kernel(const std::string& name, const Trial& trial,
                                 std::vector<Candidate>& found) {
  if (try_kernel(name, trial, nullptr, trial.layer.info, found)) return;
  for (const auto& [restate, info] : trial.restated) {
    if (try_kernel(name, trial, restate, info, found)) return;
  }
}

bool CandidateFinder::try_kernel(const std::string& name, const Trial& trial, Restatement restate,
                                 const std::shared_ptr<runtime::LayerInfo>& info,
                                 std::vector<Candidate>& found) {
  const ReferenceLayer& layer = trial.layer;
  if (name != layer.kernel && !may_round_as(name, rules_.tolerance)) return false;
  const std::string& epilogue = names_.at(name);
  const auto kernel = workshop_.configured(name, info);
  const auto* facts = dynamic_cast<const IKernelFacts*>(kernel.get());
  if (facts == nullptr) return false;
  const bool hands_on = facts->input_use() == runtime::InputUse::passes_on;
  if (hands_on && !may_hand_on(layer, trial.reference)) return false;
  const size_t before = found.size();
  std::vector<Shapes> tried;
  for (const LayoutType layout : kLayouts) {
    Shapes inputs = in_layout(layer.reads, layout);
    const bool is_reference = restate == nullptr && name == layer.kernel && inputs == layer.reads;
    if (is_reference || std::find(tried.begin(), tried.end(), inputs) != tried.end()) continue;
    tried.push_back(inputs);
    const auto output = workshop_.made_of(*kernel, inputs);
    if (!output || !is_same_tensor(*output, layer.makes)) continue;
    if (says_other(*facts, *info, trial.reference, layer, inputs)) continue;
    const Shapes small = in_layout(trial.inputs, layout);
    const auto made = workshop_.made_of(*kernel, small);
    if (!made || !is_same_tensor(*made, trial.output)) continue;
    Candidate next = candidate(name, *kernel);
    for (const Trial::Run& run : trial.runs) {
      const std::vector<float> expected = trial.expected(run, epilogue);
      if (epilogue != layer.applies && !are_varied(expected)) {
        next.difference = std::numeric_limits<double>::infinity();
        break;
      }
      Workshop::Numbers numbers;
      for (size_t i = 0; i < small.size(); ++i) {
        numbers.push_back(moved(run.numbers[i], trial.inputs[i], small[i]));
      }
      kernel->ResetState();
      const auto result = workshop_.run(*kernel, small, numbers, *made);
      const double difference =
          result ? relative_difference(
                       expected, trial.comparable(moved(*result, *made, trial.output), epilogue))
                 : std::numeric_limits<double>::infinity();
      next.difference = std::max(next.difference, difference);
      if (!(next.difference <= rules_.tolerance)) break;
    }
    if (!(next.difference <= rules_.tolerance)) continue;
    next.inputs = as_forms(inputs);
    next.output = {*output, layer.may_apply.empty() ? "" : epilogue};
    next.restate = restate;
    found.push_back(std::move(next));
  }
  return found.size() != before;
}

const std::vector<Candidate>& CandidateFinder::converters(const Form& from, const Form& to) {
  static const std::vector<Candidate> none;
  if (!from.epilogue.empty() || !to.epilogue.empty()) return none;
  const std::string key =
      "converter|" + runtime::ShapeText(from.shape) + '|' + runtime::ShapeText(to.shape);
  const auto [found, is_new] = known_.try_emplace(key);
  if (!is_new) return found->second;
  const TensorShape small_from = toolkit::made_small(from.shape);
  const TensorShape small_to = toolkit::made_small(to.shape);
  const auto numbers = trial_numbers(runtime::ElementCount(small_from), 1);
  const auto expected = moved(numbers, small_from, small_to);
  for (const auto& [name, epilogue] : names_) {
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
