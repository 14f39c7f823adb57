#include <algorithm>
#include <exception>
#include <map>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "qrt_core/runtime/engine/epilogues.h"
#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_core/runtime/model/layers.h"
#include "qrt_core/runtime/tensor/shape_text.h"
#include "qrt_core/utility/check_model_internal.h"
#include "qrt_core/utility/check_shapes.h"
#include "qrt_core/utility/errors.h"
#include "qrt_core/utility/input_demand_internal.h"

namespace marlo::utility {
namespace {

using runtime::TensorShape;

using ShapesByLayer = std::unordered_map<unsigned int, TensorShape>;

constexpr char kInputName[] = "Input";
// Heights and widths to try where a header tells none: most networks take one of them.
constexpr uint32_t kSizes[] = {224, 256, 64, 32, 28, 112, 48, 16, 8, 100, 299, 513, 7, 1};

/// One walk through the network, and how far it came.
struct Walked {
  std::vector<LayerShapes> layers;
  size_t fits = 0;  // layers without a fault
  bool is_whole = false;
};

/// The check of one network's shapes.
class ShapeCheck {
 public:
  ShapeCheck(const std::vector<CheckedLayer>& layers, const runtime::QRModelInfo& info,
             const std::map<std::string, TensorShape>& inputs,
             const std::shared_ptr<runtime::Context>& context)
      : layers_(layers), info_(info), given_(inputs), context_(context), net_({}, {}) {
    for (const CheckedLayer& checked : layers) {
      // A gap stands for a layer that a finding has already been made of.
      net_.layers.push_back(checked.layer != nullptr ? checked.layer
                                                     : std::make_shared<runtime::Layer>());
    }
  }

  /// The best walk of those that can be tried; nothing if the inputs can't be told.
  std::optional<Walked> run() {
    std::vector<uint32_t> inputs;
    std::vector<Demand> demands;
    bool is_given = true;
    for (uint32_t p = 0; p < layers_.size(); ++p) {
      if (layers_[p].layer == nullptr || layers_[p].layer->name != kInputName) continue;
      inputs.push_back(p);
      const auto demand = demand_on(info_, layers_[p].place.id);
      if (given_.count(layers_[p].place.id) == 0) {
        is_given = false;
        if (!demand) return std::nullopt;
      }
      demands.push_back(demand.value_or(Demand()));
    }
    if (inputs.empty()) return std::nullopt;
    if (is_given) return walk(shapes_of(inputs, demands, 1, 1, 0));
    const runtime::NetExtraInfo& header = info_.extra_info;
    if (header.model_base_h != 0 && header.model_base_w != 0) {
      return best_form(inputs, demands, header.model_base_h, header.model_base_w);
    }
    std::optional<Walked> best;
    for (const uint32_t size : kSizes) {
      Walked walked = best_form(inputs, demands, size, size);
      if (walked.is_whole) return walked;
      if (!best || walked.fits > best->fits) best = std::move(walked);
    }
    return best;
  }

 private:
  ShapesByLayer shapes_of(const std::vector<uint32_t>& inputs, const std::vector<Demand>& demands,
                          uint32_t height, uint32_t width, size_t form) const {
    ShapesByLayer shapes;
    for (size_t i = 0; i < inputs.size(); ++i) {
      const auto given = given_.find(layers_[inputs[i]].place.id);
      if (given != given_.end()) {
        shapes[inputs[i]] = given->second;
      } else {
        const std::vector<TensorShape> forms = forms_of(demands[i], height, width);
        shapes[inputs[i]] = forms[form < forms.size() ? form : 0];
      }
    }
    return shapes;
  }

  Walked best_form(const std::vector<uint32_t>& inputs, const std::vector<Demand>& demands,
                   uint32_t height, uint32_t width) const {
    constexpr size_t kForms = 3;
    Walked best = walk(shapes_of(inputs, demands, height, width, 0));
    for (size_t form = 1; form < kForms && !best.is_whole; ++form) {
      Walked other = walk(shapes_of(inputs, demands, height, width, form));
      if (other.fits > best.fits) best = std::move(other);
    }
    return best;
  }

