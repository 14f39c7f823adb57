#include "qrt_toolkit/tune/refusals.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <typeinfo>
#include <utility>

#include "qrt_core/runtime/model/type_name.h"
#include "qrt_core/runtime/tensor/shape_text.h"
#include "qrt_toolkit/assign/epilogue.h"
#include "qrt_toolkit/assign/form.h"
#include "qrt_toolkit/assign/rounding.h"

namespace marlo::toolkit {
namespace {

using runtime::IKernel;
using runtime::IKernelFacts;
using runtime::LayoutType;
using runtime::Misfit;
using runtime::TensorShape;
using Shapes = Workshop::Shapes;

/// Members of descriptions as people call them.
constexpr const char* kWords[][2] = {
    {"in_channels", "input channels"},
    {"out_channels", "output channels"},
    {"kernel_y, kernel_x", "window"},
    {"stride_y, stride_x", "stride"},
    {"dilation_y, dilation_x", "dilation"},
    {"padding_l, padding_r, padding_t, padding_b", "padding left, right, above and below"},
    {"kernel_size", "window"},
    {"padding_f, padding_b", "padding in front and behind"},
    {"in_channels, out_channels, groups", "channels in and out, and groups"},
};

std::string words_for(const std::string& member) {
  for (const auto& [name, words] : kWords) {
    if (member == name) return words;
  }
  return member;
}

/// Whether a kernel says that a layer is of another kind: what it found is the description's class.
bool is_other_kind(const std::vector<Misfit>& misfits, const runtime::LayerInfo& info) {
  const std::string name = runtime::demangled(typeid(info).name());
  const std::string found = name.substr(name.rfind(':') + 1);
  return std::any_of(misfits.begin(), misfits.end(), [&](const Misfit& misfit) {
    return misfit.member.empty() && misfit.found == found;
  });
}

std::vector<std::string> texts_of(const std::vector<Misfit>& misfits, const std::string& before) {
  std::vector<std::string> texts;
  texts.reserve(misfits.size());
  for (const Misfit& misfit : misfits) texts.push_back(before + reason_text(misfit));
  return texts;
}

std::string short_number(double number) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2g", number);
  return text;
}

constexpr char kTrialFailed[] =
    "results: a trial on a small picture failed, or made numbers that aren't finite";

constexpr char kBoth[] = ": both would have to change; `qrt tune` weighs such pairs";

/// Why a kernel can't stand behind one that applies an epilogue already, or doesn't.
std::string reason_of_applied(const std::string& epilogue, bool is_applied) {
  return (is_applied ? "applies " : "leaves out ") + epilogue + ", which the layer before " +
         (is_applied ? "does" : "doesn't apply") + kBoth;
}

/// Why a kernel that applies an epilogue can't stand where the chosen one doesn't, or the other way
/// round; empty where it isn't that.
std::string reason_of_pair(const Candidate& candidate, const ReferenceLayer& layer) {
  if (candidate.output.epilogue != layer.applies && !layer.may_apply.empty()) {
    const bool is_more = layer.applies.empty();
    return (is_more ? "applies " : "leaves out ") + layer.may_apply + ", which the layer behind " +
           (is_more ? "does" : "doesn't apply") + kBoth;
  }
  if (layer.may_be_applied.empty() || layer.kernel != kStraightThrough) return "";
  return reason_of_applied(layer.may_be_applied, true);
}

/// The inputs with those that can stand in a layout in it.
Shapes moved_to(const Shapes& shapes, LayoutType layout) {
  Shapes moved;
  moved.reserve(shapes.size());
  for (const TensorShape& shape : shapes) {
    const TensorShape next = in_layout(as_planes(shape), layout);
    moved.push_back(next.dims.empty() ? shape : next);
  }
  return moved;
}

}  // namespace

std::string reason_text(const Misfit& misfit) {
  const std::string needs = "needs " + misfit.expected + ", has " + misfit.found;
  return misfit.member.empty() ? needs : words_for(misfit.member) + ": " + needs;
}

RefusalFinder::RefusalFinder(Workshop& workshop, const CandidateRules& rules)
    : workshop_(workshop),
      rules_(rules),
      any_results_(workshop, {rules.set, std::numeric_limits<double>::infinity(), {}}),
      names_(workshop.kernels().Keys()) {
  std::sort(names_.begin(), names_.end());
}

std::vector<ExplainedRefusal> RefusalFinder::of(const ReferenceLayer& layer,
                                                const std::set<std::string>& possible) {
  std::vector<ExplainedRefusal> found;
  for (const std::string& name : names_) {
    if (possible.count(name) != 0) continue;
    ExplainedRefusal refusal;
    refusal.reasons = of_kernel(name, layer);
    if (refusal.reasons.empty()) continue;
    refusal.kernel = name;
    refusal.set = set_of_kernel(name, runtime::needs_of(name));
    found.push_back(std::move(refusal));
  }
  workshop_.clear();
  return found;
}

RefusalFinder::Reasons RefusalFinder::of_kernel(const std::string& name,
                                                const ReferenceLayer& layer) {
  const auto asked = workshop_.kernels().Create(name);
  const auto* facts = dynamic_cast<const IKernelFacts*>(asked.get());
  if (facts == nullptr) return {};
  const std::vector<Misfit> misfits = facts->refusals(layer.info.get(), nullptr);
  if (is_other_kind(misfits, *layer.info)) return {};
  if (!misfits.empty()) return texts_of(misfits, "");
  if (set_of_kernel(name, facts->needs()) > rules_.set) {
    return {std::string("instructions: needs ") + runtime::PrintedName(facts->needs()) +
            ", and kernels up to " + word_of(rules_.set) + " may be used here"};
  }
  if (name == kStraightThrough && !layer.may_be_applied.empty()) {
    return {reason_of_applied(layer.may_be_applied, false)};
  }
  Reasons reasons;
  {
    // It must be gone before other trials give its memory back.
    const auto kernel = workshop_.configured(name, layer.info);
    if (kernel == nullptr) return {"it can't be configured with this description"};
    reasons = of_inputs(*kernel, dynamic_cast<const IKernelFacts&>(*kernel), layer);
  }
  return reasons.empty() ? of_results(name, layer) : reasons;
}

RefusalFinder::Reasons RefusalFinder::of_inputs(IKernel& kernel, const IKernelFacts& facts,
                                                const ReferenceLayer& layer) {
  std::vector<Misfit> fewest;
  Reasons other;
  bool takes_inputs = false;
  for (const LayoutType layout : {LayoutType::CHW, LayoutType::C8HW8, LayoutType::C4HW4}) {
    const Shapes inputs = moved_to(layer.reads, layout);
    const auto made = workshop_.made_of(kernel, inputs);
    if (!made) {
      std::vector<Misfit> misfits = facts.input_refusals(inputs);
      if (fewest.empty() || (!misfits.empty() && misfits.size() < fewest.size())) {
        fewest = std::move(misfits);
      }
      continue;
    }
    takes_inputs = true;
    if (as_planes(*made) != as_planes(layer.makes)) {
      other = {"output: would be " + runtime::ShapeText(*made) + ", is " +
               runtime::ShapeText(layer.makes)};
      continue;
    }
    std::vector<Misfit> misfits = facts.differences(*layer.info, inputs);
    if (facts.epilogue() == layer.may_apply || facts.epilogue() == layer.applies) {
      // It isn't something else: the layer behind does it.
      std::erase_if(misfits, [](const Misfit& m) { return m.member == "epilogue"; });
    }
    other = texts_of(misfits, "computes something else: ");
    if (other.empty()) return {};
  }
  if (takes_inputs) return other;
  if (fewest.empty()) return {"inputs: can't take " + runtime::ShapesText(layer.reads)};
  return texts_of(fewest, "");
}

RefusalFinder::Reasons RefusalFinder::of_results(const std::string& name,
                                                 const ReferenceLayer& layer) {
  for (const Candidate& candidate : any_results_.of(layer)) {
    if (candidate.kernel != name) continue;
    if (!std::isfinite(candidate.difference)) return {kTrialFailed};
    if (candidate.difference > rules_.tolerance) {
      return {"results: differ by " + short_number(candidate.difference) + " of the largest, and " +
              short_number(rules_.tolerance) + " is allowed"};
    }
    if (!may_round_as(name, rules_.tolerance)) {
      return {"results: usually " + short_number(rounding_growth(name).usual) +
              " times as far off as plain sums, which takes a tolerance of " +
              short_number(tolerance_for_rounding(name)) + ", and " +
              short_number(rules_.tolerance) + " is allowed"};
    }
    if (candidate.use == runtime::InputUse::overwrites) {
      return {"input 0: would be overwritten, and others need its numbers"};
    }
    const std::string pair = reason_of_pair(candidate, layer);
    return {pair.empty() ? "output: would need other layers to change as well" : pair};
  }
  return {kTrialFailed};
}

}  // namespace marlo::toolkit