  Walked walk(const ShapesByLayer& inputs) const {
    Walked walked;
    walked.layers = check_shapes(net_, inputs, context_);
    for (uint32_t p = 0; p < layers_.size(); ++p) {
      walked.fits += walked.layers[p].fault.empty() ? 1 : 0;
    }
    // Kernels that are missing have their own findings.
    walked.is_whole = true;
    for (uint32_t p = 0; p < layers_.size(); ++p) {
      const LayerShapes& found = walked.layers[p];
      const bool counts = !found.fault.empty() && !found.is_consequence && has_kernels(p);
      walked.is_whole = walked.is_whole && !counts;
    }
    return walked;
  }

 public:
  bool has_kernels(uint32_t position) const {
    const runtime::Layer& layer = *net_.layers[position];
    if (layer.kernel == nullptr) return false;
    for (const auto& [index, converter] : layer.input_converters) {
      if (converter == nullptr && layer.name != kInputName) return false;
    }
    for (const auto& [index, converter] : layer.output_converters) {
      if (converter == nullptr) return false;
    }
    return true;
  }

 private:
  const std::vector<CheckedLayer>& layers_;
  const runtime::QRModelInfo& info_;
  const std::map<std::string, TensorShape>& given_;
  const std::shared_ptr<runtime::Context>& context_;
  runtime::Net net_;
};

double count_of(const TensorShape& shape) {
  double count = 1;
  for (const uint32_t size : shape.dims) count *= size;
  return count;
}

void add_fault(const CheckedLayer& checked, const LayerShapes& found, FindingList& findings) {
  Finding place = checked.place;
  if (!found.place.kernel.empty()) place.kernel = found.place.kernel;
  const std::string role = found.place.role.empty() ? "inputs" : "inputs of " + found.place.role;
  const std::string advice =
      "name a kernel or a converter for what the layer gets, or give it what its kernel takes";
  if (!found.place.misfits.empty()) {
    findings.add(place, FindingCode::wrong_shape, Severity::error, found.place.misfits, advice);
  } else {
    findings.add(place, FindingCode::wrong_shape, Severity::error, role, "ones that fit",
                 runtime::ShapesText(found.inputs) + ": " + found.fault, advice);
  }
}

// A reshape that makes less of its input than there is.
void check_lost_numbers(const CheckedLayer& checked, const LayerShapes& found,
                        FindingList& findings) {
  if (dynamic_cast<const runtime::TensorReshapeInfo*>(checked.info.get()) == nullptr) return;
  if (found.inputs.size() != 1 || found.made.size() != 1) return;
  if (count_of(found.made[0]) >= count_of(found.inputs[0])) return;
  findings.add(checked.place, FindingCode::other_result, Severity::error, "new_shape",
               "a shape of all numbers of " + runtime::ShapeText(found.inputs[0]),
               runtime::ShapeText(found.made[0]),
               "the first entry counts a batch: write 1 before the sizes");
}

void check_padding(const CheckedLayer& checked, const LayerShapes& found, FindingList& findings) {
  const auto* conv = dynamic_cast<const runtime::Conv2dInfo*>(checked.info.get());
  if (conv == nullptr || found.made.size() != 1) return;
  const TensorShape& made = found.made[0];
  const uint32_t block = runtime::BlockSize(made.layout);
  if (block == 1 || made.dims.size() != 4 || made.dims[0] * block == conv->out_channels) return;
  findings.add(
      checked.place, FindingCode::padded_channels, Severity::warning, "out_channels",
      "a multiple of " + std::to_string(block) + ", the block of " + runtime::ShapeText(made),
      std::to_string(conv->out_channels) + ": readers get " + std::to_string(made.dims[0] * block) +
          " channels",
      "take the rest away behind the last layer, or use a kernel on planes");
}

// Whether a layer reads numbers that are never below 0, where zeros at the margin change no maximum.
bool reads_rectified(const std::vector<CheckedLayer>& layers, const CheckedLayer& checked) {
  constexpr uint16_t kRectifier = 2;
  for (const auto& [source, output] : checked.layer->inputs) {
    const auto* info = dynamic_cast<const runtime::ActivationInfo*>(layers[source].info.get());
    if (info == nullptr || info->activation_type != kRectifier) return false;
  }
  return !checked.layer->inputs.empty();
}

// Whether what a kernel does besides is what the one layer behind it is for, which passes it through.
bool is_fused(const std::vector<CheckedLayer>& layers, const CheckedLayer& checked,
              const runtime::QRModelInfo& info, std::string_view epilogue) {
  const std::vector<std::string>& outputs = info.squential_output_ids;
  if (checked.layer->consumers.size() != 1 ||
      std::find(outputs.begin(), outputs.end(), checked.layer->id) != outputs.end()) {
    return false;
  }
  const CheckedLayer& reader = layers[checked.layer->consumers[0].first];
  return reader.info != nullptr && runtime::may_be_epilogue(*reader.info, epilogue) &&
         reader.layer != nullptr && reader.layer->kernel != nullptr &&
         reader.layer->kernel->GetKernelName() == "Straight_Through_Fallback_M1";
}

void check_meaning(const std::vector<CheckedLayer>& layers, const CheckedLayer& checked,
                   const runtime::QRModelInfo& info, const std::vector<TensorShape>& inputs,
                   FindingList& findings) {
  const auto* facts = dynamic_cast<const runtime::IKernelFacts*>(checked.layer->kernel.get());
  if (facts == nullptr) return;
  std::vector<Misfit> misfits;
  try {
    misfits = facts->differences(*checked.info, inputs);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    return;  // it can't say
  }
  if (!facts->epilogue().empty() && is_fused(layers, checked, info, facts->epilogue())) {
    const auto is_epilogue = [](const Misfit& m) { return m.member == "epilogue"; };
    misfits.erase(std::remove_if(misfits.begin(), misfits.end(), is_epilogue), misfits.end());
  }
  const bool is_maximum =
      dynamic_cast<const runtime::MaxPool2dInfo*>(checked.info.get()) != nullptr;
  if (is_maximum && reads_rectified(layers, checked)) {
    const auto is_padding = [](const Misfit& m) { return m.member.rfind("padding", 0) == 0; };
    misfits.erase(std::remove_if(misfits.begin(), misfits.end(), is_padding), misfits.end());
  }
  findings.add(checked.place, FindingCode::other_result, Severity::error, misfits,
               "name the kernel of what is described, or describe what it computes");
}

}  // namespace

void check_network_shapes(const std::vector<CheckedLayer>& layers, const runtime::QRModelInfo& info,
                          const std::map<std::string, TensorShape>& inputs,
                          const std::shared_ptr<runtime::Context>& context, FindingList& findings) {
  ShapeCheck check(layers, info, inputs, context);
  const std::optional<Walked> walked = check.run();
  for (uint32_t p = 0; p < layers.size(); ++p) {
    const CheckedLayer& checked = layers[p];
    if (checked.layer == nullptr || checked.info == nullptr || !check.has_kernels(p)) continue;
    static const LayerShapes unknown;
    const LayerShapes& found = walked ? walked->layers[p] : unknown;
    check_meaning(layers, checked, info,
                  found.is_consequence ? std::vector<TensorShape>() : found.inputs, findings);
    if (!walked || found.is_consequence) continue;
    if (!found.fault.empty()) {
      add_fault(checked, found, findings);
      continue;
    }
    check_lost_numbers(checked, found, findings);
    check_padding(checked, found, findings);
  }
}

}  // namespace marlo::utility
